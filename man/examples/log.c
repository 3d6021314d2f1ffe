#include <stdio.h>
#include <zor/log.h>
#include <zor/msg.h>

int main(void) {
  if (ZOR_MSG_Init("web") != ZOR_OK) return 1;
  const ZOR_LOG_ITEM *item = ZOR_UTIL_LogItemFindByIdx(0x05000000);
  if (item == NULL) return 1;
  printf("%s: %s\n", ZOR_UTIL_LOG_GetLevelString(item->typeLevel, 0), ZOR_UTIL_LogItemGetFmtStr(item, 0));
  ZOR_LOG_API_Record_Log(item->index, "admin", "192.168.8.2", (char *)0); /* a null pointer ends the parameters */
  uint32_t count = 0; /* how many records of this type and level went to the file */
  const uint32_t status = ZOR_LOG_API_Query_Items("/var/syslog/example", 0, item->typeLevel >> ZOR_LOG_TYPE_SHIFT,
                                                  item->typeLevel & ZOR_LOG_LEVEL_MASK, 0, &count);
  printf("status %u, %u record\n", (unsigned)status, (unsigned)count);
  return 0;
}

/* Prints:
 * Notice: User $0 login from $1 successfully
 * status 0, 1 record
 */
