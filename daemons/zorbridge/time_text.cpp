#include "zorbridge/time_text.h"

#include <array>
#include <chrono>
#include <cstdio>

namespace zor::bridge {

using std::chrono::milliseconds;

std::int64_t UnixMs() {
  return std::chrono::duration_cast<milliseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::string TimeText(std::int64_t unixMs) {
  const std::chrono::sys_time<milliseconds> time{milliseconds(unixMs)};
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  std::array<char, 64> text;
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", int{date.year()},
                unsigned{date.month()}, unsigned{date.day()}, static_cast<int>(clock.hours().count()),
                static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()),
                static_cast<int>(clock.subseconds().count()));
  return text.data();
}

}  // namespace zor::bridge
