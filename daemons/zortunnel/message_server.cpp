#include "zortunnel/message_server.h"

#include <sys/socket.h>
#include <zor/control_wire.h>

#include "common/socket_address.h"
#include "programs/local_address.h"
#include "programs/paths.h"

namespace zor::tunnel {
namespace {

struct Introduction {
  ZOR_MSG_HEAD head;
  ZOR_CONTROL_BOARD board;
};
static_assert(sizeof(Introduction) == ZOR_MSG_HEAD_SIZE + sizeof(ZOR_CONTROL_BOARD));

Introduction IntroductionOf(const std::string &board, const sockaddr_in &from) {
  Introduction introduction = {};
  introduction.head.type = ZOR_MSG_CONTROL_BOARD;
  introduction.head.bodyLength = sizeof introduction.board;
  introduction.board.magic = ZOR_CONTROL_BOARD_MAGIC;
  introduction.board.version = ZOR_CONTROL_BOARD_VERSION;
  introduction.board.address = ntohl(from.sin_addr.s_addr);
  introduction.board.port = ntohs(from.sin_port);
  board.copy(introduction.board.name, sizeof introduction.board.name - 1);
  return introduction;
}

}  // namespace

UniqueFd ConnectToMessageServer(const std::string &fixedPath, const std::string &board, const sockaddr_in &from) {
  const auto address = daemon::LocalAddress(daemon::FixedPath(fixedPath));
  if (!address) return {};
  UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const Introduction introduction = IntroductionOf(board, from);
  // The buffer of a new connection takes it whole.
  const bool introduced = socket.valid() && Connect(socket.get(), *address) &&
                          ::send(socket.get(), &introduction, sizeof introduction, MSG_NOSIGNAL) == sizeof introduction;
  return introduced ? std::move(socket) : UniqueFd();
}

}  // namespace zor::tunnel
