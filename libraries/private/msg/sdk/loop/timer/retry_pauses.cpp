#include "sdk/loop/timer/retry_pauses.h"

#include <zor/limits.h>
#include <zor/platform/system.h>

#include <algorithm>

#include "sdk/loop/core/clock.h"

namespace zor {
namespace {

std::uint32_t Choose(std::uint32_t wanted, std::uint32_t otherwise) {
  constexpr std::uint32_t kLongest = 0x7fffffff;
  return wanted == 0 ? otherwise : std::min(wanted, kLongest);
}

}  // namespace

std::optional<ZOR_MSG_REJOIN> ChooseRejoinTimes(const ZOR_MSG_REJOIN *settings) noexcept {
  const ZOR_MSG_REJOIN wanted = settings != nullptr ? *settings : ZOR_MSG_REJOIN{};
  const ZOR_MSG_REJOIN times = {Choose(wanted.firstPauseMs, ZOR_MSG_REJOIN_FIRST_PAUSE_MS),
                                Choose(wanted.longestPauseMs, ZOR_MSG_REJOIN_LONGEST_PAUSE_MS),
                                Choose(wanted.replyWaitMs, ZOR_MSG_REJOIN_REPLY_WAIT_MS)};
  if (times.longestPauseMs < times.firstPauseMs) return std::nullopt;
  return times;
}

void RetryPauses::OnConnected() noexcept {
  since = MonotonicNow();
}

void RetryPauses::OnLost() noexcept {
  const UvTime soonest = After(since, latestMs);
  const UvTime now = MonotonicNow();
  if (now.seconds > soonest.seconds || (now.seconds == soonest.seconds && now.microseconds >= soonest.microseconds)) {
    latestMs = 0;
  }
}

std::uint32_t RetryPauses::NextMs() noexcept {
  latestMs = latestMs == 0                         ? times.firstPauseMs
             : latestMs > times.longestPauseMs / 2 ? times.longestPauseMs
                                                   : latestMs * 2;
  return latestMs - ZOR_UTIL_GenRandomInteger() % (latestMs / 2 + 1);
}

}  // namespace zor
