#include <stdio.h>
#include <zor/blur.h>

int main(void) {
  printf("%s\n", ZOR_Blur_Ip("address 192.168.8.20"));
  printf("%s\n", ZOR_Blur_SSID("my network"));
  char mac[18];
  if (ZOR_UTIL_Disguise_MacAddress(0, "00:11:22:33:44:55", mac, sizeof mac) != 0) return 1;
  printf("%s\n", mac);
  return 0;
}

/* Prints:
 * address ***.***.*.**
 * m********k
 * **:**:**:**:**:**
 */
