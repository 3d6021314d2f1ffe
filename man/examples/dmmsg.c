#include <stdio.h>
#include <zor/dmmsg.h>
#include <zor/msg.h>
#include <zor/uv.h>

static void OnManagement(ZOR_MSG_HEAD *msg) {
  const ZOR_DMMSG_HEAD *dm = ZOR_MSG_GetMsgByHead(msg);
  const void *iterator = NULL;
  ZOR_DMMSG_ITEM item;
  while (ZOR_DMMSG_GetItem(dm, &item, &iterator) == 0) { /* texts may lack their NUL: print them with their lengths */
    printf("%.*s = %.*s\n", (int)item.nameLength, item.name, (int)item.valueLength, (const char *)item.value);
  }
  printf("sub-type %u\n", (unsigned)ZOR_DMMSG_GetSubType(dm));
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

int main(void) {
  if (ZOR_MSG_Init("manager") != ZOR_OK) return 1;
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_RegMsgProc(ZOR_MSG_DM, OnManagement, 0, NULL);
  ZOR_DMMSG_HEAD *dm = NULL;
  if (ZOR_DMMSG_Builder(&dm, "manager", 7) != 0) return 1; /* here: to itself */
  ZOR_DMMSG_AppendItem(&dm, 1, "Enable", "1", sizeof "1"); /* may move the message: dm changes */
  ZOR_DMMSG_AppendItem(&dm, 1, "Name", "guest", sizeof "guest");
  const uint32_t status = ZOR_DMMSG_Send(dm);
  ZOR_DMMSG_Free(dm);
  return status != 0 ? 1 : (int)ZOR_UV_LoopRun(NULL, 5000);
}

/* Prints:
 * Enable = 1
 * Name = guest
 * sub-type 7
 */
