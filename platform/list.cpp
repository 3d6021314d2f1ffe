// Items are records of other modules, known here only by their first word, so links are read and written as bytes.
#include <zor/platform/list.h>

#include <cstdlib>
#include <cstring>

namespace {

void *Load(const void *link) {
  void *item;
  std::memcpy(&item, link, sizeof item);
  return item;
}

void Store(void *link, void *item) {
  std::memcpy(link, &item, sizeof item);
}

// The link that points at the item, or null when the item is not on the list.
void *LinkTo(void *list, const void *item) {
  void *link = list;
  while (void *current = Load(link)) {
    if (current == item) return link;
    link = current;
  }
  return nullptr;
}

}  // namespace

void *ZOR_UTIL_ListAppend(void *list, void *item) {
  if (list == nullptr || item == nullptr) return nullptr;
  void *link = list;
  while (void *current = Load(link)) link = current;
  Store(item, nullptr);
  Store(link, item);
  return item;
}

uint32_t ZOR_UTIL_ListDeleteItemEx(void *list, void *item) {
  if (list == nullptr || item == nullptr) return 1;
  void *link = LinkTo(list, item);
  if (link == nullptr) return 1;
  Store(link, Load(item));
  return 0;
}

uint32_t ZOR_UTIL_ListDeleteItem(void *list, void *item, ZOR_LIST_DESTROY destroy) {
  if (ZOR_UTIL_ListDeleteItemEx(list, item) != 0) return 1;
  if (destroy != nullptr) destroy(item);
  std::free(item);
  return 0;
}

void ZOR_UTIL_ListDeleteAll(void *list, ZOR_LIST_DESTROY destroy) {
  if (list == nullptr) return;
  while (void *item = Load(list)) {
    Store(list, Load(item));
    if (destroy != nullptr) destroy(item);
    std::free(item);
  }
}

void *ZOR_UTIL_ListFindItem(void *list, ZOR_LIST_MATCH match, const void *key) {
  if (list == nullptr || match == nullptr) return nullptr;
  for (void *item = Load(list); item != nullptr; item = Load(item)) {
    if (match(item, key) != 0) return item;
  }
  return nullptr;
}

uint32_t ZOR_UTIL_ListGetCount(void *list) {
  uint32_t count = 0;
  if (list == nullptr) return 0;
  for (void *item = Load(list); item != nullptr; item = Load(item)) ++count;
  return count;
}
