#include <stdio.h>
#include <zor/lctrl.h>
#include <zor/msg.h>

int main(void) {
  if (ZOR_MSG_Init("web") != ZOR_OK) return 1;
  const char request[ZOR_LCTRL_LOGIN_SIZE] = "admin"; /* a record of the service's */
  char result[ZOR_LCTRL_RESULT_SIZE] = "";
  const uint32_t status = ZOR_LCTRLAPI_Check(request, result);
  if (status == ZOR_E_PEER_GONE) printf("the login service is not on the bus\n");
  printf("wait %u before the next attempt\n", (unsigned)ZOR_LCTRLAPI_LoginWaitTime());
  return 0;
}

/* Prints:
 * the login service is not on the bus
 * wait 0 before the next attempt
 */
