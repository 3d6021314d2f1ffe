#include <zor/platform/text.h>

#include "common/ascii.h"

int32_t ZOR_UTIL_GetIdxFromStr(const char *const *names, const char *text) {
  if (names == nullptr || text == nullptr) return -1;
  for (int32_t index = 0; names[index] != nullptr; ++index) {
    if (zor::EqualIgnoringCase(names[index], text)) return index;
  }
  return -1;
}

const char *ZOR_UTIL_GetStrFromIdx(const char *const *names, int32_t index) {
  if (names == nullptr || index < 0) return nullptr;
  for (; *names != nullptr && index > 0; --index) ++names;
  return *names;
}

int32_t ZOR_UTIL_StrIdxArrayGetIdxByStr(const ZOR_STR_IDX *pairs, uint32_t count, const char *text) {
  if (pairs == nullptr || text == nullptr) return -1;
  for (const ZOR_STR_IDX *pair = pairs; pair != pairs + count; ++pair) {
    if (pair->text != nullptr && zor::EqualIgnoringCase(pair->text, text)) return pair->index;
  }
  return -1;
}

const char *ZOR_UTIL_StrIdxArrayGetStrByIdx(const ZOR_STR_IDX *pairs, uint32_t count, int32_t index) {
  if (pairs == nullptr) return nullptr;
  for (const ZOR_STR_IDX *pair = pairs; pair != pairs + count; ++pair) {
    if (pair->index == index) return pair->text;
  }
  return nullptr;
}

uint32_t ZOR_UTIL_Strip_Separator(const char *text, char separator, char *out, size_t size) {
  if (text == nullptr || out == nullptr || size == 0) return 1;
  size_t length = 0;
  for (; *text != '\0' && length + 1 < size; ++text) {
    if (*text != separator) out[length++] = *text;
  }
  while (*text != '\0' && *text == separator) ++text;
  const bool cut = *text != '\0';
  out[length] = '\0';
  return cut ? 1 : 0;
}
