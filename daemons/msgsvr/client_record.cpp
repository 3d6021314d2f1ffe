#include "msgsvr/client_record.h"

#include <algorithm>
#include <cstring>

#include "msgsvr/frames.h"
#include "msgsvr/input.h"
#include "msgsvr/recorded_time.h"
#include "programs/board_name.h"
#include "programs/limits.h"

namespace zor::msgsvr {
namespace {

constexpr size_t kDescriptorFrameSize = 2;

std::vector<QueuedRecord> QueueOf(const Client &client) {
  std::vector<QueuedRecord> queue;
  client.output.ForEach([&](auto message, size_t sent, int descriptor) {
    queue.push_back({std::vector(message.begin(), message.end()), sent, descriptor});
  });
  return queue;
}

std::optional<BarrierRecord> BarrierOf(const Bus &bus, const Client &client) {
  for (const Barriers::Waiter &waiter : bus.barriers.waiters()) {
    if (waiter.client != &client) continue;
    return BarrierRecord{waiter.order, waiter.name.field(), waiter.sequence, waiter.sinceMs, waiter.ordinal};
  }
  return std::nullopt;
}

bool IsFileName(const std::string &name) {
  return !name.empty() && name != "." && name != ".." && name.find_first_of(std::string_view("/\0", 2)) == name.npos;
}

// Only the first message may be partly sent, and its descriptor goes with the first byte.
bool IsQueueable(const QueuedRecord &message, bool first) {
  const size_t size = message.bytes.size();
  if (message.sent >= size || (message.sent > 0 && (!first || message.descriptor >= 0))) return false;
  if (size == kDescriptorFrameSize) return true;
  return size >= ZOR_MSG_HEAD_SIZE && size <= kMaxFrameSize && FrameSize(message.bytes.span()) == size &&
         message.descriptor < 0;
}

bool IsQueue(const std::vector<QueuedRecord> &queue) {
  for (const QueuedRecord &message : queue) {
    if (!IsQueueable(message, &message == &queue.front())) return false;
  }
  return true;
}

// A board that is not yet known is not registered.
bool IsBoard(const StandingRecord &record) {
  if (!record.throughTunnel) return record.board.empty();
  if (record.local) return false;
  return daemon::IsBoardName(record.board) || (record.board.empty() && record.name == AppName::Field{});
}

bool AreTimes(const ClientRecord &record) {
  bool valid = IsTime(record.standing.lastReport);
  if (record.pause) valid = valid && IsTime(record.pause->until) && IsTime(record.pause->progressAt);
  if (record.registerBy) valid = valid && IsTime(*record.registerBy);
  return valid;
}

// The user is in the record twice, and so is a board behind the tunnel.
bool IsOfPeer(const access::Identity &identity, const StandingRecord &standing) {
  if (standing.throughTunnel) return identity == IdentityOf(TunnelledBoard{standing.board, standing.boardAddress});
  return !identity.certificate && (!identity.user || (standing.local && *identity.user == standing.uid));
}

}  // namespace

StandingRecord StandingRecordOf(const Bus &bus, const Client &client) {
  StandingRecord record;
  record.id = client.id;
  record.name = client.name.field();
  record.registration = client.registration;
  record.local = client.peer.local;
  record.uid = client.peer.uid;
  record.pid = client.peer.pid;
  record.since = client.since;
  record.events = BitsOf(client.events);
  record.leaving = client.leaving;
  record.otherOrder = client.otherOrder;
  record.reportSeconds = client.reportPeriod.count();
  record.lastReport = Nanoseconds(client.lastReport);
  record.reportMissed = client.reportMissed;
  record.gap = client.gap.state();
  for (const auto &[order, list] : bus.patterns.RegisteredBy(client)) {
    record.patterns.push_back({order, std::string(list)});
  }
  record.barrier = BarrierOf(bus, client);
  record.monitor = bus.monitors.StateOf(client);
  record.throughTunnel = client.peer.throughTunnel;
  TunnelledBoard board = client.board();
  record.board = std::move(board.name);
  record.boardAddress = board.address;
  record.identity = bus.guard.IdentityOf(client.admission.subject());
  return record;
}

ClientRecord ClientRecordOf(const Bus &bus, const Client &client) {
  ClientRecord record;
  record.standing = StandingRecordOf(bus, client);
  record.socket = client.socket.get();
  record.halfDescriptor = client.halfDescriptor.get();
  record.partial.resize(client.slot.inputBytes());
  client.slot.CopyInput(record.partial);
  record.backlog = client.backlog;
  record.queueBytes = client.output.maxBytes();
  record.queue = QueueOf(client);
  record.lastTarget = client.lastTarget;
  record.counters = client.counters;
  record.pending = client.pending.requests();
  record.deliveries = client.deliveries.state();
  record.flows = client.flows.state();
  record.refusals = client.refusals.state();
  record.deaf = client.deaf;
  record.reset = client.reset;
  record.hungUp = client.hungUp;
  record.stalled = client.stalled;
  record.flushes = client.flushes;
  record.unreadBefore = client.unreadBefore;
  record.unsentWhenStalled = client.unsentWhenStalled;
  return record;
}

const char *ProblemOf(const ClientRecord &record) {
  const StandingRecord &standing = record.standing;
  const auto name = AppName::FromField(standing.name);
  if (standing.id == 0) return "it has no number";
  if (!name || (!name->empty() && !name->IsGrantable())) return "its name is malformed";
  if (!IsBoard(standing)) return "its board is malformed";
  if (!AreEventBits(standing.events)) return "it has subscribed to an unknown event";
  if (standing.identity && !IsOfPeer(*standing.identity, standing)) return "its identity is another one";
  if (standing.gap.types.size() > limits::msgsvr::kGapTypes) return "it has missed too many events";
  if (standing.barrier && !AppName::FromField(standing.barrier->name)) return "its barrier is malformed";
  if (!AreTimes(record)) return "its times are wrong";
  if (record.partial.size() > kInputBuffer) return "its input is too long";
  const bool half = record.halfDescriptor >= 0;
  if (half && !record.backlog && (record.partial.size() != 1 || record.partial[0] != std::byte{0}))
    return "its input is malformed";
  if (!IsQueue(record.queue)) return "its queue is malformed";
  if (!std::ranges::all_of(record.pending, [](const auto &request) { return request.to.IsTerminated(); })) {
    return "its pending requests are malformed";
  }
  if (!std::ranges::all_of(record.deliveries.files, IsFileName, &Deliveries::File::name)) {
    return "a body file has a malformed name";
  }
  return nullptr;
}

}  // namespace zor::msgsvr
