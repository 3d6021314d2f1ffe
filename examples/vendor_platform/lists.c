/* zor/platform/list.h and zor/platform/memory.h. An item is known by its first member, a pointer to the next one. */
#include <stdlib.h>
#include <string.h>
#include <zor/platform/list.h>
#include <zor/platform/memory.h>

/* Records of other types begin with the link, so it is copied as bytes. */
static void *Next(const void *link) {
  void *item;
  memcpy(&item, link, sizeof item);
  return item;
}

static void SetNext(void *link, void *item) {
  memcpy(link, &item, sizeof item);
}

void *ZOR_UTIL_ListAppend(void *list, void *item) {
  if (list == NULL || item == NULL) return NULL;
  void *last = list;
  while (Next(last) != NULL) last = Next(last);
  SetNext(item, NULL);
  SetNext(last, item);
  return item;
}

uint32_t ZOR_UTIL_ListDeleteItemEx(void *list, void *item) {
  if (list == NULL || item == NULL) return 1;
  void *link = list;
  while (Next(link) != NULL && Next(link) != item) link = Next(link);
  if (Next(link) == NULL) return 1;
  SetNext(link, Next(item));
  return 0;
}

uint32_t ZOR_UTIL_ListDeleteItem(void *list, void *item, ZOR_LIST_DESTROY destroy) {
  if (ZOR_UTIL_ListDeleteItemEx(list, item) != 0) return 1;
  if (destroy != NULL) destroy(item);
  free(item);
  return 0;
}

void ZOR_UTIL_ListDeleteAll(void *list, ZOR_LIST_DESTROY destroy) {
  while (list != NULL && Next(list) != NULL) ZOR_UTIL_ListDeleteItem(list, Next(list), destroy);
}

void *ZOR_UTIL_ListFindItem(void *list, ZOR_LIST_MATCH match, const void *key) {
  if (list == NULL || match == NULL) return NULL;
  void *item = Next(list);
  while (item != NULL && match(item, key) == 0) item = Next(item);
  return item;
}

uint32_t ZOR_UTIL_ListGetCount(void *list) {
  uint32_t count = 0;
  for (void *at = list; at != NULL && Next(at) != NULL; at = Next(at)) ++count;
  return count;
}

void *ZOR_UTIL_CallocVarg(size_t recordSize, size_t variableSize, void **variable) {
  if (variable == NULL) return NULL;
  *variable = NULL;
  if (recordSize == 0 || variableSize == 0 || variableSize > SIZE_MAX - recordSize) return NULL;
  char *record = calloc(1, recordSize + variableSize);
  if (record != NULL) *variable = record + recordSize;
  return record;
}
