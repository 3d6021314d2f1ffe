#include <zor/nvpair.h>

#include <cstdio>
#include <cstring>

#include "base/alloc.h"
#include "base/list.h"

namespace {

void ReleaseTexts(void *item) {
  auto *pair = static_cast<ZOR_NVPAIR *>(item);
  std::free(pair->name);
  std::free(pair->value);
}

}  // namespace

ZOR_NVPAIR *ZOR_UTIL_NVPairFindByName(ZOR_NVPAIR *list, const char *name) {
  if (name == nullptr) return nullptr;
  return zor::Find(
      list, [name](const ZOR_NVPAIR &pair) { return pair.name != nullptr && std::strcmp(pair.name, name) == 0; });
}

ZOR_NVPAIR *ZOR_UTIL_NVPairSet(ZOR_NVPAIR **list, const char *name, const char *value) {
  if (list == nullptr || name == nullptr || value == nullptr) return nullptr;
  // Copied before anything is released: it may be the value that it replaces.
  zor::MallocPtr<char> valueCopy(::strdup(value));
  if (valueCopy == nullptr) return nullptr;
  if (ZOR_NVPAIR *pair = ZOR_UTIL_NVPairFindByName(*list, name)) {
    std::free(pair->value);
    pair->value = valueCopy.release();
    return pair;
  }
  zor::MallocPtr<ZOR_NVPAIR> pair = zor::GuardedNew<ZOR_NVPAIR>();
  zor::MallocPtr<char> nameCopy(::strdup(name));
  if (pair == nullptr || nameCopy == nullptr) return nullptr;
  pair->name = nameCopy.release();
  pair->value = valueCopy.release();
  zor::Append(*list, pair.get());
  return pair.release();
}

const char *ZOR_UTIL_NVPairGetValue(ZOR_NVPAIR *list, const char *name) {
  const ZOR_NVPAIR *pair = ZOR_UTIL_NVPairFindByName(list, name);
  return pair == nullptr ? nullptr : pair->value;
}

void ZOR_UTIL_NVPairDelByName(ZOR_NVPAIR **list, const char *name) {
  if (list == nullptr) return;
  ZOR_NVPAIR *pair = ZOR_UTIL_NVPairFindByName(*list, name);
  if (pair != nullptr) ZOR_UTIL_ListDeleteItem(list, pair, ReleaseTexts);
}

void ZOR_UTIL_NVPairDelAll(ZOR_NVPAIR **list) {
  if (list != nullptr) ZOR_UTIL_ListDeleteAll(list, ReleaseTexts);
}

void ZOR_UTIL_NVPairPrint(ZOR_NVPAIR *list) {
  std::printf("Print NVPair for [%p] now ...\n", static_cast<void *>(list));
}
