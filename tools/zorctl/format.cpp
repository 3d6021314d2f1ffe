#include "zorctl/format.h"

#include <pwd.h>

#include <array>

namespace zor::ctl {

std::string UserName(uid_t uid) {
  const passwd *user = ::getpwuid(uid);
  return user == nullptr ? std::to_string(uid) : user->pw_name;
}

std::string TimeText(std::time_t time) {
  std::tm parts = {};
  std::array<char, 32> text{};
  if (::localtime_r(&time, &parts) == nullptr) return "-";
  const size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);
  return {text.data(), length};
}

}  // namespace zor::ctl
