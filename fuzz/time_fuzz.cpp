// Time texts: the input is two of them, separated by a newline.
#include <zor/caltime.h>

#include <cstdio>

#include "fuzz.h"

namespace {

using zor::fuzz::Require;

constexpr uint32_t kUnset = 0x80000000;  // neither a number of a time text nor a difference

void CheckParsed(const std::string &text) {
  ZOR_CAL_TIME time = {kUnset, kUnset, kUnset, kUnset, kUnset, kUnset};
  if (ZOR_UTIL_UCTTimeFormatCheck(text.c_str(), &time) != 0) return;
  if (text.empty()) return Require(time.year == kUnset, "an empty text stores nothing");
  Require(time.year <= 9999 && time.month <= 99 && time.day <= 99, "a date has its digits");
  Require(time.hour <= 99 && time.minute <= 99 && time.second <= 99, "a time has its digits");
  std::array<char, 32> printed;
  std::snprintf(printed.data(), printed.size(), "%04u-%02u-%02uT%02u:%02u:%02uZ", time.year, time.month, time.day,
                time.hour, time.minute, time.second);
  ZOR_CAL_TIME again;
  Require(ZOR_UTIL_UCTTimeFormatCheck(printed.data(), &again) == 0, "a time printed again is one");
  Require(again.year == time.year && again.day == time.day && again.second == time.second, "and the same");
}

void CheckDifference(const std::string &first, const std::string &second) {
  uint32_t ahead = kUnset, back = kUnset, firstIsLater = 2, secondIsLater = 2;
  const uint32_t status = ZOR_UTIL_GetDifTime(first.c_str(), second.c_str(), &ahead, &firstIsLater);
  Require(status <= 1 && (status == 0) == (firstIsLater < 2), "a difference is told, or nothing");
  if (status != 0 || ZOR_UTIL_GetDifTime(second.c_str(), first.c_str(), &back, &secondIsLater) != 0) return;
  Require(ahead == back, "a difference is the same from both ends");
  Require((ahead == kUnset ? 0u : 1u) == firstIsLater + secondIsLater, "one is later where they differ");
  // Days and months of 0 and February 30 pass: the later by fields may be the earlier in seconds, by less than 32 days.
  constexpr uint32_t kDay = 86400, kWrapMax = 32 * kDay;
  Require(ahead == kUnset || ahead + kWrapMax < 51 * 366 * kDay + kWrapMax, "a difference is less than 51 years");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string text = zor::fuzz::TextOf(data, size);
  const std::string first = text.substr(0, text.find('\n'));
  const std::string second = text.substr(std::min(first.size() + 1, text.size()));
  CheckParsed(first);
  CheckParsed(second);
  CheckDifference(first, second);
  return 0;
}
