/* A daemon that is on the bus and waits for messages. */
#include <stdio.h>
#include <zor/msg.h>

int main(void) {
  if (ZOR_MSG_Init("idle") != ZOR_OK) return 1;
  if (puts("idle: ready") < 0 || fflush(stdout) != 0) return 1;
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_GetAndDispatch();
  return 0;
}
