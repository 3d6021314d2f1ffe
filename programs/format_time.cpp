#include "programs/format_time.h"

namespace zor::daemon {

std::string FormatTime(std::time_t time, const char *format, std::tm *(*toParts)(const std::time_t *, std::tm *)) {
  char text[64];
  std::tm parts = {};
  if (toParts(&time, &parts) == nullptr) return "-";
  return {text, std::strftime(text, sizeof text, format, &parts)};
}

}  // namespace zor::daemon
