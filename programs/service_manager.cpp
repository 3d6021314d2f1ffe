#include "programs/service_manager.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "common/attached_descriptor.h"

namespace zor::daemon {
namespace {

constexpr timeval kPatience = {5, 0};
constexpr int kFirstPassed = 3;
constexpr int kMostPassed = 1 << 16;  // beyond what a manager can pass
constexpr std::string_view kUnnamed = "unknown";

struct Address {
  sockaddr_un name = {};
  socklen_t length = 0;  // 0: no manager
};

// NOTIFY_SOCKET is a path, or an abstract name after '@'. Other forms belong to virtual machines.
Address ManagerAddress() {
  const char *text = ::secure_getenv("NOTIFY_SOCKET");
  if (text == nullptr || (text[0] != '/' && text[0] != '@')) return {};
  Address address;
  const size_t size = std::strlen(text);
  if (size >= sizeof address.name.sun_path) return {};
  address.name.sun_family = AF_UNIX;
  std::memcpy(address.name.sun_path, text, size);
  if (text[0] == '@') address.name.sun_path[0] = '\0';
  address.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + size);
  return address;
}

// Best effort for the caller that ignores the result: a manager that cannot be notified relies on its own time limits.
bool Tell(std::string_view state, int fd = -1, int flags = 0) {
  Address address = ManagerAddress();
  if (address.length == 0) return false;
  const UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket.valid()) return false;
  ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
  iovec vector = {const_cast<char *>(state.data()), state.size()};
  msghdr message = {};
  message.msg_name = &address.name;
  message.msg_namelen = address.length;
  message.msg_iov = &vector;
  message.msg_iovlen = 1;
  std::optional<AttachedDescriptor> attached;
  if (fd >= 0) attached.emplace(message, fd);
  return ::sendmsg(socket.get(), &message, MSG_NOSIGNAL | flags) == static_cast<ssize_t>(state.size());
}

std::optional<int64_t> Number(const char *name) {
  const char *text = ::secure_getenv(name);
  if (text == nullptr) return std::nullopt;
  int64_t value = 0;
  const char *end = text + std::strlen(text);
  const auto [last, error] = std::from_chars(text, end, value);
  if (error != std::errc() || last != end) return std::nullopt;
  return value;
}

// Takes the text before the next ':' off the front of the names.
std::string TakeName(std::string_view &names) {
  const size_t length = std::min(names.find(':'), names.size());
  std::string name(length == 0 ? kUnnamed : names.substr(0, length));
  names.remove_prefix(std::min(length + 1, names.size()));
  return name;
}

}  // namespace

void TellReady() {
  Tell("READY=1");
}

void TellStopping() {
  Tell("STOPPING=1");
}

// Neither takes memory, since both are needed when there is none.
void TellReloading() {
  using std::chrono::microseconds;
  const auto now = std::chrono::duration_cast<microseconds>(Watchdog::Clock::now().time_since_epoch()).count();
  std::array<char, 64> text;
  std::snprintf(text.data(), text.size(), "RELOADING=1\nMONOTONIC_USEC=%lld", static_cast<long long>(now));
  Tell(text.data());
}

void TellStatus(const char *format, ...) {
  constexpr std::string_view kStart = "STATUS=";
  std::array<char, 512> text;
  kStart.copy(text.data(), kStart.size());
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text.data() + kStart.size(), text.size() - kStart.size(), format, arguments);
  va_end(arguments);
  if (length >= 0) Tell(text.data());
}

bool HasManager() {
  return ManagerAddress().length > 0;
}

bool StoreDescriptor(std::string_view name, int fd) {
  return Tell(std::string("FDSTORE=1\nFDPOLL=0\nFDNAME=").append(name), fd);
}

bool RemoveStoredDescriptors(std::string_view name) {
  return Tell(std::string("FDSTOREREMOVE=1\nFDNAME=").append(name));
}

// Once more, for a store that was full until the former ones went; a manager drops what it has already.
bool ReplaceStoredDescriptors(const std::vector<std::string> &former, std::string_view name, int fd) {
  const bool stored = StoreDescriptor(name, fd);
  for (const std::string &each : former) RemoveStoredDescriptors(each);
  if (!former.empty()) StoreDescriptor(name, fd);
  return stored;
}

std::vector<PassedDescriptor> TakePassedDescriptors() {
  std::vector<PassedDescriptor> passed;
  const int64_t count = Number("LISTEN_PID") == ::getpid() ? Number("LISTEN_FDS").value_or(0) : 0;
  const char *text = ::secure_getenv("LISTEN_FDNAMES");
  std::string_view names = text == nullptr ? std::string_view() : text;
  for (int fd = kFirstPassed; fd < kFirstPassed + std::min<int64_t>(count, kMostPassed); ++fd) {
    std::string name = TakeName(names);
    if (::fcntl(fd, F_SETFD, FD_CLOEXEC) == 0) passed.push_back({std::move(name), UniqueFd(fd)});
  }
  for (const char *variable : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"}) ::unsetenv(variable);
  return passed;
}

UniqueFd TakePassed(std::vector<PassedDescriptor> &passed, std::string_view name) {
  const auto found = std::find_if(passed.begin(), passed.end(), [name](const auto &each) { return each.name == name; });
  if (found == passed.end()) return {};
  UniqueFd fd = std::move(found->fd);
  passed.erase(found);
  return fd;
}

Watchdog::Watchdog() {
  const int64_t interval = Number("WATCHDOG_USEC").value_or(0);
  const bool mine = ::secure_getenv("WATCHDOG_PID") == nullptr || Number("WATCHDOG_PID") == ::getpid();
  if (mine && interval > 0 && ManagerAddress().length > 0) period_ = std::chrono::microseconds(interval / 2);
}

int Watchdog::TimeoutMs(int ownMs) const {
  if (!enabled()) return ownMs;
  using std::chrono::milliseconds;
  const auto left = std::chrono::ceil<milliseconds>(due_ - Clock::now());
  const int64_t most = ownMs < 0 ? INT32_MAX : ownMs;
  return static_cast<int>(std::clamp<int64_t>(left.count(), 0, most));
}

// A manager whose queue is full gets the next feed before the interval ends.
void Watchdog::Feed() {
  if (!enabled()) return;
  const Clock::time_point now = Clock::now();
  if (now < due_) return;
  due_ = now + (Tell("WATCHDOG=1", -1, MSG_DONTWAIT) ? period_ : period_ / 4);
}

}  // namespace zor::daemon
