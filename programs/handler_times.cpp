#include "programs/handler_times.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/paths.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "common/unique_fd.h"
#include "programs/paths.h"
#include "programs/process_state.h"

namespace zor::daemon {
namespace {

// A daemon writes for less than a microsecond at a time, unless it loses the processor then.
constexpr int kAttempts = 10;
constexpr std::chrono::microseconds kPause{100};

template <size_t size>
bool Ends(const std::array<char, size> &text) {
  return std::find(text.begin(), text.end(), '\0') != text.end();
}

bool IsSound(const lag::Page &page, pid_t pid) {
  if (page.magic != lag::kMagic || page.bytes != sizeof page || page.sequence % 2 != 0) return false;
  if (page.pid != static_cast<uint32_t>(pid) || page.callbackCount > lag::kCallbacks) return false;
  return std::all_of(page.callbacks.begin(), page.callbacks.begin() + page.callbackCount, [](const auto &callback) {
    return callback.kind < lag::kKinds && Ends(callback.source) && Ends(callback.name);
  });
}

std::string PathOf(pid_t pid) {
  char path[sizeof ZOR_PATH_LAG_FORMAT + 10];
  std::snprintf(path, sizeof path, ZOR_PATH_LAG_FORMAT, static_cast<unsigned>(pid));
  return FixedPath(path);
}

// Opens the file of a process of this user, or of root, which may have changed its user since. Another user's file is
// a lie.
UniqueFd OpenOf(pid_t pid, uid_t user) {
  UniqueFd file(::open(PathOf(pid).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status = {};
  if (!file.valid() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return UniqueFd();
  if (status.st_uid != user && status.st_uid != 0) return UniqueFd();
  return file;
}

// Whether it began after the process did; assumed where the system hides processes of other users.
bool IsOfThisLife(const lag::Page &page, pid_t pid) {
  const auto ticksPerSecond = static_cast<uint64_t>(::sysconf(_SC_CLK_TCK));
  return page.startedMs / 1000 >= StateOf(pid).startedTicks / ticksPerSecond;
}

uint32_t SequenceIn(int fd) {
  uint32_t sequence = 1;  // odd: it is being written
  return ::pread(fd, &sequence, sizeof sequence, offsetof(lag::Page, sequence)) == sizeof sequence ? sequence : 1;
}

}  // namespace

std::unique_ptr<const lag::Page> CheckHandlerTimes(std::span<const std::byte> bytes, pid_t pid) {
  if (bytes.size() != sizeof(lag::Page)) return nullptr;
  auto page = std::make_unique<lag::Page>();
  std::memcpy(page.get(), bytes.data(), bytes.size());
  if (!IsSound(*page, pid)) return nullptr;
  return page;
}

std::unique_ptr<const lag::Page> HandlerTimesOf(pid_t pid, uid_t user) {
  const UniqueFd file = OpenOf(pid, user);
  if (!file.valid()) return nullptr;
  std::vector<std::byte> bytes(sizeof(lag::Page) + 1);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (attempt != 0) std::this_thread::sleep_for(kPause);
    const uint32_t before = SequenceIn(file.get());
    const ssize_t count = ::pread(file.get(), bytes.data(), bytes.size(), 0);
    if (count != sizeof(lag::Page)) return nullptr;
    if (before % 2 != 0 || SequenceIn(file.get()) != before) continue;
    auto page = CheckHandlerTimes(std::span(bytes).first(sizeof(lag::Page)), pid);
    return page != nullptr && IsOfThisLife(*page, pid) ? std::move(page) : nullptr;
  }
  return nullptr;
}

}  // namespace zor::daemon
