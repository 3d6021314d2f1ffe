#include <zor/platform/bounded.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

bool IsField(const void *destination, size_t size) {
  return destination != nullptr && size != 0 && size <= ZOR_BOUNDED_MAX;
}

// A field may be copied onto itself.
bool Overlap(const void *a, const void *b, size_t count) {
  const auto first = reinterpret_cast<uintptr_t>(a);
  const auto second = reinterpret_cast<uintptr_t>(b);
  if (first == second) return false;
  return first > second ? first - second < count : second - first < count;
}

}  // namespace

int memcpy_s(void *destination, size_t size, const void *source, size_t count) {
  if (!IsField(destination, size)) return EINVAL;
  if (source == nullptr || count > size || Overlap(destination, source, count)) {
    std::memset(destination, 0, size);
    return source == nullptr ? EINVAL : ERANGE;
  }
  std::memmove(destination, source, count);
  return 0;
}

int memset_s(void *destination, size_t size, int value, size_t count) {
  if (!IsField(destination, size)) return EINVAL;
  std::memset(destination, value, std::min(count, size));
  return count > size ? ERANGE : 0;
}

int strcpy_s(char *destination, size_t size, const char *source) {
  return strncpy_s(destination, size, source, ZOR_BOUNDED_MAX);
}

int strncpy_s(char *destination, size_t size, const char *source, size_t count) {
  if (!IsField(destination, size)) return EINVAL;
  if (source == nullptr) {
    destination[0] = '\0';
    return EINVAL;
  }
  const size_t wanted = strnlen(source, std::min(count, size));
  const size_t length = std::min(wanted, size - 1);
  std::memmove(destination, source, length);
  destination[length] = '\0';
  return wanted > length ? ERANGE : 0;
}

int snprintf_s(char *destination, size_t size, size_t count, const char *format, ...) {
  if (!IsField(destination, size)) return -1;
  destination[0] = '\0';
  if (format == nullptr) return -1;
  const size_t room = std::min(size, count >= size ? size : count + 1);
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(destination, room, format, arguments);
  va_end(arguments);
  if (length < 0) destination[0] = '\0';
  return length >= 0 && static_cast<size_t>(length) < room ? length : -1;
}
