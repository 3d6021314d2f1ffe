#include "msgsvr/introduction.h"

#include <zor/control_wire.h>

#include <cstring>
#include <optional>

#include "programs/board_name.h"

namespace zor::msgsvr {
namespace {

static_assert(sizeof(ZOR_CONTROL_BOARD) == 80);

std::optional<TunnelledBoard> BoardIn(const Frame &frame) {
  ZOR_CONTROL_BOARD board;
  if (frame.head.type != ZOR_MSG_CONTROL_BOARD || !frame.destination.empty() || frame.body().size() != sizeof board) {
    return std::nullopt;
  }
  std::memcpy(&board, frame.body().data(), sizeof board);
  if (board.magic != ZOR_CONTROL_BOARD_MAGIC || board.version != ZOR_CONTROL_BOARD_VERSION) return std::nullopt;
  // A name that fills the field is too long to be one.
  const std::string name(board.name, ::strnlen(board.name, sizeof board.name));
  if (!daemon::IsBoardName(name)) return std::nullopt;
  return TunnelledBoard{name, board.address};
}

}  // namespace

void IntroduceBoard(Bus &bus, Client &client, const Frame &frame) {
  auto board = BoardIn(frame);
  if (!board) return bus.CutOff(client, "its connection does not begin with the tunnel's word on its board");
  client.Admit({bus.guard, IdentityOf(*board)}, bus.guard);
  client.SetBoard(std::move(*board));
  bus.Changed(client);
}

}  // namespace zor::msgsvr
