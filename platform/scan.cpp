#include <zor/platform/bounded.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// Behind the set of a "%[" conversion, whose "[" was the last character read. A "]" that comes first belongs to it.
const char *SkipSet(const char *at) {
  if (*at == '^') ++at;
  if (*at == ']') ++at;
  while (*at != '\0' && *at != ']') ++at;
  return *at == '\0' ? at : at + 1;
}

// Behind one conversion, whose "%" was the last character read; null when nothing bounds what it stores.
const char *SkipBoundedConversion(const char *at) {
  bool bounded = *at == '*';
  if (bounded) ++at;
  for (; IsDigit(*at); ++at) bounded = bounded || *at != '0';
  for (; *at != '\0' && std::strchr("hlLqjztm", *at) != nullptr; ++at) bounded = bounded || *at == 'm';
  if (*at == '\0' || *at == '$') return nullptr;
  if (std::strchr("sS[", *at) != nullptr && !bounded) return nullptr;
  return *at == '[' ? SkipSet(at + 1) : at + 1;
}

bool IsBounded(const char *format) {
  const char *at = format;
  while ((at = std::strchr(at, '%')) != nullptr) {
    at = SkipBoundedConversion(at + 1);
    if (at == nullptr) return false;
  }
  return true;
}

}  // namespace

int sscanf_s(const char *text, const char *format, ...) {
  if (text == nullptr || format == nullptr || !IsBounded(format)) return -1;
  va_list arguments;
  va_start(arguments, format);
  const int fields = std::vsscanf(text, format, arguments);
  va_end(arguments);
  return fields;
}
