#include <stdio.h>
#include <string.h>
#include <zor/notify_rejoin.h>
#include <zor/notifyclt.h>
#include <zor/uv.h>

#define OWN_MODULE 61u
#define LAMP_CHANGED 0x10u
#define LAMP_WANTED 0x11u

static uint32_t OnLampChanged(void *part1, void *part2) {
  uint32_t lamp = 0;
  uint32_t on = 0;
  memcpy(&lamp, part1, sizeof lamp);
  memcpy(&on, part2, sizeof on);
  printf("lamp %u: %u\n", (unsigned)lamp, (unsigned)on);
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
  return 0;
}

static void OnLink(uint32_t event, void *data) {
  const uint32_t lamp = *(const uint32_t *)data;
  if (event != ZOR_NOTIFYCLT_LINK_REJOINED) return;
  /* The handlers are still there, but notifications have passed by: ask for the state. */
  ZOR_NOTIFYCLT_PostSimpleAsynNotify(OWN_MODULE, LAMP_WANTED, lamp, 0);
}

int main(void) {
  static uint32_t lamp = 3;
  if (ZOR_NOTIFYCLT_Init(OWN_MODULE) != ZOR_NOTIFY_OK) return 1;
  ZOR_NOTIFYCLT_RegAsyncMsgProc(LAMP_CHANGED, OnLampChanged);
  if (ZOR_NOTIFYCLT_EnableRejoin(NULL) != ZOR_NOTIFY_OK) return 1;
  if (ZOR_NOTIFYCLT_SetLinkProc(OnLink, &lamp) != ZOR_NOTIFY_OK) return 1;

  ZOR_NOTIFYCLT_PostSimpleAsynNotify(OWN_MODULE, LAMP_CHANGED, lamp, 1); /* here: to itself */
  return (int)ZOR_UV_LoopRun(NULL, 5000);
}

/* Prints:
 * lamp 3: 1
 */
