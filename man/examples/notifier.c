#include <stdio.h>
#include <stdlib.h>
#include <zor/notifier.h>

static uint32_t StartModule(uintptr_t context, uintptr_t data) {
  (void)context;
  printf("start %s\n", (const char *)data);
  return 0;
}

int main(void) {
  ZOR_NOTIFIER_CHAIN *chain = NULL;
  if (ZOR_UTIL_NotifierInit(0, &chain) != 0) return 1;
  ZOR_NOTIFIER_NODE *web = NULL;
  ZOR_NOTIFIER_NODE *net = NULL;
  ZOR_UTIL_NotifierRegister(chain, StartModule, 20, (uintptr_t) "web", &web);
  ZOR_UTIL_NotifierRegister(chain, StartModule, 10, (uintptr_t) "net", &net);
  const uint32_t status = ZOR_UTIL_NotifierDoNotifyEx(chain, 1, NULL); /* the first failure ends the run */
  ZOR_UTIL_NotifierUnRegister(chain, web);
  ZOR_UTIL_NotifierUnRegister(chain, net);
  free(chain);
  return (int)status;
}

/* Prints:
 * start net
 * start web
 */
