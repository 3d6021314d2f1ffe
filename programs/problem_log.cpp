#include "programs/problem_log.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace zor::daemon {
namespace {

// Below PIPE_BUF: a pipe that poll calls writable takes such a line whole and without waiting.
constexpr size_t kLineMax = 1024;

bool WriteLine(const std::string &program, const std::string &text) {
  std::string line = (program + ": " + text).substr(0, kLineMax - 1);
  // Texts quote what peers send: no byte of it may end the line or steer the operator's terminal.
  std::ranges::replace_if(
      line, [](unsigned char byte) { return byte < ' ' || byte == 0x7f; }, '?');
  line += '\n';
  pollfd entry = {STDERR_FILENO, POLLOUT, 0};
  if (::poll(&entry, 1, 0) != 1 || (entry.revents & POLLOUT) == 0) return false;
  ssize_t count;
  do {
    count = ::write(STDERR_FILENO, line.data(), line.size());
  } while (count < 0 && errno == EINTR);
  return count > 0;
}

std::string Format(const char *format, va_list arguments) {
  char text[kLineMax];
  return std::vsnprintf(text, sizeof text, format, arguments) < 0 ? std::string(format) : std::string(text);
}

}  // namespace

ProblemLog::~ProblemLog() {
  if (leftOut_ > 0) WriteLine(program_, std::to_string(leftOut_) + " more problems not shown");
}

void ProblemLog::Print(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = Format(format, arguments);
  va_end(arguments);
  PrintLimited(text);
}

void ProblemLog::PrintErrno(const char *format, ...) {
  const int error = errno;
  va_list arguments;
  va_start(arguments, format);
  const std::string text = Format(format, arguments);
  va_end(arguments);
  PrintLimited(text + ": " + std::strerror(error));
}

bool ProblemLog::MayPrint() {
  const Clock::time_point now = Clock::now();
  if (const auto earned = (now - lastRefill_) / kRefill; earned > 0) {
    credit_ = static_cast<int>(std::min<decltype(earned)>(limits::kProblemBurst, credit_ + earned));
    lastRefill_ = now;
  }
  return credit_ > 0;
}

void ProblemLog::PrintLimited(const std::string &text) {
  const std::string before =
      leftOut_ == 0 ? "" : std::string("(").append(std::to_string(leftOut_)) + " more problems not shown) ";
  if (!MayPrint() || !WriteLine(program_, before + text)) {
    ++leftOut_;
    return;
  }
  --credit_;
  leftOut_ = 0;
}

}  // namespace zor::daemon
