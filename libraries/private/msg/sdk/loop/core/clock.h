// Loop times: points of monotonic time and intervals, in the loop's own 32-bit fields.
#ifndef SDK_LOOP_CORE_CLOCK_H
#define SDK_LOOP_CORE_CLOCK_H

#include <zor/systime.h>
#include <zor/uv_loop.h>

#include <cstdint>
#include <limits>

namespace zor {

constexpr std::int32_t kMicrosecondsPerSecond = 1000000;
constexpr UvTime kEndless = {std::numeric_limits<std::int32_t>::max(), 0};

inline UvTime MonotonicNow() noexcept {
  ZOR_SYS_TIME time = {};
  ZOR_UTIL_GetSysTime(&time);
  return {static_cast<std::int32_t>(time.seconds), static_cast<std::int32_t>(time.microseconds)};
}

constexpr UvTime FromMilliseconds(std::uint32_t ms) noexcept {
  return {static_cast<std::int32_t>(ms / 1000), static_cast<std::int32_t>(ms % 1000 * 1000)};
}

// Whole seconds carried out of the microseconds. Adds unsigned: a time at the end of the range wraps.
constexpr UvTime Normalised(UvTime time) noexcept {
  const auto seconds = static_cast<std::uint32_t>(time.seconds);
  const auto carry = static_cast<std::uint32_t>(time.microseconds / kMicrosecondsPerSecond);
  return {static_cast<std::int32_t>(seconds + carry), time.microseconds % kMicrosecondsPerSecond};
}

constexpr UvTime After(UvTime start, std::uint32_t ms) noexcept {
  const UvTime interval = FromMilliseconds(ms);
  const auto seconds = static_cast<std::uint32_t>(start.seconds) + static_cast<std::uint32_t>(interval.seconds);
  return Normalised({static_cast<std::int32_t>(seconds), start.microseconds + interval.microseconds});
}

}  // namespace zor

#endif
