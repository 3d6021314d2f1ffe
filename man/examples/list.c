#include <stdio.h>
#include <stdlib.h>
#include <zor/platform/list.h>
#include <zor/platform/memory.h>

typedef struct Lamp {
  struct Lamp *next; /* the link comes first */
  int number;
} Lamp;

static uint32_t HasNumber(const void *item, const void *key) {
  return ((const Lamp *)item)->number == *(const int *)key;
}

int main(void) {
  Lamp *lamps = NULL;
  for (int number = 1; number <= 3; ++number) {
    void *name = NULL; /* 8 bytes behind the record, in the same block */
    Lamp *lamp = ZOR_UTIL_CallocVarg(sizeof *lamp, 8, &name);
    if (lamp == NULL) return 1;
    lamp->number = number;
    ZOR_UTIL_ListAppend(&lamps, lamp);
  }
  const int wanted = 2;
  ZOR_UTIL_ListDeleteItem(&lamps, ZOR_UTIL_ListFindItem(&lamps, HasNumber, &wanted), NULL);
  printf("%u left\n", (unsigned)ZOR_UTIL_ListGetCount(&lamps));
  ZOR_UTIL_ListDeleteAll(&lamps, NULL);
  return 0;
}

/* Prints:
 * 2 left
 */
