#include "zorctl/format.h"

#include <pwd.h>

#include "programs/format_time.h"

namespace zor::ctl {

std::string UserName(uid_t uid) {
  const passwd *user = ::getpwuid(uid);
  return user == nullptr ? std::to_string(uid) : user->pw_name;
}

std::string LocalTimeText(std::time_t time) {
  return daemon::FormatTime(time, "%Y-%m-%d %H:%M:%S", ::localtime_r);
}

}  // namespace zor::ctl
