#include "msgsvr/delivery.h"

#include <array>
#include <cerrno>
#include <cstring>

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
    runFrom_ = &from;
    runTo_ = &to;
    run_ = frame.bytes.first(0);
  }
  run_ = {run_.data(), run_.size() + frame.bytes.size()};
  from.lastTarget = to.id;
  if (frame.bodyInFile()) to.deliveries.AddFile(BodyFiles::NameIn(frame.bytes));
  bus_.CountDelivery(to, frame.head, frame.type() == ZOR_MSG_SEND_FAILED_NOTICE ? 0 : from.id);
  from.flows.Count(to.id, frame.type());
  const bool isReply = to.pending.TakeReply(from.name, frame.type(), frame.head.sequence);
  // Whoever replies has read the request.
  if (isReply && from.deliveries.IsNewest(frame.type(), frame.head.sequence)) bus_.ForgetAllRead(from);
  if (!isReply && frame.head.sequence != 0) {
    from.pending.Add({to.name, frame.type(), frame.head.sequence, bus_.nowMs, from.ordinal()});
  }
}

void Delivery::FlushRun() {
  if (run_.empty()) return;
  const std::span<const std::byte> run = std::exchange(run_, {});
  Client &to = *std::exchange(runTo_, nullptr);
  const size_t taken = Write(to, run);
  // Copies may fill a monitor's queue to its half, and must not slow down any sender.
  if (to.output.bytes() > to.output.maxBytes() / 2 && !bus_.monitors.Has(to)) congested_ = &to;
  if (taken == run.size() && bus_.monitors.empty()) return;
  TakeBack(to, run.subspan(taken));
  for (size_t offset = 0; offset < run.size();) {
    const auto frame = run.subspan(offset, FrameSize(run.subspan(offset)));
    if (offset < taken) {
      Copy(frame, to.name, ZOR_CONTROL_DELIVERED);
    } else {
      DropUndelivered(*runFrom_, frame, to.name);
    }
    offset += frame.size();
  }
}

// Frames that were counted as delivered have been refused.
void Delivery::TakeBack(Client &to, std::span<const std::byte> frames) {
  size_t count = CountFrames(frames);
  to.deliveries.DropNewest(count);
  to.counters.out -= count;
  bus_.counters.out -= count;
  for (; count > 0; --count) Missed(to);
}

bool Delivery::Send(Client &to, std::span<const std::byte> frame) {
  FlushRun();
  const ZOR_MSG_HEAD head = HeadOf(frame);
  bus_.ForgetRead(to);
  const bool sent = Write(to, frame) == frame.size();
  if (!sent) return Refused(to, frame);
  if ((head.type & ZOR_MSG_BODY_IN_FILE) != 0) to.deliveries.AddFile(BodyFiles::NameIn(frame));
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
  bool mayGo = true;
  if (to.gap.wanted() && !to.gap.empty()) {
    const auto notice = BuildFrame(ZOR_MSG_CONTROL_GAP, 0, to.name, ZOR_CONTROL_OK, to.gap.Body());
    mayGo = to.output.Fits({notice.size(), event.size()}) && Send(to, notice);
    if (mayGo) to.gap.Clear();
  }
  const bool sent = mayGo ? Send(to, event) : Refused(to, event);
  if (!sent && to.gap.wanted()) to.gap.Add(HeadOf(event).type & ZOR_MSG_TYPE_MASK);
  return sent;
}

// A message to the client was refused.
void Delivery::Missed(Client &to) {
  if (to.ended || to.deaf) return;
  ++to.counters.dropped;
  if (!to.refusals.Add(bus_.nowMs)) return;
  bus_.log.Print("%s does not read: its queue is full, messages to it are refused", to.Label().c_str());
}

void Delivery::TellUndelivered() {
  for (auto lost = bus_.TakeUndelivered(); !lost.empty(); lost = bus_.TakeUndelivered()) {
    for (const Undelivered &message : lost) {
      Client *from = bus_.Find(message.from);
      if (from == nullptr || from->deaf) continue;
      from->pending.Undo(message.type, message.sequence);
      Send(*from, BuildFrame(ZOR_MSG_SEND_FAILED_NOTICE, message.sequence, from->name, message.type));
    }
  }
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
  Send(from, BuildFrame(ZOR_MSG_SEND_FAILED_NOTICE, head.sequence, from.name, type));
}

