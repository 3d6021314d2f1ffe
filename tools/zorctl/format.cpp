#include "zorctl/format.h"

#include <pwd.h>

#include <array>
#include <cstdio>

#include "programs/format_time.h"

namespace zor::ctl {

std::string UserName(uid_t uid) {
  const passwd *user = ::getpwuid(uid);
  return user == nullptr ? std::to_string(uid) : user->pw_name;
}

std::string LocalTimeText(std::time_t time) {
  return daemon::FormatTime(time, "%Y-%m-%d %H:%M:%S", ::localtime_r);
}

std::string AgeText(uint64_t milliseconds) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f s", static_cast<double>(milliseconds) / 1000);
  return text.data();
}

std::string HexText(uint32_t number) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "0x%X", number);
  return text.data();
}

}  // namespace zor::ctl
