#include <zor/caltime.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <tuple>

namespace {

constexpr uint32_t kValid = 0;
constexpr uint32_t kInvalid = 1;
constexpr uint32_t kYearsApartMax = 50;

bool IsLeap(uint32_t year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

bool HasDay31(uint32_t month) {
  constexpr std::array<uint32_t, 7> kLongMonths = {1, 3, 5, 7, 8, 10, 12};
  return std::find(kLongMonths.begin(), kLongMonths.end(), month) != kLongMonths.end();
}

// Only these two days are checked; February 30 passes.
bool IsMissingDay(uint32_t year, uint32_t month, uint32_t day) {
  const bool leap = year != 0 && IsLeap(year);
  return (month == 2 && day == 29 && !leap) || (day == 31 && !HasDay31(month));
}

// Floor division of year - 1, also for the year 0.
int64_t YearsBefore(uint32_t year, int64_t period) {
  const int64_t years = static_cast<int64_t>(year) - 1;
  return years >= 0 ? years / period : -1;
}

uint32_t DayOfYear(const ZOR_CAL_TIME &time) {
  constexpr std::array<uint32_t, 12> kDaysBefore = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
  if (time.month < 2 || time.month > 12) return time.day;
  const uint32_t leapDay = time.month > 2 && IsLeap(time.year) ? 1 : 0;
  return kDaysBefore[time.month - 1] + leapDay + time.day;
}

// Wraps at 32 bits; differences within 50 years survive that.
uint32_t SecondsOf(const ZOR_CAL_TIME &time) {
  const int64_t leapDays = YearsBefore(time.year, 4) + YearsBefore(time.year, 400) - YearsBefore(time.year, 100);
  const auto days = static_cast<uint32_t>((static_cast<int64_t>(time.year) - 1) * 365 + leapDays) + DayOfYear(time);
  return days * 86400u + time.hour * 3600u + time.minute * 60u + time.second;
}

auto Fields(const ZOR_CAL_TIME &time) {
  return std::tie(time.year, time.month, time.day, time.hour, time.minute, time.second);
}

uint32_t YearsApart(uint32_t one, uint32_t other) {
  return one > other ? one - other : other - one;
}

}  // namespace

uint32_t ZOR_UTIL_CheckTimeValid(uint32_t year, uint32_t month, uint32_t day, uint32_t hour, uint32_t minute,
                                 uint32_t second) {
  if (month >= 13 || day >= 32) return kInvalid;
  if (IsMissingDay(year, month, day)) {
    std::printf("The day[%d-%d-%d] of periodictime isn't exit.\n", static_cast<int>(year), static_cast<int>(month),
                static_cast<int>(day));
    return kInvalid;
  }
  const char *field = hour >= 24 ? "hour" : minute >= 60 ? "minute" : second >= 60 ? "second" : nullptr;
  if (field != nullptr) {
    std::printf("\nThe %s of periodictime is not in the range.", field);
    return kInvalid;
  }
  if ((year | month | day | hour | minute | second) == 0) {
    std::printf("\nDosen't need to change the interval of inform.");
    return kInvalid;
  }
  return kValid;
}

uint32_t ZOR_UTIL_GetDifTime(const char *first, const char *second, uint32_t *difference, uint32_t *firstIsLater) {
  if (first == nullptr || second == nullptr || difference == nullptr || firstIsLater == nullptr) return kInvalid;
  ZOR_CAL_TIME one = {};
  ZOR_CAL_TIME other = {};
  if (ZOR_UTIL_UCTTimeFormatCheck(first, &one) != kValid || ZOR_UTIL_UCTTimeFormatCheck(second, &other) != kValid) {
    return kInvalid;
  }
  if (ZOR_UTIL_CheckTimeValid(one.year, one.month, one.day, one.hour, one.minute, one.second) != kValid) {
    return kInvalid;
  }
  *firstIsLater = 0;
  if (Fields(one) == Fields(other)) {
    std::printf("\nThe two times are the same.");
    return kValid;
  }
  if (YearsApart(one.year, other.year) > kYearsApartMax) return kValid;
  // Later by fields: with fields out of range it may be the earlier one in seconds, and the difference wraps.
  const bool later = Fields(one) > Fields(other);
  *firstIsLater = later ? 1 : 0;
  *difference = later ? SecondsOf(one) - SecondsOf(other) : SecondsOf(other) - SecondsOf(one);
  return kValid;
}

uint32_t ZOR_UTIL_GetDelayTime(uint32_t time, uint32_t interval, uint32_t remainder, uint32_t *delay) {
  if (delay == nullptr) return time;
  const uint32_t rest = time % interval;
  const uint32_t wanted = remainder != 0 ? rest : interval - rest;
  *delay = wanted == 0 ? interval : wanted;
  return time / interval;
}
