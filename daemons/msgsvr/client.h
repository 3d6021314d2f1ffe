// A connection to the server and everything that the server stores for it.
#ifndef MSGSVR_CLIENT_H
#define MSGSVR_CLIENT_H

#include <sys/types.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/unique_fd.h"
#include "msgsvr/accounting.h"
#include "msgsvr/deliveries.h"
#include "msgsvr/events.h"
#include "msgsvr/flows.h"
#include "msgsvr/names.h"
#include "msgsvr/refusals.h"
#include "programs/access/server_access.h"
#include "programs/accounts.h"
#include "programs/journal/turn.h"
#include "programs/output_queue.h"

namespace zor::msgsvr {

using Clock = std::chrono::steady_clock;

// The process at the other end, as reported by the kernel.
struct Peer {
  uid_t uid;
  pid_t pid;
  bool local;                  // on this machine: has credentials, shares files and descriptors
  bool throughTunnel = false;  // on a board that has shown a certificate to the tunnel
};

// The board behind the tunnel, as the tunnel has said.
struct TunnelledBoard {
  std::string name;  // in its certificate; empty until the tunnel has said it
  uint32_t address = 0;
};

// Who that is for the rules; until the tunnel has said it, somebody of whom nothing is known.
access::Identity IdentityOf(const TunnelledBoard &board);

struct Client {
  // Its slot is invalid if the journal has no room. May throw std::bad_alloc.
  Client(UniqueFd connection, const Peer &other, uint64_t number, daemon::Journal &journal, size_t queueBytes,
         daemon::Accounts &accounts);

  bool registered() const { return !name.empty(); }
  // Whether the tunnel has yet to say which board it is.
  bool isUnknownBoard() const { return peer.throughTunnel && board_ == nullptr; }
  // Without a name unless it is a known one behind the tunnel.
  TunnelledBoard board() const { return board_ == nullptr ? TunnelledBoard() : *board_; }
  // The name is not empty. Throws std::bad_alloc.
  void SetBoard(TunnelledBoard known);
  // The number of its latest message among all messages from it.
  uint32_t ordinal() const { return static_cast<uint32_t>(counters.in); }
  // Its name in log lines, which takes no memory.
  class Text {
   public:
    const char *c_str() const { return text_.data(); }

   private:
    friend struct Client;
    std::array<char, 96> text_{};
  };
  Text Label() const;
  // Of events. Those that are told what they have missed are daemons that keep records of the bus.
  daemon::Receiver receiver() const {
    return gap.wanted() ? daemon::Receiver::kObserver : daemon::Receiver::kSubscriber;
  }
  uint64_t place() const { return daemon::PlaceOf(id, receiver()); }
  // Makes room in the record of deliveries, as far as its share goes. Throws std::bad_alloc.
  void ReserveDelivery(bool bodyInFile) {
    deliveries.Reserve(bodyInFile, [this](size_t more) { return charge.MayTake(more); });
  }
  // Takes its place at the guard, for which it is charged.
  void Admit(access::Admission place, const access::Guard &guard);
  // Updates what it is charged.
  void Settle() { charge.Set(HeldBytes()); }

  // The order leaves no gaps: there may be hundreds of clients.
  UniqueFd socket;
  UniqueFd halfDescriptor;  // received with the first of its two bytes, which is all of the input
  Peer peer;
  AppName name;  // empty until the server has granted one
  uint64_t id;
  uint64_t registration = 0;  // its number among all registrations
  daemon::Charge charge;
  access::Admission admission;

  daemon::JournalSlot slot;  // its standing record, and the input that is left
  daemon::OutputQueue output;
  uint64_t lastTarget = 0;  // id of the client that received its latest message

  Counters counters;
  PendingRequests pending;
  Deliveries deliveries;
  Flows flows;
  EventSet events;
  EventGap gap;
  Refusals refusals;
  uint32_t unreadBefore = 0;   // messages that it had perhaps not read when the server before this one crashed
  uint32_t patternBytes = 0;   // of its restful patterns
  uint32_t identityBytes = 0;  // at the guard

  std::chrono::duration<uint32_t> reportPeriod{0};  // zero: no reports expected
  Clock::time_point lastReport;
  std::time_t since = std::time(nullptr);

  // State in the event loop.
  uint64_t flushes = 0;  // times that its socket has become writable again
  int unsentWhenStalled = 0;
  uint32_t readSize = UINT32_MAX;  // as much of its input as is its due in a turn
  bool backlog : 1 = false;        // the input holds more than was its due; `halfDescriptor` belongs to its end
  bool recordChanged : 1 = false;  // the standing record is out of date
  bool otherOrder : 1 = false;     // its machine has the other byte order: it converts all headers
  bool leaving : 1 = false;        // another daemon has asked it to exit for good
  bool reportMissed : 1 = false;
  bool ended : 1 = false;     // no longer on the bus; released at the end of the turn
  bool deaf : 1 = false;      // nothing can be written to it; what it has written before is still read
  bool reset : 1 = false;     // its end was closed before it had read everything
  bool readable : 1 = false;  // may pause unread bytes
  bool hungUp : 1 = false;    // the peer has closed its end: read to the end
  bool paused : 1 = false;    // not read for a while, see PausedSenders
  bool flushing : 1 = false;  // its queue is sent when the socket becomes writable
  bool stalled : 1 = false;   // reads nothing: no sender is paused for it
  bool queued : 1 = false;    // in the list of clients to read
  bool posted : 1 = false;    // in the list of those to which something was posted

  // In these lists, and in the table of names.
  Client *nextReady = nullptr;
  Client *nextPosted = nullptr;
  Client *nextName = nullptr;  // the oldest client of another name
  Client *nextNamesake = nullptr;

 private:
  size_t HeldBytes() const;

  std::unique_ptr<const TunnelledBoard> board_;  // null unless the tunnel has said it
};

// The name of a client's socket in the service manager's descriptor store: this and its id.
inline constexpr std::string_view kStoredClient = "client-";
std::string StoredName(uint64_t id);

// To whom a connection is charged.
daemon::Holder HolderOf(int socket, const Peer &peer);

}  // namespace zor::msgsvr

#endif
