#include "programs/inheritance.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "programs/service_manager.h"
#include "programs/version.h"

namespace zor::daemon {
namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::milliseconds;

// Takes the text before the next space off the front.
std::string_view TakeWord(std::string_view &text) {
  const size_t length = std::min(text.find(' '), text.size());
  const std::string_view word = text.substr(0, length);
  text.remove_prefix(std::min(length + 1, text.size()));
  return word;
}

template <typename Number>
bool Parse(std::string_view text, Number &value) {
  const auto [last, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && last == text.data() + text.size();
}

bool ParseTime(std::string_view text, Inheritance::Clock::time_point &time) {
  int64_t count = 0;
  if (!Parse(text, count)) return false;
  time = Inheritance::Clock::time_point(microseconds(count));
  return true;
}

int64_t Microseconds(Inheritance::Clock::time_point time) {
  return duration_cast<microseconds>(time.time_since_epoch()).count();
}

milliseconds Since(Inheritance::Clock::time_point time) {
  return duration_cast<milliseconds>(Inheritance::Clock::now() - time);
}

// They were kept open over the exec, and no child may have them.
void CloseAllOnExec() {
  const std::unique_ptr<DIR, int (*)(DIR *)> directory(::opendir("/proc/self/fd"), ::closedir);
  if (directory == nullptr) return;
  while (const dirent *entry = ::readdir(directory.get())) {
    int fd = -1;
    if (Parse(std::string_view(entry->d_name), fd) && fd > STDERR_FILENO) ::fcntl(fd, F_SETFD, FD_CLOEXEC);
  }
}

}  // namespace

UniqueFd NewStateFile() {
  return UniqueFd(::memfd_create("state", MFD_CLOEXEC));
}

std::string Inheritance::Variable(int stateNumber) const {
  return std::string(kHandOverVariable)
      .append("=" + std::to_string(stateNumber))
      .append(" " + version)
      .append(" " + std::to_string(Microseconds(requested)))
      .append(" " + std::to_string(Microseconds(paused)));
}

milliseconds Inheritance::Duration() const {
  return Since(requested);
}

milliseconds Inheritance::Pause() const {
  return Since(paused);
}

std::string Inheritance::Json() const {
  return std::string("{\"from\":\"")
      .append(version + "\",\"to\":\"" + Version())
      .append("\",\"duration_ms\":" + std::to_string(Duration().count()))
      .append(",\"pause_ms\":" + std::to_string(Pause().count()) + "}");
}

void Inheritance::Report(ProblemLog &log) const {
  std::array<char, 128> text;
  std::snprintf(text.data(), text.size(), "version %s took over from version %s in %lld ms, with a pause of %lld ms",
                Version(), version.c_str(), static_cast<long long>(Duration().count()),
                static_cast<long long>(Pause().count()));
  log.Print("%s", text.data());
  TellStatus("%s", text.data());
}

std::optional<Inheritance> TakeInheritance() {
  const char *value = ::secure_getenv(kHandOverVariable);
  if (value == nullptr) return std::nullopt;
  const std::string copy = value;
  ::unsetenv(kHandOverVariable);
  CloseAllOnExec();
  std::string_view text = copy;
  int fd = -1;
  if (!Parse(TakeWord(text), fd) || fd <= STDERR_FILENO || ::fcntl(fd, F_GETFD) < 0) return std::nullopt;
  Inheritance inheritance;
  inheritance.state.reset(fd);
  inheritance.version = TakeWord(text);
  if (!ParseTime(TakeWord(text), inheritance.requested) || !ParseTime(TakeWord(text), inheritance.paused)) {
    return std::nullopt;
  }
  return inheritance;
}

MappedState::MappedState(int fd) {
  struct stat status = {};
  if (::fstat(fd, &status) != 0) return;
  if (status.st_size <= 0 || static_cast<uint64_t>(status.st_size) > SIZE_MAX / 2) {
    errno = EINVAL;
    return;
  }
  const auto size = static_cast<size_t>(status.st_size);
  void *const start = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
  if (start != MAP_FAILED) bytes_ = {static_cast<const std::byte *>(start), size};
}

MappedState::~MappedState() {
  if (valid()) ::munmap(const_cast<std::byte *>(bytes_.data()), bytes_.size());
}

}  // namespace zor::daemon
