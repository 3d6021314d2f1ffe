#include <stdio.h>
#include <string.h>
#include <zor/notifyclt.h>
#include <zor/uv.h>

#define OWN_MODULE 60u
#define LAMP_CHANGED 0x10u

static uint32_t OnLampChanged(void *part1, void *part2) {
  uint32_t lamp = 0;
  uint32_t on = 0;
  memcpy(&lamp, part1, sizeof lamp);
  memcpy(&on, part2, sizeof on);
  printf("lamp %u: %u\n", (unsigned)lamp, (unsigned)on);
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
  return 0;
}

int main(void) {
  if (ZOR_NOTIFYCLT_Init(OWN_MODULE) != ZOR_NOTIFY_OK) return 1;
  ZOR_NOTIFYCLT_RegAsyncMsgProc(LAMP_CHANGED, OnLampChanged);
  ZOR_NOTIFYCLT_PostSimpleAsynNotify(OWN_MODULE, LAMP_CHANGED, 3, 1); /* here: to itself */
  return (int)ZOR_UV_LoopRun(NULL, 5000);
}

/* Prints:
 * lamp 3: 1
 */
