#include <stdio.h>
#include <zor/nvpair.h>

int main(void) {
  ZOR_NVPAIR *list = NULL; /* the empty list */
  ZOR_UTIL_NVPairSet(&list, "Mac", "00:11:22:33:44:55");
  ZOR_UTIL_NVPairSet(&list, "Name", "phone");
  ZOR_UTIL_NVPairSet(&list, "Name", "tablet"); /* replaces the value */
  printf("%s\n", ZOR_UTIL_NVPairGetValue(list, "Name"));
  ZOR_UTIL_NVPairDelAll(&list);
  return 0;
}

/* Prints:
 * tablet
 */
