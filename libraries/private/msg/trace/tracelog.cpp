// Formats and writes trace lines.
#include <sys/time.h>
#include <unistd.h>
#include <zor/limits.h>
#include <zor/msg_head.h>
#include <zor/systime.h>
#include <zor/trace.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "trace/levels.h"
#include "trace/output.h"
#include "trace/trace_line.h"

namespace {

const char *OrEmpty(const char *text) {
  return text == nullptr ? "" : text;
}

// What a line says of itself.
struct LineHead {
  const char *file;
  uint32_t line;
  const char *module;
  uint32_t level;
};

// Returns the length; 0 when nothing could be formatted. A head too long for the buffer is cut.
std::size_t FormatHead(char (&text)[ZOR_TRACE_LINE_HEAD_SIZE], const LineHead &head) {
  const int wanted = std::snprintf(
      text, sizeof text, "\r\n[(%s)%s %s:%d:%s %s:%d]: ", ZOR_TRACE_GetLevelStr(head.level), ZOR_UTIL_GetCurTimeStamp(),
      m_aucAppName, ZOR_UTIL_GetCurPid(), OrEmpty(head.module), OrEmpty(head.file), static_cast<int>(head.line));
  return wanted < 1 ? 0 : std::min(static_cast<std::size_t>(wanted), sizeof text - 1);
}

// False when the line could not be written whole.
bool WriteMessage(std::FILE *stream, const char *format, std::va_list arguments) {
  const bool written = std::vfprintf(stream, format, arguments) >= 0;
  return zor::FinishTraceLine(stream) && written;
}

// Returns 1; 0 when the head cannot be formatted.
uint32_t WriteLine(const LineHead &head, const char *format, std::va_list arguments) {
  char text[ZOR_TRACE_LINE_HEAD_SIZE];
  const std::size_t length = FormatHead(text, head);
  if (length == 0) return 0;
  std::FILE *stream = zor::TraceStream();
  const bool headWritten = std::fwrite(text, 1, length, stream) == length;
  const bool messageWritten = WriteMessage(stream, format, arguments);
  if ((!headWritten || !messageWritten) && !zor::TraceGoesToSocket()) {
    std::puts("ZOR_TRACE_PrintInfo write file failed. ");
  }
  return 1;
}

// "%.8ld.%.6ld %.8ld.%.6ld", put together by hand: every line carries one, and it was a third of a line's cost.
class TimeStamp {
 public:
  const char *c_str() const { return text_.data(); }

  void Set(const struct timeval &wall, const ZOR_SYS_TIME &monotonic) {
    char *end = text_.data();
    end = Append(end, static_cast<uint32_t>(wall.tv_sec), 8);
    *end++ = '.';
    end = Append(end, static_cast<uint32_t>(wall.tv_usec), 6);
    *end++ = ' ';
    end = Append(end, monotonic.seconds, 8);
    *end++ = '.';
    end = Append(end, monotonic.microseconds, 6);
    *end = '\0';
  }

 private:
  // At least so many digits, with leading zeros.
  static char *Append(char *to, uint32_t number, std::size_t least) {
    std::array<char, 10> reversed;
    std::size_t digits = 0;
    for (; number != 0 || digits < least; number /= 10) reversed[digits++] = static_cast<char>('0' + number % 10);
    return std::reverse_copy(reversed.begin(), reversed.begin() + digits, to);
  }

  std::array<char, 40> text_ = {};
};

const char *BaseName(const char *path) {
  const char *slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

}  // namespace

void zor::Trace(const TraceModule &module, std::uint32_t level, const char *format, ...) noexcept {
  if (!IsTraced(module.name, level)) return;
  std::va_list arguments;
  va_start(arguments, format);
  WriteLine({BaseName(module.file), module.line, module.name, level}, format, arguments);
  va_end(arguments);
}

uint32_t ZOR_TRACE_PrintInfo(const char *file, uint32_t line, uint32_t force, const char *module, uint32_t level,
                             const char *format, ...) {
  if (force == 0 && !zor::IsTraced(module, level)) return 0;
  if (format == nullptr) return 0;
  std::va_list arguments;
  va_start(arguments, format);
  const uint32_t written = WriteLine({file, line, module, level}, format, arguments);
  va_end(arguments);
  return written;
}

uint32_t ZOR_TRACE_PrintInfoEx(const char *module, uint32_t level, const char *format, ...) {
  if (!zor::IsTraced(module, level) || format == nullptr) return 0;
  std::va_list arguments;
  va_start(arguments, format);
  WriteMessage(zor::TraceStream(), format, arguments);
  va_end(arguments);
  return 1;
}

int32_t ZOR_UTIL_GetCurPid(void) {
  // Read once for each thread, so a forked child keeps its parent's number.
  static thread_local int32_t pid = -1;
  if (pid == -1) pid = ::getpid();
  return pid;
}

const char *ZOR_UTIL_GetCurTimeStamp(void) {
  static TimeStamp stamp;
  struct timeval wall = {};
  if (::gettimeofday(&wall, nullptr) != 0) return stamp.c_str();
  ZOR_SYS_TIME monotonic = {};
  ZOR_UTIL_GetSysTime(&monotonic);
  stamp.Set(wall, monotonic);
  return stamp.c_str();
}
