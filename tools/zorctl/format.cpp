#include "zorctl/format.h"

#include <pwd.h>

#include <array>

#include "programs/format_time.h"

namespace zor::ctl {

std::string UserName(uid_t uid) {
  const passwd *user = ::getpwuid(uid);
  return user == nullptr ? std::to_string(uid) : user->pw_name;
}

std::string LocalTimeText(std::time_t time) {
  return daemon::FormatTime(time, "%Y-%m-%d %H:%M:%S", ::localtime_r);
}

std::string LongAgeText(std::chrono::milliseconds age) {
  struct Unit {
    std::chrono::milliseconds length;
    const char *name;
  };
  constexpr std::array kUnits = {Unit{std::chrono::hours(24), " d"}, Unit{std::chrono::hours(1), " h"},
                                 Unit{std::chrono::minutes(1), " min"}};
  for (const Unit &unit : kUnits) {
    if (age >= 2 * unit.length) return std::to_string(age / unit.length) + unit.name;
  }
  return AgeText(static_cast<uint64_t>(age.count()));
}

}  // namespace zor::ctl
