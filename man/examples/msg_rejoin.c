#include <stdio.h>
#include <sys/socket.h>
#include <zor/event.h>
#include <zor/msg.h>
#include <zor/uv.h>

static void OnLink(uint32_t event, void *data) {
  (void)data;
  switch (event) {
    case ZOR_MSG_LINK_LOST:
      printf("lost: sends return %#x\n", (unsigned)ZOR_MSG_SendSimpleMsg("display", 0x4001, 0));
      break;
    case ZOR_MSG_LINK_REFUSED: /* another attempt follows */
      printf("refused\n");
      break;
    case ZOR_MSG_LINK_REJOINED:
      printf("on the bus again as %s\n", g_stMsgCtx.appName);
      ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
      break;
    default:
      break;
  }
}

int main(void) {
  if (ZOR_MSG_Init("thermometer") != ZOR_OK) return 1;
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  if (ZOR_MSG_SetLinkProc(OnLink, NULL) != ZOR_OK || ZOR_MSG_EnableRejoin(NULL) != ZOR_OK) return 1;
  ZOR_EVT_SubscribeAllEvent(); /* made once, and again after each loss */

  shutdown(g_stMsgCtx.socketFd, SHUT_RDWR); /* stands here for a restart of the server */
  return (int)ZOR_MSG_GetAndDispatch();
}

/* Prints:
 * lost: sends return 0x10004
 * on the bus again as thermometer
 */
