#include "programs/problem_log.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace zor::daemon {
namespace {

// Below PIPE_BUF: a pipe that poll calls writable takes such a line whole and without waiting.
constexpr size_t kLineMax = 1024;

using Line = std::array<char, kLineMax>;

bool WriteLine(const char *program, const char *before, const char *text) {
  Line line;
  const int wanted = std::snprintf(line.data(), line.size() - 1, "%s: %s%s", program, before, text);
  if (wanted < 0) return false;
  const size_t length = std::min(static_cast<size_t>(wanted), line.size() - 2);
  // Texts quote what peers send: no byte of it may end the line or steer the operator's terminal.
  std::replace_if(
      line.begin(), line.begin() + static_cast<ptrdiff_t>(length),
      [](unsigned char byte) { return byte < ' ' || byte == 0x7f; }, '?');
  line[length] = '\n';
  pollfd entry = {STDERR_FILENO, POLLOUT, 0};
  if (::poll(&entry, 1, 0) != 1 || (entry.revents & POLLOUT) == 0) return false;
  ssize_t count;
  do {
    count = ::write(STDERR_FILENO, line.data(), length + 1);
  } while (count < 0 && errno == EINTR);
  return count > 0;
}

}  // namespace

ProblemLog::~ProblemLog() {
  if (leftOut_ == 0) return;
  Line text;
  std::snprintf(text.data(), text.size(), "%lu more problems not shown", leftOut_);
  WriteLine(program_, "", text.data());
}

void ProblemLog::Print(const char *format, ...) {
  Line text;
  va_list arguments;
  va_start(arguments, format);
  const bool good = std::vsnprintf(text.data(), text.size(), format, arguments) >= 0;
  va_end(arguments);
  PrintLimited(good ? text.data() : format);
}

void ProblemLog::PrintErrno(const char *format, ...) {
  const int error = errno;
  Line text;
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  if (length < 0) return PrintLimited(format);
  const size_t used = std::min(static_cast<size_t>(length), text.size() - 1);
  std::snprintf(text.data() + used, text.size() - used, ": %s", std::strerror(error));
  PrintLimited(text.data());
}

bool ProblemLog::MayPrint() {
  const Clock::time_point now = Clock::now();
  if (const auto earned = (now - lastRefill_) / kRefill; earned > 0) {
    credit_ = static_cast<int>(std::min<decltype(earned)>(limits::kProblemBurst, credit_ + earned));
    lastRefill_ = now;
  }
  return credit_ > 0;
}

void ProblemLog::PrintLimited(const char *text) {
  std::array<char, 64> before = {};
  if (leftOut_ > 0) std::snprintf(before.data(), before.size(), "(%lu more problems not shown) ", leftOut_);
  if (!MayPrint() || !WriteLine(program_, before.data(), text)) {
    ++leftOut_;
    return;
  }
  --credit_;
  leftOut_ = 0;
}

}  // namespace zor::daemon
