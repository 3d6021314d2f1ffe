#include <stdio.h>
#include <stdlib.h>
#include <zor/url.h>

int main(void) {
  int32_t protocol = -1;
  char *host = NULL;
  char *path = NULL;
  uint32_t port = 0;
  if (ZOR_UTIL_ParseUrl("http://gateway/a page", &protocol, &host, &port, &path) == 0) return 1;
  printf("%s, port %u, %s\n", host, (unsigned)port, path);
  free(host);
  free(path);
  char *value = ZOR_UTIL_UrlEncode("a&b c");
  if (value == NULL) return 1;
  printf("%s\n", value);
  free(value);
  return protocol == ZOR_URL_HTTP ? 0 : 1;
}

/* Prints:
 * gateway, port 80, /a%20page
 * urlencode dst len 8.
 * a%26b+c
 */
