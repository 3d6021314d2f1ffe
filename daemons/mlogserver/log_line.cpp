#include "mlogserver/log_line.h"

#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <ctime>

namespace zor::mlogserver {
namespace {

// The control characters U+0080 to U+009F begin with this byte in UTF-8; a terminal obeys them like those of ASCII.
constexpr unsigned char kHighControlLead = 0xc2;

bool IsControl(unsigned char byte) {
  return byte < ' ' || byte == 0x7f;
}

bool IsHighControl(std::string_view text, size_t at) {
  if (static_cast<unsigned char>(text[at]) != kHighControlLead || at + 1 == text.size()) return false;
  const auto next = static_cast<unsigned char>(text[at + 1]);
  return next >= 0x80 && next < 0xa0;
}

void AppendEscaped(std::string &line, char character) {
  constexpr char kDigits[] = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(character);
  line += '\\';
  if (character == '\n') {
    line += 'n';
  } else if (character == '\t') {
    line += 't';
  } else {
    line += 'x';
    line += kDigits[byte >> 4];
    line += kDigits[byte & 0xf];
  }
}

void AppendPrintable(std::string &line, std::string_view text) {
  for (size_t at = 0; at < text.size(); ++at) {
    if (IsHighControl(text, at)) {
      AppendEscaped(line, text[at]);
      AppendEscaped(line, text[++at]);
    } else if (IsControl(static_cast<unsigned char>(text[at]))) {
      AppendEscaped(line, text[at]);
    } else {
      line += text[at];
    }
  }
}

std::string Finish(std::string line, std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  line.reserve(line.size() + text.size() + 1);
  AppendPrintable(line, text);
  line += '\n';
  return line;
}

}  // namespace

std::string LogLine(std::string_view text) {
  return Finish({}, text);
}

std::string NameOf(const Sender &sender) {
  return "pid=" + (sender.process == 0 ? "?" : std::to_string(sender.process)) + " " + NameOf(sender.user);
}

std::string NameOf(uid_t user) {
  return "uid=" + (user == kUnknownUser ? "?" : std::to_string(user));
}

std::string LogLine(const Sender &sender, std::string_view text) {
  return Finish("[" + NameOf(sender) + "]", text);
}

std::string OwnText(const char *format, ...) {
  timespec now = {};
  ::clock_gettime(CLOCK_BOOTTIME, &now);
  std::array<char, ZOR_MLOG_DATA_MAX> text;
  const long long milliseconds = static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
  const int before = std::snprintf(text.data(), text.size(), "[%011lld][mlogserver][WARN]:", milliseconds);
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data() + before, text.size() - static_cast<size_t>(before), format, arguments);
  va_end(arguments);
  return text.data();
}

}  // namespace zor::mlogserver
