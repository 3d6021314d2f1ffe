#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zor/msg.h>
#include <zor/uv.h>

#define PICTURE 0x4002u

static void OnPicture(ZOR_MSG_HEAD *msg) {
  const char *body = ZOR_MSG_GetMsgByHead(msg); /* whole, however it travelled; null for an empty one */
  printf("received %u bytes, the last is %c\n", (unsigned)msg->bodyLength, body[msg->bodyLength - 1]);
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

int main(void) {
  if (ZOR_MSG_Init("painter") != ZOR_OK) return 1;
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_RegMsgProc(PICTURE, OnPicture, 0, NULL);

  const uint32_t size = 1024 * 1024; /* more than ZOR_MSG_INLINE_BODY_MAX: travels in a file */
  char *picture = malloc(size);
  if (picture == NULL) return 1;
  memset(picture, 'x', size);
  const uint32_t status = ZOR_MSG_SendMsgData("painter", PICTURE, picture, size); /* here: to itself */
  free(picture);                                                                  /* the message was copied */
  if (status == ZOR_E_BODY_FILE) printf("no room in /var/run/msg\n");
  return status != ZOR_OK ? 1 : (int)ZOR_UV_LoopRun(NULL, 5000);
}

/* Prints:
 * received 1048576 bytes, the last is x
 */
