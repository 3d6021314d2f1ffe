#include "msgsvr/delivery.h"

#include <array>
#include <cerrno>
#include <cstring>

#include "programs/journal/turn.h"

namespace zor::msgsvr {
namespace {

constexpr std::array<std::byte, 2> kDescriptorFrame{};

ZOR_MSG_HEAD HeadOf(std::span<const std::byte> frame) {
  ZOR_MSG_HEAD head;
  std::memcpy(&head, frame.data(), sizeof head);
  return head;
}

size_t CountFrames(std::span<const std::byte> frames) {
  size_t count = 0;
  for (; !frames.empty(); frames = frames.subspan(FrameSize(frames))) ++count;
  return count;
}

}  // namespace

void Delivery::Forward(Client &from, Client &to, const Frame &frame) {
  const bool continues = runTo_ == &to && run_.data() + run_.size() == frame.bytes.data();
  if (!continues) {
    FlushRun();
    bus_.ForgetRead(to);
  }
  // What may fail comes first.
  std::string file;
  if (frame.bodyInFile()) file = BodyFiles::NameIn(frame.bytes);
  to.ReserveDelivery(frame.bodyInFile());
  if (frame.head.sequence != 0) from.pending.Reserve();
  if (!continues) {
    runFrom_ = &from;
    runTo_ = &to;
    run_ = frame.bytes.first(0);
  }
  run_ = {run_.data(), run_.size() + frame.bytes.size()};
  if (frame.bodyInFile()) to.deliveries.AddFile(std::move(file));
  NoteForwarded(from, to, frame.head);
}

void Delivery::NoteForwarded(Client &from, Client &to, const ZOR_MSG_HEAD &head) {
  const uint32_t type = head.type & ZOR_MSG_TYPE_MASK;
  from.lastTarget = to.id;
  bus_.CountDelivery(to, head, type == ZOR_MSG_SEND_FAILED_NOTICE ? 0 : from.id);
  from.flows.Count(to.id, type);
  const bool isReply = to.pending.TakeReply(from.name, type, head.sequence);
  // Whoever replies has read the request.
  if (isReply && from.deliveries.IsNewest(type, head.sequence)) bus_.ForgetAllRead(from);
  if (!isReply && head.sequence != 0) {
    from.pending.Add({to.name, type, head.sequence, bus_.nowMs, from.ordinal()});
  }
}

bool Delivery::ForwardCopy(Client &from, Client &to, const Frame &frame, std::span<const std::byte> copy) {
  FlushRun();
  bus_.ForgetRead(to);
  // What may fail comes first.
  std::string file = BodyFiles::NameIn(copy);
  to.ReserveDelivery(true);
  if (frame.head.sequence != 0) from.pending.Reserve();
  const bool posted = Post(to, copy) == copy.size();
  Slowed(to);
  if (!posted) {
    Missed(to);
    return false;
  }
  to.deliveries.AddFile(std::move(file));
  NoteForwarded(from, to, HeadOf(copy));
  Copy(copy, to.name, ZOR_CONTROL_DELIVERED);
  return true;
}

// Copies may fill a monitor's queue to its half, and must not slow down any sender.
void Delivery::Slowed(Client &to) {
  if (to.output.bytes() > to.output.maxBytes() / 2 && !bus_.monitors.Has(to)) congested_ = &to;
}

void Delivery::FlushRun() {
  if (run_.empty()) return;
  const std::span<const std::byte> run = std::exchange(run_, {});
  Client &from = *runFrom_;
  Client &to = *std::exchange(runTo_, nullptr);
  const size_t taken = Write(to, run, daemon::Receiver::kOnly);
  Slowed(to);
  if (taken < run.size() || IsCopied()) {
    TakeBack(to, run.subspan(taken));
    for (size_t offset = 0; offset < run.size();) {
      const auto frame = run.subspan(offset, FrameSize(run.subspan(offset)));
      if (offset < taken) {
        Copy(frame, to.name, ZOR_CONTROL_DELIVERED);
      } else {
        DropUndelivered(from, frame, to.name);
      }
      offset += frame.size();
    }
  }
  Commit(run, from.lastTarget);
}

void Delivery::EndFrame(const Client &from, std::span<const std::byte> frame) {
  if (run_.empty()) Commit(frame, from.lastTarget);
}

// All effects of the frames up to the end of these are complete.
void Delivery::Commit(std::span<const std::byte> frames, uint64_t lastTarget) {
  bus_.WriteRecords();
  daemon::CommitRouted(bus_.journal, OffsetOf(frames) + frames.size(), lastTarget);
}

size_t Delivery::OffsetOf(std::span<const std::byte> frames) const {
  return static_cast<size_t>(frames.data() - bus_.journal.buffer().data());
}

// Frames that were counted as delivered have been refused.
void Delivery::TakeBack(Client &to, std::span<const std::byte> frames) {
  size_t count = CountFrames(frames);
  to.deliveries.DropNewest(count);
  to.counters.out -= count;
  bus_.counters.out -= count;
  to.counters.outBytes -= frames.size();
  bus_.counters.outBytes -= frames.size();
  for (; count > 0; --count) Missed(to);
}

bool Delivery::Send(Client &to, std::span<const std::byte> frame) {
  const bool sent = TrySend(to, frame, frame) || Refused(to, frame);
  if (bus_.journal.turn().reader == daemon::journal::kNone) FlushPosted();
  return sent;
}

void Delivery::SendInOtherOrder(Client &to, std::span<const std::byte> frame) {
  if (!TrySend(to, frame, InOtherOrder(frame))) Refused(to, frame);
}

bool Delivery::TrySend(Client &to, std::span<const std::byte> frame, std::span<const std::byte> onWire) {
  FlushRun();
  const ZOR_MSG_HEAD head = HeadOf(frame);
  const bool bodyInFile = (head.type & ZOR_MSG_BODY_IN_FILE) != 0;
  bus_.ForgetRead(to);
  std::string file;
  if (bodyInFile) file = BodyFiles::NameIn(frame);
  to.ReserveDelivery(bodyInFile);
  if ((IsAtWork(frame) ? Write(to, onWire, to.receiver()) : Post(to, onWire)) < frame.size()) return false;
  if (bodyInFile) to.deliveries.AddFile(std::move(file));
  bus_.CountDelivery(to, head, 0);
  Copy(frame, to.name, ZOR_CONTROL_DELIVERED);
  return true;
}

// Counts a single frame that the client could not take. False, for the caller to return.
bool Delivery::Refused(Client &to, std::span<const std::byte> frame) {
  ++bus_.counters.dropped;
  Missed(to);
  Copy(frame, to.name, ZOR_CONTROL_UNDELIVERED);
  return false;
}

// The notice and the event go together or not at all: an event that overtakes the notice would hide the gap.
bool Delivery::SendEvent(Client &to, std::span<const std::byte> event) {
  bool sent = false;
  bus_.Try([&] { sent = TellGap(to, event) && TrySend(to, event, event); });
  if (!sent && to.gap.wanted()) {
    to.gap.Add(HeadOf(event).type & ZOR_MSG_TYPE_MASK);
    bus_.Changed(to);
  }
  // Before the next subscriber is served, so that after a crash none is served twice.
  bus_.WriteRecords();
  daemon::SetServed(bus_.journal, to.place());
  return sent || Refused(to, event);
}

// False if the event cannot follow.
bool Delivery::TellGap(Client &to, std::span<const std::byte> event) {
  if (!to.gap.wanted() || to.gap.empty()) return true;
  const auto notice = BuildFrame(ZOR_MSG_CONTROL_GAP, 0, to.name, ZOR_CONTROL_OK, to.gap.Body());
  if (!to.output.Fits({notice.size(), event.size()}) || !TrySend(to, notice, notice)) return false;
  to.gap.Clear();
  bus_.Changed(to);
  return true;
}

// A message to the client was refused.
void Delivery::Missed(Client &to) {
  if (to.ended) return;
  ++to.counters.dropped;
  if (!to.refusals.Add(bus_.nowMs) || to.deaf) return;
  const bool hasRoom = to.output.Fits({kMaxFrameSize});
  bus_.log.PrintOf(to.charge.holder(), "%s does not read: its %s, messages to it are refused", to.Label().c_str(),
                   hasRoom ? "share of the memory is used up" : "queue is full");
}

void Delivery::TellUndelivered() {
  for (auto lost = bus_.TakeUndelivered(); !lost.empty(); lost = bus_.TakeUndelivered()) {
    Client *from = nullptr;
    for (const Undelivered &message : lost) {
      if (from == nullptr || from->id != message.from || from->ended) from = bus_.Find(message.from);
      if (from == nullptr) continue;
      from->pending.Undo(message.type, message.sequence);
      AddNotice(*from, message.type, message.sequence);
    }
    FlushPosted();
  }
}

void Delivery::AddNotice(Client &to, uint32_t type, uint32_t sequence) {
  FlushRun();
  bus_.ForgetRead(to);
  ZOR_MSG_HEAD head{};
  head.type = ZOR_MSG_SEND_FAILED_NOTICE;
  head.sequence = sequence;
  head.data = type;
  std::memcpy(head.destination, to.name.field().data(), to.name.field().size());
  const auto notice = std::as_bytes(std::span(&head, 1));
  if (Post(to, notice) < notice.size()) {
    Refused(to, notice);
    return;
  }
  bus_.Try([&] {  // else it is counted as read
    to.ReserveDelivery(false);
    bus_.CountDelivery(to, head, 0);
  });
  Copy(notice, to.name, ZOR_CONTROL_DELIVERED);
}

void Delivery::Reply(Client &to, const Frame &request, uint32_t data, std::span<const std::byte> body) {
  Send(to, BuildFrame(request.type(), request.head.sequence, to.name, data, body));
}

void Delivery::Refuse(Client &from, std::span<const std::byte> frame, const AppName &to) {
  const ZOR_MSG_HEAD head = HeadOf(frame);
  const uint32_t type = head.type & ZOR_MSG_TYPE_MASK;
  ++bus_.counters.dropped;
  from.pending.Undo(type, head.sequence);
  Copy(frame, to, ZOR_CONTROL_UNDELIVERED);
  // An undeliverable notice must not cause another one.
  if (type == ZOR_MSG_SEND_FAILED_NOTICE) return;
  AddNotice(from, type, head.sequence);
}

// A descriptor that follows has no receiver: without its message it would be taken for the start of another.
void Delivery::DropUndelivered(Client &from, std::span<const std::byte> frame, const AppName &to) {
  from.lastTarget = 0;
  bus_.files.Remove(frame);
  Refuse(from, frame, to);
}

void Delivery::PassDescriptor(Client &from, UniqueFd descriptor) {
  FlushRun();
  Client *to = bus_.Find(from.lastTarget);
  if (to == nullptr || !to->peer.local) {
    bus_.log.PrintOf(from.charge.holder(), "%s: descriptor dropped: its latest message had no local receiver",
                     from.Label().c_str());
    return;
  }
  if (const char *reason = descriptorShares_.Refusal(from, *to)) {
    Missed(*to);
    return LogLostDescriptor(*to, reason);
  }
  bool pushed = false;
  bus_.Try([&] { pushed = to->output.Push(kDescriptorFrame, 0, std::move(descriptor)); });
  if (!pushed) {
    if (bus_.settings.cutOffSlowReaders) return bus_.CutOffSlow(*to, 0);
    Missed(*to);
    return LogLostDescriptor(*to, "too many unread");
  }
  AddPosted(*to);
  bus_.Try([&] { to->deliveries.Add({kDescriptorFrame.size(), bus_.nowMs, 0, 0, from.id}); });
}

void Delivery::Copy(std::span<const std::byte> frame, const AppName &receiver, uint32_t outcome) {
  if (!IsCopied()) return;
  FlushRun();  // earlier frames are copied first
  bus_.recorder.Add(frame, receiver.field(), outcome, bus_.nowUs);
  if (!bus_.monitors.empty()) bus_.monitors.Copy(frame, receiver, outcome, bus_.nowMs);
}

void Delivery::FlushCopies() {
  if (bus_.monitors.empty()) return;
  bus_.monitors.ForEach([&](Client &client) {
    if (client.flushing || client.output.empty()) return;
    FlushQueue(client);
    if (!client.ended && !client.output.empty()) WatchForOutput(client);
  });
}

void Delivery::FlushQueue(Client &client) {
  if (client.ended || client.deaf || client.output.empty()) return;
  auto state = client.output.Flush(client.socket.get());
  for (; state == daemon::OutputQueue::State::kBroken && errno == ETOOMANYREFS;
       state = client.output.Flush(client.socket.get())) {
    client.output.DropFront();
    LogLostDescriptor(client, "too many in flight");
  }
  if (state == daemon::OutputQueue::State::kBroken) return bus_.Deafen(client, errno);
  client.Settle();
  ++client.flushes;
  client.stalled = false;
  if (state != daemon::OutputQueue::State::kDrained) return;
  if (const uint64_t refused = client.refusals.EndBurst(); refused > 0) {
    bus_.log.PrintOf(client.charge.holder(), "%s reads again: %llu messages to it were refused", client.Label().c_str(),
                     static_cast<unsigned long long>(refused));
  }
  if (client.flushing) bus_.poll.Change(client.socket.get(), kClientEvents, &client);
  client.flushing = false;
}

// Writes bytes of the receive buffer, which follow those whose effects are complete. Returns how many were sent or
// queued, in whole frames.
size_t Delivery::Write(Client &to, std::span<const std::byte> frames, daemon::Receiver receiver) {
  if (to.ended || to.deaf) return 0;
  if (!to.output.empty()) return Queue(to, frames, 0);
  const ssize_t sent = daemon::WriteInTurn(to.slot, to.socket.get(), OffsetOf(frames) + frames.size(), receiver);
  if (sent == static_cast<ssize_t>(frames.size())) return frames.size();
  if (sent < 0) {
    bus_.Deafen(to, errno);
    return 0;
  }
  const size_t taken = Queue(to, frames, static_cast<size_t>(sent));
  if (!to.ended) WatchForOutput(to);
  return taken;
}

// Queues a frame that the server has made. It is sent when everything that belongs to it has been committed.
size_t Delivery::Post(Client &to, std::span<const std::byte> frame) {
  if (to.ended || to.deaf) return 0;
  const size_t taken = Queue(to, frame, 0);
  if (taken > 0) AddPosted(to);
  return taken;
}

void Delivery::AddPosted(Client &client) {
  if (client.posted) return;
  client.posted = true;
  client.nextPosted = std::exchange(posted_, &client);
}

void Delivery::FlushPosted() {
  for (Client *client = std::exchange(posted_, nullptr); client != nullptr;) {
    Client *const next = std::exchange(client->nextPosted, nullptr);
    client->posted = false;
    if (!client->flushing) FlushQueue(*client);
    if (!client->ended && !client->deaf && !client->output.empty()) WatchForOutput(*client);
    client = next;
  }
}

// Whether it is the frame whose effects are to be completed next.
bool Delivery::IsAtWork(std::span<const std::byte> frame) const {
  const daemon::journal::Turn &turn = bus_.journal.turn();
  return turn.reader != daemon::journal::kNone && frame.data() == bus_.journal.buffer().data() + turn.routed;
}

// A frame of which a part has been sent always fits, since the queue is empty then; only memory may be missing.
bool Delivery::Push(Client &to, std::span<const std::byte> frame, size_t begun) {
  // What is posted and taken by the socket at the end of the turn is no burden: a client that reads is served whatever
  // others hold.
  const bool unread = !to.output.empty() && (to.flushing || !to.posted);
  if (begun == 0 && unread && !to.charge.MayTake(daemon::OutputQueue::CostOf(frame.size()))) return false;
  bool pushed = false;
  bus_.Try([&] { pushed = to.output.Push(frame, begun); });
  if (!pushed && begun > 0) bus_.CutOff(to, "no memory for the rest of a message to it");
  if (pushed) to.Settle();
  return pushed;
}

size_t Delivery::Queue(Client &to, std::span<const std::byte> frames, size_t sent) {
  for (size_t offset = 0; offset < frames.size();) {
    const size_t size = FrameSize(frames.subspan(offset));
    const size_t begun = sent > offset ? sent - offset : 0;
    if (begun < size && !Push(to, frames.subspan(offset, size), begun)) {
      if (bus_.settings.cutOffSlowReaders) bus_.CutOffSlow(to, CountFrames(frames.subspan(offset)));
      return offset;
    }
    offset += size;
  }
  return frames.size();
}

// The queue is no longer empty: send it when the socket becomes writable.
void Delivery::WatchForOutput(Client &to) {
  if (to.flushing) return;
  to.flushing = true;
  bus_.poll.Change(to.socket.get(), kClientEvents | EPOLLOUT, &to);
}

// The kernel limits how many descriptors one user has in flight, and the server how many a client leaves unread.
void Delivery::LogLostDescriptor(const Client &to, const char *reason) {
  bus_.log.PrintOf(to.charge.holder(), "%s: descriptor to it dropped: %s", to.Label().c_str(), reason);
}

}  // namespace zor::msgsvr
