#include <stdio.h>
#include <stdlib.h>
#include <zor/kiva.h>
#include <zor/msg.h>

int main(void) {
  if (ZOR_MSG_Init("upgrader") != ZOR_OK) return 1;
  char mac[] = "001122AABBCC";
  const dev_kiva_info added = {{0, 0, ZOR_KIVA_STATE_LOADING, 0, ZOR_KIVA_NEEDS_UPDATE}, mac, NULL, NULL};
  if (ZOR_UPG_AddDevKivaInfoSync(&added) != 0) return 1; /* cms changes the list */
  ZOR_UPG_UpdateKivaStateExSync(mac, ZOR_KIVA_STATE_KEPT);
  dev_kiva_info *info = ZOR_UPG_GetKivaInfoByMac(mac); /* reading needs no request */
  if (info == NULL) return 1;
  printf("%s: state %u, needs an update: %u\n", info->mac, (unsigned)info->status.state,
         (unsigned)ZOR_UPG_IsDevNeedUpdate(mac));
  ZOR_UPG_DestroyKivaInfo(info);
  free(info);
  return (int)ZOR_UPG_RemoveDevKivaInfoSync(mac);
}

/* Prints:
 * 001122AABBCC: state 18, needs an update: 1
 */
