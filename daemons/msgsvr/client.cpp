#include "msgsvr/client.h"

#include <cstdio>
#include <functional>

#include "programs/boards.h"

namespace zor::msgsvr {

std::string StoredName(uint64_t id) {
  return std::string(kStoredClient) + std::to_string(id);
}

daemon::Holder HolderOf(int socket, const Peer &peer) {
  if (peer.throughTunnel) return {peer.uid, 0};  // until the tunnel has said more
  return {peer.uid, peer.local ? int64_t{peer.pid} : int64_t{daemon::BoardAddress(socket)}};
}

Client::Client(UniqueFd connection, const Peer &other, uint64_t number, daemon::Journal &journal, size_t queueBytes,
               daemon::Accounts &accounts)
    : socket(std::move(connection)),
      peer(other),
      id(number),
      charge(accounts, HolderOf(socket.get(), other)),
      slot(journal, number),
      output(slot, queueBytes) {
  Settle();
}

// The name counts, whatever the address: as a number that is no address and no process.
void Client::SetBoard(TunnelledBoard known) {
  constexpr uint64_t kNoAddress = uint64_t{1} << 62;
  auto board = std::make_unique<const TunnelledBoard>(std::move(known));
  charge.MoveTo({peer.uid, static_cast<int64_t>(std::hash<std::string>()(board->name) % kNoAddress | kNoAddress)});
  board_ = std::move(board);
}

access::Identity IdentityOf(const TunnelledBoard &board) {
  access::Identity identity;
  if (board.name.empty()) return identity;
  identity.board = board.address;
  identity.certificate = board.name;
  return identity;
}

Client::Text Client::Label() const {
  Text label;
  const std::string_view shown = registered() ? name.text() : "an unregistered client";
  const int length = static_cast<int>(shown.size());
  if (peer.local) {
    std::snprintf(label.text_.data(), label.text_.size(), "%.*s (pid %d)", length, shown.data(), peer.pid);
  } else if (peer.throughTunnel) {
    const char *which = board_ == nullptr ? "not yet known" : board_->name.c_str();
    std::snprintf(label.text_.data(), label.text_.size(), "%.*s (board %s)", length, shown.data(), which);
  } else {
    std::snprintf(label.text_.data(), label.text_.size(), "%.*s (TCP)", length, shown.data());
  }
  return label;
}

// The guard has the parts, a text for people, and another one as a key.
void Client::Admit(access::Admission place, const access::Guard &guard) {
  admission = std::move(place);
  identityBytes = static_cast<uint32_t>(4 * guard.WhoOf(admission.subject()).size());
  Settle();
}

size_t Client::HeldBytes() const {
  const size_t inJournal = slot.valid() ? slot.memory() : 0;
  const size_t ofBoard = board_ == nullptr ? 0 : sizeof *board_;
  return sizeof(Client) + inJournal + ofBoard + deliveries.HeldBytes() + pending.HeldBytes() + flows.HeldBytes() +
         gap.HeldBytes() + patternBytes + identityBytes;
}

}  // namespace zor::msgsvr
