#include "programs/log_result.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <deque>
#include <vector>

#include "common/unique_fd.h"
#include "programs/paths.h"

namespace zor::daemon {
namespace {

constexpr std::size_t kMostLate = 64;

std::uint64_t last = 0;
std::deque<std::string> late;

// Reads so many bytes or up to the end.
bool ReadInto(int file, std::string &text) {
  std::size_t have = 0;
  while (have < text.size()) {
    const ssize_t count = ::read(file, text.data() + have, text.size() - have);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    if (count == 0) break;
    have += static_cast<std::size_t>(count);
  }
  text.resize(have);
  return true;
}

}  // namespace

LogResult::LogResult(const std::string &directory, const char *program)
    : fixedPath_(directory + '/' + program + '.' + std::to_string(::getpid()) + '.' + std::to_string(++last)),
      path_(FixedPath(fixedPath_)) {}

LogResult::~LogResult() {
  ::unlink(path_.c_str());
  std::erase_if(late, [](const std::string &path) { return ::unlink(path.c_str()) == 0; });
}

bool LogResult::NameIn(ZOR_LOG_QUERY &query) const {
  if (fixedPath_.size() >= sizeof query.text) return false;
  fixedPath_.copy(query.text, sizeof query.text - 1);
  return true;
}

void LogResult::GiveUp() const {
  if (late.size() == kMostLate) late.pop_front();
  late.push_back(path_);
}

std::optional<std::string> LogResult::Text(std::size_t most) const {
  const UniqueFd file(::open(path_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat info = {};
  if (!file.valid() || ::fstat(file.get(), &info) != 0) return std::nullopt;
  errno = EFBIG;
  if (!S_ISREG(info.st_mode) || static_cast<std::uint64_t>(info.st_size) > most) return std::nullopt;
  std::string text(static_cast<std::size_t>(info.st_size), '\0');
  return ReadInto(file.get(), text) ? std::optional(std::move(text)) : std::nullopt;
}

}  // namespace zor::daemon
