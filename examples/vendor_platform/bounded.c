/* zor/platform/bounded.h. */
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <zor/platform/bounded.h>

static int IsField(const void *destination, size_t size) {
  return destination != NULL && size > 0 && size <= ZOR_BOUNDED_MAX;
}

int memcpy_s(void *destination, size_t size, const void *source, size_t count) {
  if (!IsField(destination, size)) return EINVAL;
  const uintptr_t to = (uintptr_t)destination;
  const uintptr_t from = (uintptr_t)source;
  const int overlaps = to != from && (to > from ? to - from < count : from - to < count);
  if (source == NULL || count > size || overlaps) {
    memset(destination, 0, size);
    return source == NULL ? EINVAL : ERANGE;
  }
  memmove(destination, source, count);
  return 0;
}

int memset_s(void *destination, size_t size, int value, size_t count) {
  if (!IsField(destination, size)) return EINVAL;
  memset(destination, value, count < size ? count : size);
  return count > size ? ERANGE : 0;
}

int strncpy_s(char *destination, size_t size, const char *source, size_t count) {
  if (!IsField(destination, size)) return EINVAL;
  const size_t length = source == NULL ? 0 : strnlen(source, count < size ? count : size);
  const size_t kept = length < size ? length : size - 1;
  if (kept > 0) memmove(destination, source, kept);
  destination[kept] = '\0';
  if (source == NULL) return EINVAL;
  return kept < length ? ERANGE : 0;
}

int strcpy_s(char *destination, size_t size, const char *source) {
  return strncpy_s(destination, size, source, ZOR_BOUNDED_MAX);
}

int snprintf_s(char *destination, size_t size, size_t count, const char *format, ...) {
  if (!IsField(destination, size)) return -1;
  destination[0] = '\0';
  if (format == NULL) return -1;
  const size_t room = count < size ? count + 1 : size;
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(destination, room, format, arguments);
  va_end(arguments);
  if (length < 0) destination[0] = '\0';
  return length >= 0 && (size_t)length < room ? length : -1;
}

/* Behind the conversion whose '%' is before at; null when it stores text without a bound, or is none. */
static const char *BehindConversion(const char *at) {
  int bounded = *at == '*';
  at += bounded;
  for (; *at >= '0' && *at <= '9'; ++at) bounded |= *at != '0';
  for (; *at != '\0' && strchr("hlLqjztm", *at) != NULL; ++at) bounded |= *at == 'm';
  if (*at == '\0' || *at == '$') return NULL;
  if (strchr("sS[", *at) != NULL && !bounded) return NULL;
  if (*at++ != '[') return at;
  if (*at == '^') ++at;
  if (*at == ']') ++at; /* as the first of a set it belongs to it */
  at += strcspn(at, "]");
  return *at == '\0' ? at : at + 1;
}

int sscanf_s(const char *text, const char *format, ...) {
  if (text == NULL || format == NULL) return -1;
  for (const char *at = strchr(format, '%'); at != NULL; at = strchr(at, '%')) {
    at = BehindConversion(at + 1);
    if (at == NULL) return -1;
  }
  va_list arguments;
  va_start(arguments, format);
  const int fields = vsscanf(text, format, arguments);
  va_end(arguments);
  return fields;
}
