#include <stdio.h>
#include <zor/wlan.h>

int main(void) {
  const uint8_t base[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
  uint8_t mac[6];
  if (ZOR_WLAN_GetWlanMacFromBaseMac(base, mac, sizeof mac) != 0) return 1;
  printf("%02x:%02x:%02x:%02x:%02x:%02x\n", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
  return 0;
}

/* Prints:
 * 00:11:22:33:44:5c
 */
