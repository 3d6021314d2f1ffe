#include "msgsvr/delivery.h"

#include <array>
#include <cerrno>
#include <cstring>

namespace zor::msgsvr {
namespace {

constexpr std::array<std::byte, 2> kDescriptorFrame{};

}  // namespace

void Delivery::Forward(Client &from, Client &to, const Frame &frame) {
  const bool continues = runTo_ == &to && run_.data() + run_.size() == frame.bytes.data();
  if (!continues) {
    FlushRun();
    runFrom_ = &from;
    runTo_ = &to;
    run_ = frame.bytes.first(0);
  }
  run_ = {run_.data(), run_.size() + frame.bytes.size()};
  from.lastTarget = to.id;
  bus_.CountDelivery(to, frame.bytes.size());
  const bool isReply = to.pending.TakeReply(from.name, frame.type(), frame.head.sequence);
  if (!isReply && frame.head.sequence != 0) {
    from.pending.Add({to.name, frame.type(), frame.head.sequence, bus_.nowMs, from.ordinal()});
  }
}

void Delivery::FlushRun() {
  if (run_.empty()) return;
  const std::span<const std::byte> run = std::exchange(run_, {});
  const size_t taken = Write(*runTo_, run);
  if (taken == run.size() && bus_.monitors.empty()) return;
  for (size_t offset = 0; offset < run.size();) {
    const auto frame = run.subspan(offset, FrameSize(run.subspan(offset)));
    if (offset < taken) {
      Copy(frame, runTo_->name, ZOR_CONTROL_DELIVERED);
    } else {
      --bus_.counters.out;
      DropUndelivered(*runFrom_, frame, runTo_->name);
    }
    offset += frame.size();
  }
}

bool Delivery::Send(Client &to, std::span<const std::byte> frame) {
  FlushRun();
  const bool sent = Write(to, frame) == frame.size();
  if (sent) {
    bus_.CountDelivery(to, frame.size());
  } else {
    ++bus_.counters.dropped;
  }
  Copy(frame, to.name, sent ? ZOR_CONTROL_DELIVERED : ZOR_CONTROL_UNDELIVERED);
  return sent;
}

void Delivery::Reply(Client &to, const Frame &request, uint32_t data, std::span<const std::byte> body) {
  Send(to, BuildFrame(request.type(), request.head.sequence, to.name, data, body));
}

void Delivery::Refuse(Client &from, std::span<const std::byte> frame, const AppName &to) {
  ZOR_MSG_HEAD head;
  std::memcpy(&head, frame.data(), sizeof head);
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
  to->deliveries.Add(kDescriptorFrame.size(), bus_.nowMs);
  if (to->output.empty()) {
    const ssize_t sent = daemon::SendNow(to->socket.get(), kDescriptorFrame, descriptor.get());
    if (sent == static_cast<ssize_t>(kDescriptorFrame.size())) return;
    if (sent < 0) return errno == ETOOMANYREFS ? LogLostDescriptor(*to) : bus_.End(*to);
    if (sent > 0) descriptor.reset();
    if (to->output.Push(kDescriptorFrame, static_cast<size_t>(sent), std::move(descriptor))) return WatchForOutput(*to);
  } else if (to->output.Push(kDescriptorFrame, 0, std::move(descriptor))) {
    return;
  }
  Overflow(*to, {});
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
  if (client.ended || client.output.empty()) return;
  auto state = client.output.Flush(client.socket.get());
  for (; state == daemon::OutputQueue::State::kBroken && errno == ETOOMANYREFS;
       state = client.output.Flush(client.socket.get())) {
    client.output.DropFront();
    LogLostDescriptor(client);
  }
  if (state == daemon::OutputQueue::State::kBroken) return bus_.End(client);
  if (state != daemon::OutputQueue::State::kDrained || !std::exchange(client.flushing, false)) return;
  bus_.poll.Change(client.socket.get(), kClientEvents, &client);
}

// Returns how many bytes were sent or queued, in whole frames.
size_t Delivery::Write(Client &to, std::span<const std::byte> frames) {
  if (to.ended) return 0;
  if (!to.output.empty()) return Queue(to, frames, 0);
  const ssize_t sent = daemon::SendNow(to.socket.get(), frames);
  if (sent == static_cast<ssize_t>(frames.size())) return frames.size();
  if (sent < 0) {
    bus_.End(to);
    return 0;
  }
  const size_t taken = Queue(to, frames, static_cast<size_t>(sent));
  if (!to.ended) WatchForOutput(to);
  return taken;
}

size_t Delivery::Queue(Client &to, std::span<const std::byte> frames, size_t sent) {
  for (size_t offset = 0; offset < frames.size();) {
    const size_t size = FrameSize(frames.subspan(offset));
    const size_t begun = sent > offset ? sent - offset : 0;
    if (begun < size && !to.output.Push(frames.subspan(offset, size), begun)) {
      Overflow(to, frames.subspan(offset));
      return offset;
    }
    offset += size;
  }
  // Copies may fill a monitor's queue to its half, and must not slow down any sender.
  if (to.output.bytes() > to.output.maxBytes() / 2 && !bus_.monitors.Has(to)) congested_ = &to;
  return frames.size();
}

// The queue is no longer empty: send it when the socket becomes writable.
void Delivery::WatchForOutput(Client &to) {
  if (std::exchange(to.flushing, true)) return;
  bus_.poll.Change(to.socket.get(), kClientEvents | EPOLLOUT, &to);
}

// The kernel limits how many descriptors one user has in flight. Other processes may have used them up, so the receiver
// is not cut off.
void Delivery::LogLostDescriptor(const Client &to) {
  bus_.log.Print("%s: descriptor to it dropped: too many in flight", to.Label().c_str());
}

void Delivery::Overflow(Client &to, std::span<const std::byte> rest) {
  size_t lost = Bus::MessagesFor(to);
  for (; !rest.empty(); rest = rest.subspan(FrameSize(rest))) ++lost;
  bus_.losses.Add(to.name, lost);
  bus_.CutOff(to, "its output queue is full, " + std::to_string(lost) + " messages lost");
}

}  // namespace zor::msgsvr
