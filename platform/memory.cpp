#include <zor/platform/memory.h>

#include <cstdint>
#include <cstdlib>

void *ZOR_UTIL_CallocVarg(size_t recordSize, size_t variableSize, void **variable) {
  if (variable == nullptr) return nullptr;
  *variable = nullptr;
  if (recordSize == 0 || variableSize == 0 || variableSize > SIZE_MAX - recordSize) return nullptr;
  auto *record = static_cast<char *>(std::calloc(1, recordSize + variableSize));
  if (record != nullptr) *variable = record + recordSize;
  return record;
}
