#include <stdio.h>
#include <stdlib.h>
#include <zor/platform/text.h>

int main(void) {
  static const char *const colours[] = {"red", "green", "blue", NULL};
  printf("%d\n", (int)ZOR_UTIL_GetIdxFromStr(colours, "Green"));
  char *text = ZOR_UTIL_Base64Encode("usb1", 4);
  if (text == NULL) return 1;
  printf("%s\n", text);
  free(text);
  return 0;
}

/* Prints:
 * 1
 * dXNiMQ==
 */