void Delivery::DropUndelivered(Client &from, std::span<const std::byte> frame, const AppName &to) {
  bus_.files.Remove(frame);
  Refuse(from, frame, to);
}

void Delivery::PassDescriptor(Client &from, UniqueFd descriptor) {
  FlushRun();
  Client *to = bus_.Find(from.lastTarget);
  if (to == nullptr || !to->peer.local) {
    bus_.log.Print("%s: descriptor dropped: its latest message had no local receiver", from.Label().c_str());
    return;
  }
  if (!to->output.Push(kDescriptorFrame, 0, std::move(descriptor))) {
    if (bus_.settings.cutOffSlowReaders) return bus_.CutOffSlow(*to, 0);
    Missed(*to);
    return LogLostDescriptor(*to, "too many unread");
  }
  if (!to->flushing) FlushQueue(*to);
  if (to->deaf) return;
  if (!to->output.empty()) WatchForOutput(*to);
  to->deliveries.Add({kDescriptorFrame.size(), bus_.nowMs, 0, 0, 0});
}

void Delivery::Copy(std::span<const std::byte> frame, const AppName &receiver, uint32_t outcome) {
  if (bus_.monitors.empty()) return;
  FlushRun();  // earlier frames are copied first
  bus_.monitors.Copy(frame, receiver, outcome, bus_.nowMs);
}

void Delivery::FlushCopies() {
  if (bus_.monitors.empty()) return;
  // Collected first, because ending a client changes the list.
  std::vector<Client *> idle;
  bus_.monitors.ForEach([&](Client &client) {
    if (!client.flushing && !client.output.empty()) idle.push_back(&client);
  });
  for (Client *client : idle) {
    FlushQueue(*client);
    if (!client->ended && !client->output.empty()) WatchForOutput(*client);
  }
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
  ++client.flushes;
  client.stalled = false;
  if (state != daemon::OutputQueue::State::kDrained) return;
  if (const uint64_t refused = client.refusals.EndBurst(); refused > 0) {
    bus_.log.Print("%s reads again: %llu messages to it were refused", client.Label().c_str(),
                   static_cast<unsigned long long>(refused));
  }
  if (std::exchange(client.flushing, false)) bus_.poll.Change(client.socket.get(), kClientEvents, &client);
}

// Returns how many bytes were sent or queued, in whole frames.
size_t Delivery::Write(Client &to, std::span<const std::byte> frames) {
  if (to.ended || to.deaf) return 0;
  if (!to.output.empty()) return Queue(to, frames, 0);
  const ssize_t sent = daemon::SendNow(to.socket.get(), frames);
  if (sent == static_cast<ssize_t>(frames.size())) return frames.size();
  if (sent < 0) {
    bus_.Deafen(to, errno);
    return 0;
  }
  const size_t taken = Queue(to, frames, static_cast<size_t>(sent));
  if (!to.ended) WatchForOutput(to);
  return taken;
}

// A frame of which a part has been sent always fits, since the queue is empty then.
size_t Delivery::Queue(Client &to, std::span<const std::byte> frames, size_t sent) {
  for (size_t offset = 0; offset < frames.size();) {
    const size_t size = FrameSize(frames.subspan(offset));
    const size_t begun = sent > offset ? sent - offset : 0;
    if (begun < size && !to.output.Push(frames.subspan(offset, size), begun)) {
      if (bus_.settings.cutOffSlowReaders) bus_.CutOffSlow(to, CountFrames(frames.subspan(offset)));
      return offset;
    }
    offset += size;
  }
  return frames.size();
}

// The queue is no longer empty: send it when the socket becomes writable.
void Delivery::WatchForOutput(Client &to) {
  if (std::exchange(to.flushing, true)) return;
  bus_.poll.Change(to.socket.get(), kClientEvents | EPOLLOUT, &to);
}

// The kernel limits how many descriptors one user has in flight, and the server how many a client leaves unread.
void Delivery::LogLostDescriptor(const Client &to, const char *reason) {
  bus_.log.Print("%s: descriptor to it dropped: %s", to.Label().c_str(), reason);
}

}  // namespace zor::msgsvr
