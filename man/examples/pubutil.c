#include <stdio.h>
#include <zor/msg.h>
#include <zor/pubutil.h>

int main(void) {
  if (ZOR_MSG_Init("menu") != ZOR_OK) return 1;
  const uint32_t status = ZOR_UTIL_PostLua("main", "refresh()"); /* one-way: 0 also when there is no web daemon */
  printf("sent: %u\n", (unsigned)status);
  return 0;
}

/* Prints:
 * sent: 0
 */
