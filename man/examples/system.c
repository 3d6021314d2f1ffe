#include <stdio.h>
#include <string.h>
#include <zor/platform/system.h>

int main(void) {
  const char *now = ZOR_UTIL_GetCurrUTCTimeStamp();
  printf("%zu characters, ending in %c\n", strlen(now), now[strlen(now) - 1]);
  return ZOR_UTIL_GenRandomInteger() == ZOR_UTIL_GenRandomInteger(); /* practically never equal */
}

/* Prints:
 * 20 characters, ending in Z
 */
