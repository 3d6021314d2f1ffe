#include <stdio.h>
#include <zor/platform/config.h>
#include <zor/platform/config_list.h>

#define LAMP_COLOUR 0x70000003u

static void OnEntry(const ZOR_STORE_ENTRY *entry, void *context) {
  unsigned *count = context;
  ++*count;
  if (entry->kind == ZOR_STORE_KIND_PARAMETER && entry->id == LAMP_COLOUR) {
    printf("instance %u: %u bytes\n", (unsigned)entry->instance, (unsigned)entry->size);
  }
}

int main(void) {
  ZOR_DBSetPara(LAMP_COLOUR, 0, "red", sizeof "red");
  unsigned count = 0;
  if (ZOR_STORE_List(OnEntry, &count) != ZOR_STORE_OK) return 1;
  return count > 0 ? 0 : 1;
}

/* Prints:
 * instance 0: 4 bytes
 */
