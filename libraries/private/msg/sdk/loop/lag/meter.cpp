#include "sdk/loop/lag/meter.h"

#include <zor/status.h>
#include <zor/trace.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <limits>
#include <span>

#include "trace/trace_line.h"

namespace zor::lag {
namespace {

constexpr std::uint64_t kNsPerUs = 1000;

static_assert(kKinds == ZOR_UV_LAG_KINDS && kCallbacks == ZOR_UV_LAG_CALLBACKS);
static_assert(kNameSize == ZOR_UV_LAG_NAME_SIZE && kSourceSize == ZOR_MSG_NAME_SIZE);

std::uint64_t NowNs() {
  timespec now = {};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000000000 + static_cast<std::uint64_t>(now.tv_nsec);
}

std::uint32_t Microseconds(std::uint64_t ns) {
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(ns / kNsPerUs, std::numeric_limits<std::uint32_t>::max()));
}

// The page is changed as long as this lives.
class Writing {
 public:
  explicit Writing(Page &page) noexcept : sequence_(page.sequence) {
    sequence_.store(sequence_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
  }
  ~Writing() { sequence_.store(sequence_.load(std::memory_order_relaxed) + 1, std::memory_order_release); }
  Writing(const Writing &) = delete;
  Writing &operator=(const Writing &) = delete;

 private:
  std::atomic_ref<std::uint32_t> sequence_;
};
static_assert(std::atomic_ref<std::uint32_t>::is_always_lock_free);

// Of one kind, or of one callback. True when the call is the longest so far.
template <class Counted>
bool Count(Counted &counted, std::uint64_t ns, bool slow) {
  const std::uint32_t us = Microseconds(ns);
  const bool longest = counted.count == 0 || us > counted.longestUs;
  ++counted.count;
  if (slow) ++counted.slowCount;
  counted.totalNs += ns;
  counted.longestUs = std::max(counted.longestUs, us);
  return longest;
}

void CountKind(Times &times, std::uint64_t ns, bool slow) {
  Count(times, ns, slow);
  if (++times.buckets[BucketOf(Microseconds(ns))] != std::numeric_limits<std::uint32_t>::max()) return;
  for (std::uint32_t &bucket : times.buckets) bucket /= 2;
}

ZOR_UV_LAG_TIMES Shown(const Times &times) {
  const std::span<const std::uint32_t, kBuckets> buckets = times.buckets;
  const auto percentile = [&](std::uint32_t percent) {
    return std::min(PercentileOf(buckets, percent), times.longestUs);
  };
  return {times.count,    times.slowCount, times.totalNs / kNsPerUs, percentile(50),
          percentile(90), percentile(99),  times.longestUs};
}

ZOR_UV_LAG_CALLBACK Shown(const Callback &entry) {
  ZOR_UV_LAG_CALLBACK shown = {};
  std::memcpy(shown.name, entry.name.data(), sizeof shown.name);
  std::memcpy(shown.source, entry.source.data(), sizeof shown.source);
  shown.kind = entry.kind;
  shown.type = entry.type;
  shown.longestUs = entry.longestUs;
  shown.count = entry.count;
  shown.slowCount = entry.slowCount;
  shown.totalUs = entry.totalNs / kNsPerUs;
  return shown;
}

}  // namespace

std::uint32_t Meter::Start(const ZOR_UV_LAG_OPTIONS &options) noexcept {
  Stop();
  const std::uint32_t status = memory_.Make((options.flags & ZOR_UV_LAG_OFFER) != 0);
  if (status != ZOR_OK) return status;
  options_ = options;
  if (options_.thresholdUs == 0) options_.thresholdUs = ZOR_UV_LAG_THRESHOLD_US;
  memory_.page()->thresholdUs = options_.thresholdUs;
  turnStartNs_ = NowNs();
  return ZOR_OK;
}

void Meter::Stop() noexcept {
  memory_.Release();
  Forget();
}

void Meter::Forget() noexcept {
  generation_.fetch_add(1, std::memory_order_relaxed);
  memory_.Forget();
  innermost_ = nullptr;
  loop_ = nullptr;
}

void Meter::Read(ZOR_UV_LAG &figures) const noexcept {
  const Page &page = *memory_.page();
  figures = {};
  figures.thresholdUs = page.thresholdUs;
  figures.callbackCount = page.callbackCount;
  for (std::size_t kind = 0; kind < kKinds; ++kind) figures.times[kind] = Shown(page.times[kind]);
  for (std::size_t i = 0; i < page.callbackCount; ++i) figures.callbacks[i] = Shown(page.callbacks[i]);
  std::sort(figures.callbacks, figures.callbacks + figures.callbackCount,
            [](const auto &one, const auto &other) { return one.longestUs > other.longestUs; });
}

void Meter::OnRun() noexcept {
  if (innermost_ == nullptr) turnStartNs_ = NowNs();
}

void Meter::OnRunEnd() noexcept {
  if (innermost_ == nullptr) EndTurn(NowNs());
}

void Meter::EndTurn(std::uint64_t nowNs) noexcept {
  const std::uint64_t ns = nowNs - turnStartNs_;
  const Writing writing(*memory_.page());
  CountKind(memory_.page()->times[ZOR_UV_LAG_TURN], ns, Microseconds(ns) >= options_.thresholdUs);
}

void Meter::Begin(Span &span) noexcept {
  span.generation_ = generation_.load(std::memory_order_relaxed);
  span.outer_ = innermost_;
  span.othersNs_ = 0;
  innermost_ = &span;
  span.startNs_ = NowNs();
}

void Meter::End(Span &span) noexcept {
  if (span.generation_ != generation_.load(std::memory_order_relaxed)) return;
  const std::uint64_t ns = NowNs() - span.startNs_;
  innermost_ = span.outer_;
  if (innermost_ != nullptr) innermost_->othersNs_ += ns;
  Record(span, ns - std::min(span.othersNs_, ns));
}

bool Meter::BeginPause(const UvLoop &loop, std::uint64_t nowNs) noexcept {
  if (innermost_ != nullptr && &loop != loop_) return false;
  loop_ = &loop;
  EndTurn(nowNs);
  return true;
}

void Meter::EndPause(std::uint64_t startNs, std::uint64_t nowNs) noexcept {
  turnStartNs_ = nowNs;
  if (innermost_ != nullptr) innermost_->othersNs_ += nowNs - startNs;
}

void Meter::Record(const Span &span, std::uint64_t ownNs) noexcept {
  const std::uint32_t us = Microseconds(ownNs);
  const bool slow = us >= options_.thresholdUs;
  const CallbackKey key = {span.function_, span.kind_, span.type_};
  Page &page = *memory_.page();
  Callback *entry = nullptr;
  {
    const Writing writing(page);
    CountKind(page.times[span.kind_], ownNs, slow);
    entry = table_.EntryFor(page, key, us);
    if (entry != nullptr && Count(*entry, ownNs, slow)) {
      std::memcpy(entry->source.data(), span.source_, sizeof span.source_);
    }
  }
  if (!slow) return;
  Callback shown = entry == nullptr ? NewEntry(key) : *entry;
  if (entry == nullptr) Count(shown, ownNs, slow);
  Report(shown, span, us);
}

// Touches nothing after the procedure, which may stop or start measuring.
void Meter::Report(const Callback &entry, const Span &span, std::uint32_t us) noexcept {
  ZOR_UV_LAG_CALLBACK shown = Shown(entry);
  std::memcpy(shown.source, span.source_, sizeof shown.source);
  if (shown.type == 0) {
    Trace("lag", ZOR_TRACE_WARNING, "slow %s %s: %u us", kKindNames[shown.kind], shown.name, us);
  } else {
    Trace("lag", ZOR_TRACE_WARNING, "slow %s %s: %u us, msg type:[0x%x] src:[%.12s]", kKindNames[shown.kind],
          shown.name, us, shown.type, shown.source);
  }
  if (options_.proc != nullptr) options_.proc(&shown, us, options_.data);
}

void Span::Begin(std::uint32_t kind, const void *function, const ZOR_MSG_HEAD *msg) noexcept {
  kind_ = kind;
  function_ = function;
  type_ = msg == nullptr ? 0 : msg->type & ZOR_MSG_TYPE_MASK;
  std::memset(source_, 0, sizeof source_);
  if (msg != nullptr) std::memcpy(source_, msg->source, sizeof source_ - 1);
  meter_->Begin(*this);
}

void Span::End() noexcept {
  meter_->End(*this);
}

void Pause::Begin(const UvLoop &loop) noexcept {
  startNs_ = NowNs();
  if (!meter_->BeginPause(loop, startNs_)) meter_ = nullptr;
}

void Pause::End() noexcept {
  meter_->EndPause(startNs_, NowNs());
}

}  // namespace zor::lag
