#include "msgsvr/monitor.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <new>

namespace zor::msgsvr {
namespace {

static_assert(sizeof(ZOR_CONTROL_FILTER) == 24);
static_assert(sizeof(ZOR_CONTROL_COPY) == 32);

ZOR_MSG_HEAD HeadOf(std::span<const std::byte> frame) {
  ZOR_MSG_HEAD head;
  std::memcpy(&head, frame.data(), sizeof head);
  return head;
}

uint64_t UnixMicroseconds() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

// A copy as it is sent, built once; For fills in what differs between monitors.
class CopyFrame {
 public:
  CopyFrame(std::span<const std::byte> frame, const AppName &receiver, uint32_t outcome) {
    copy_.timeUs = UnixMicroseconds();
    copy_.outcome = outcome;
    copy_.frameSize = static_cast<uint32_t>(frame.size());
    std::memcpy(copy_.receiver, receiver.field().data(), sizeof copy_.receiver);
    frame = frame.first(std::min(frame.size(), ZOR_MSG_INLINE_BODY_MAX - sizeof copy_));
    std::memcpy(bytes_.data() + kStart, frame.data(), frame.size());
    size_ = kStart + frame.size();
  }

  std::span<const std::byte> For(const AppName &monitor, uint32_t missed) {
    ZOR_MSG_HEAD head{};
    head.type = ZOR_MSG_CONTROL_COPY;
    std::memcpy(head.destination, monitor.field().data(), sizeof head.destination);
    head.bodyLength = static_cast<uint32_t>(size_ - sizeof head);
    copy_.missed = missed;
    std::memcpy(bytes_.data(), &head, sizeof head);
    std::memcpy(bytes_.data() + sizeof head, &copy_, sizeof copy_);
    return std::span(bytes_).first(size_);
  }

 private:
  static constexpr size_t kStart = sizeof(ZOR_MSG_HEAD) + sizeof(ZOR_CONTROL_COPY);  // of the frame in it
  ZOR_CONTROL_COPY copy_{};
  size_t size_;
  std::array<std::byte, kMaxFrameSize> bytes_;
};

}  // namespace

bool Monitors::Has(const Client &client) const {
  return std::any_of(monitors_.begin(), monitors_.end(), [&](const Monitor &m) { return m.client == &client; });
}

bool Monitors::Set(Client &client, const ZOR_CONTROL_FILTER &wanted) {
  const std::optional<Filter> filter = Parse(wanted);
  if (!filter) return false;
  const auto monitor = Of(client);
  if (monitor == monitors_.end()) {
    monitors_.push_back({&client, *filter, 0});
  } else {
    monitor->filter = *filter;
  }
  return true;
}

std::optional<Monitors::State> Monitors::StateOf(const Client &client) const {
  for (const Monitor &monitor : monitors_) {
    if (monitor.client != &client) continue;
    State state{};
    std::memcpy(state.filter.name, monitor.filter.name.field().data(), sizeof state.filter.name);
    state.filter.directions = monitor.filter.directions;
    state.filter.firstType = monitor.filter.firstType;
    state.filter.lastType = monitor.filter.lastType;
    state.missed = monitor.missed;
    return state;
  }
  return std::nullopt;
}

bool Monitors::Restore(Client &client, const State &state) {
  if (!Set(client, state.filter)) return false;
  Of(client)->missed = state.missed;
  return true;
}

uint32_t Monitors::Remove(const Client &client) {
  const auto monitor = Of(client);
  if (monitor == monitors_.end()) return 0;
  const uint32_t missed = monitor->missed;
  monitors_.erase(monitor);
  return missed;
}

std::vector<Monitors::Monitor>::iterator Monitors::Of(const Client &client) {
  return std::find_if(monitors_.begin(), monitors_.end(), [&](const Monitor &m) { return m.client == &client; });
}

void Monitors::Copy(std::span<const std::byte> frame, const AppName &receiver, uint32_t outcome, uint32_t nowMs) {
  const ZOR_MSG_HEAD head = HeadOf(frame);
  const AppName source = AppName::FromField(head.source).value_or(AppName());
  std::optional<CopyFrame> copy;
  for (Monitor &monitor : monitors_) {
    if (!monitor.filter.Matches(source, receiver, head.type & ZOR_MSG_TYPE_MASK)) continue;
    Client &client = *monitor.client;
    bool queued = false;
    if (client.output.bytes() < client.output.maxBytes() / 2) {
      if (!copy) copy.emplace(frame, receiver, outcome);
      queued = Queue(client, copy->For(client.name, monitor.missed), nowMs);
    }
    if (queued) {
      monitor.missed = 0;
    } else if (monitor.missed < UINT32_MAX) {
      ++monitor.missed;
    }
  }
}

bool Monitors::Queue(Client &client, std::span<const std::byte> copy, uint32_t nowMs) {
  if (!client.charge.MayTake(daemon::OutputQueue::CostOf(copy.size()))) return false;
  try {
    client.ReserveDelivery(false);
    if (!client.output.Push(copy)) return false;
  } catch (const std::bad_alloc &) {
    return false;
  }
  client.deliveries.Add({static_cast<uint32_t>(copy.size()), nowMs, ZOR_MSG_CONTROL_COPY, 0, 0});
  client.Settle();
  return true;
}

bool Monitors::Filter::Matches(const AppName &source, const AppName &receiver, uint32_t type) const {
  if (type < firstType || type > lastType) return false;
  return name.empty() || ((directions & ZOR_CONTROL_SENT) != 0 && source == name) ||
         ((directions & ZOR_CONTROL_RECEIVED) != 0 && receiver == name);
}

std::optional<Monitors::Filter> Monitors::Parse(const ZOR_CONTROL_FILTER &filter) {
  constexpr uint32_t kBoth = ZOR_CONTROL_SENT | ZOR_CONTROL_RECEIVED;
  const auto name = AppName::FromField(filter.name);
  uint32_t last = filter.lastType == 0 ? filter.firstType : filter.lastType;
  if (last == 0) last = ZOR_MSG_TYPE_MASK;
  if (!name || (filter.directions & ~kBoth) != 0 || filter.firstType > last || last > ZOR_MSG_TYPE_MASK) {
    return std::nullopt;
  }
  return Filter{*name, filter.directions == 0 ? kBoth : filter.directions, filter.firstType, last};
}

bool IsCopy(std::span<const std::byte> frame) {
  if (frame.size() < ZOR_MSG_HEAD_SIZE) return false;
  const ZOR_MSG_HEAD head = HeadOf(frame);
  return head.type == ZOR_MSG_CONTROL_COPY && head.source[0] == '\0';
}

}  // namespace zor::msgsvr
