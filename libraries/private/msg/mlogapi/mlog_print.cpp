#include <zor/mlog.h>
#include <zor/platform/bounded.h>

#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "common/ascii.h"
#include "mlogapi/client_socket.h"

namespace zor {
namespace {

struct Level {
  const char *name;
  std::uint32_t value;
};

constexpr std::array<Level, 5> kLevels = {{
    {"NONE", ZOR_MLOG_NONE},
    {"FATL", ZOR_MLOG_FATAL},
    {"ERRO", ZOR_MLOG_ERROR},
    {"WARN", ZOR_MLOG_WARNING},
    {"INFO", ZOR_MLOG_INFO},
}};

// A line at its longest, without the NUL.
constexpr std::size_t kLineMax = ZOR_MLOG_DATA_MAX - 1;

// Boot time runs on through suspend, so the lines of all daemons compare whatever the wall clock does.
long long BootTimeMs() {
  timespec now = {};
  if (::clock_gettime(CLOCK_BOOTTIME, &now) != 0) {
    std::perror("syscall:__NR_clock_gettime");
    return 0;
  }
  return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Writes the line and returns its length without the NUL. A cut line gets no newline, which shows readers that the
// rest is missing.
std::size_t FormatLine(char (&line)[ZOR_MLOG_DATA_MAX], const char *tag, std::uint32_t level, const char *format,
                       va_list arguments) {
  const char *name = mlog_get_log_lv_string(level);
  snprintf_s(line, sizeof line, kLineMax, "[%011lld][%s][%s]:", BootTimeMs(), tag, name == nullptr ? "" : name);
  std::size_t length = std::strlen(line);
  if (std::vsnprintf(line + length, sizeof line - length, format, arguments) < 0) line[length] = '\0';
  length += std::strlen(line + length);
  if (length < kLineMax && line[length - 1] != '\n') {
    line[length++] = '\n';
    line[length] = '\0';
  }
  return length;
}

}  // namespace
}  // namespace zor

const char *mlog_get_log_lv_string(uint32_t level) {
  for (const zor::Level &entry : zor::kLevels) {
    if (entry.value == level) return entry.name;
  }
  return nullptr;
}

uint32_t mlog_get_log_lv(const char *name) {
  if (name == nullptr) return 0;
  for (const zor::Level &entry : zor::kLevels) {
    if (zor::StartsWithIgnoringCase(entry.name, name)) return entry.value;
  }
  return 0;
}

int32_t mlog_print(const char *tag, uint32_t level, const char *format, ...) {
  if (tag == nullptr || format == nullptr) return -1;
  zor::ClientSocket socket(tag);
  if (!socket.valid()) return -1;
  ZOR_MLOG_MSG msg;
  va_list arguments;
  va_start(arguments, format);
  const std::size_t length = zor::FormatLine(msg.data, tag, level, format, arguments);
  va_end(arguments);
  msg.type = ZOR_MLOG_LINE;
  msg.length = static_cast<uint32_t>(length + 1);
  mlog_send_msg(socket.fd(), &msg,
                ZOR_MLOG_SERVER_NAME);  // without the log daemon the line is lost: no caller waits for the log
  if (level <= ZOR_MLOG_FATAL) std::printf("%s", msg.data);
  return socket.Close();
}
