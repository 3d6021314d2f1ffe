/* zor/platform/text.h. */
#include <stdlib.h>
#include <string.h>
#include <zor/platform/text.h>

/* Whatever the locale, as names of a protocol are compared. */
static int Lower(char c) {
  return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c;
}

static int IsSame(const char *a, const char *b) {
  while (*a != '\0' && Lower(*a) == Lower(*b)) ++a, ++b;
  return *a == *b;
}

int32_t ZOR_UTIL_GetIdxFromStr(const char *const *names, const char *text) {
  if (names == NULL || text == NULL) return -1;
  for (int32_t index = 0; names[index] != NULL; ++index) {
    if (IsSame(names[index], text)) return index;
  }
  return -1;
}

const char *ZOR_UTIL_GetStrFromIdx(const char *const *names, int32_t index) {
  if (names == NULL || index < 0) return NULL;
  int32_t at = 0;
  while (at < index && names[at] != NULL) ++at;
  return names[at];
}

int32_t ZOR_UTIL_StrIdxArrayGetIdxByStr(const ZOR_STR_IDX *pairs, uint32_t count, const char *text) {
  for (uint32_t i = 0; pairs != NULL && text != NULL && i < count; ++i) {
    if (pairs[i].text != NULL && IsSame(pairs[i].text, text)) return pairs[i].index;
  }
  return -1;
}

const char *ZOR_UTIL_StrIdxArrayGetStrByIdx(const ZOR_STR_IDX *pairs, uint32_t count, int32_t index) {
  for (uint32_t i = 0; pairs != NULL && i < count; ++i) {
    if (pairs[i].index == index) return pairs[i].text;
  }
  return NULL;
}

uint32_t ZOR_UTIL_Strip_Separator(const char *text, char separator, char *out, size_t size) {
  if (text == NULL || out == NULL || size == 0) return 1;
  size_t length = 0;
  uint32_t isCut = 0;
  for (; *text != '\0'; ++text) {
    if (*text == separator) continue;
    isCut = length + 1 == size;
    if (isCut) break;
    out[length++] = *text;
  }
  out[length] = '\0';
  return isCut;
}

static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

char *ZOR_UTIL_Base64Encode(const void *data, uint32_t length) {
  const unsigned char *bytes = data;
  char *text = data == NULL ? NULL : malloc(((size_t)length + 2) / 3 * 4 + 1);
  if (text == NULL) return NULL;
  char *out = text;
  for (size_t at = 0; at < length; at += 3) {
    const size_t count = length - at < 3 ? length - at : 3;
    const unsigned second = count > 1 ? bytes[at + 1] : 0;
    const unsigned third = count > 2 ? bytes[at + 2] : 0;
    const unsigned group = (unsigned)bytes[at] << 16 | second << 8 | third;
    *out++ = kDigits[group >> 18];
    *out++ = kDigits[group >> 12 & 63];
    *out++ = count > 1 ? kDigits[group >> 6 & 63] : '=';
    *out++ = count > 2 ? kDigits[group & 63] : '=';
  }
  *out = '\0';
  return text;
}

/* Bits of the last digit that belong to no byte, by the number of digits in a group of four. */
static const unsigned kSpareBits[] = {0, 6, 4, 2};

/* Writes the bytes and returns their number; -1 for a text that is not base64. */
static ptrdiff_t Decode(const char *text, char *out) {
  char *const begin = out;
  unsigned group = 0, digits = 0, pads = 0;
  for (; *text != '\0'; ++text) {
    if (strchr(" \t\n\v\f\r", *text) != NULL) continue;
    if (*text == '=') {
      ++pads;
      continue;
    }
    const char *digit = strchr(kDigits, *text);
    if (digit == NULL || pads > 0) return -1;
    group = group << 6 | (unsigned)(digit - kDigits);
    ++digits;
    if (digits % 4 != 1) *out++ = (char)(group >> kSpareBits[digits % 4]);
  }
  const unsigned rest = digits % 4;
  const unsigned spare = group & ((1u << kSpareBits[rest]) - 1);
  return rest == 1 || pads != (4 - rest) % 4 || spare != 0 ? -1 : out - begin;
}

char *ZOR_UTIL_Base64Decode(const char *text, uint32_t *length) {
  if (length != NULL) *length = 0;
  char *bytes = text == NULL ? NULL : malloc(strlen(text) + 1);
  if (bytes == NULL) return NULL;
  const ptrdiff_t count = Decode(text, bytes);
  if (count < 0) {
    free(bytes);
    return NULL;
  }
  bytes[count] = '\0';
  if (length != NULL) *length = (uint32_t)count;
  return bytes;
}
