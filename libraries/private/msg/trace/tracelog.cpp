// The lines themselves.
#include <sys/time.h>
#include <unistd.h>
#include <zor/msg_head.h>
#include <zor/systime.h>
#include <zor/trace.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "trace/levels.h"
#include "trace/output.h"

namespace {

constexpr std::size_t kHeaderSize = 512;

const char *OrEmpty(const char *text) {
  return text == nullptr ? "" : text;
}

// False when nothing could be formatted. A header too long for the buffer is cut.
bool WriteHeader(std::FILE *stream, const char *file, uint32_t line, const char *module, uint32_t level) {
  char header[kHeaderSize];
  const int wanted = std::snprintf(header, sizeof header, "\r\n[(%s)%s %s:%d:%s %s:%d]: ", ZOR_TRACE_GetLevelStr(level),
                                   ZOR_UTIL_GetCurTimeStamp(), m_aucAppName, ZOR_UTIL_GetCurPid(), OrEmpty(module),
                                   OrEmpty(file), static_cast<int>(line));
  if (wanted < 1) return false;
  const std::size_t length = std::min(static_cast<std::size_t>(wanted), sizeof header - 1);
  if (std::fwrite(header, 1, length, stream) != length) std::puts("ZOR_TRACE_PrintInfo write file failed. ");
  return true;
}

}  // namespace

uint32_t ZOR_TRACE_PrintInfo(const char *file, uint32_t line, uint32_t force, const char *module, uint32_t level,
                             const char *format, ...) {
  if (force == 0 && !zor::IsTraced(module, level)) return 0;
  if (format == nullptr) return 0;
  std::FILE *stream = zor::TraceStream();
  if (!WriteHeader(stream, file, line, module, level)) return 0;
  std::va_list arguments;
  va_start(arguments, format);
  std::vfprintf(stream, format, arguments);
  va_end(arguments);
  zor::FinishTraceLine(stream);
  return 1;
}

uint32_t ZOR_TRACE_PrintInfoEx(const char *module, uint32_t level, const char *format, ...) {
  if (!zor::IsTraced(module, level) || format == nullptr) return 0;
  std::FILE *stream = zor::TraceStream();
  std::va_list arguments;
  va_start(arguments, format);
  std::vfprintf(stream, format, arguments);
  va_end(arguments);
  zor::FinishTraceLine(stream);
  return 1;
}

int32_t ZOR_UTIL_GetCurPid(void) {
  // Read once for each thread, so a forked child goes on under its parent's number.
  static thread_local int32_t pid = -1;
  if (pid == -1) pid = ::getpid();
  return pid;
}

const char *ZOR_UTIL_GetCurTimeStamp(void) {
  static char text[40];
  struct timeval wall = {};
  if (::gettimeofday(&wall, nullptr) != 0) return text;
  ZOR_SYS_TIME monotonic = {};
  ZOR_UTIL_GetSysTime(&monotonic);
  std::snprintf(text, sizeof text, "%-.8ld.%-.6ld %-.8ld.%-.6ld", static_cast<long>(wall.tv_sec),
                static_cast<long>(wall.tv_usec), static_cast<long>(monotonic.seconds),
                static_cast<long>(monotonic.microseconds));
  return text;
}
