#include <stdio.h>
#include <unistd.h>
#include <zor/systime.h>

int main(void) {
  ZOR_SYS_TIME before;
  ZOR_SYS_TIME after;
  ZOR_UTIL_GetSysTime(&before); /* never set back, unlike the wall clock */
  usleep(1000);
  ZOR_UTIL_GetSysTime(&after);
  const long long us =
      ((long long)after.seconds - before.seconds) * 1000000 + (long long)after.microseconds - before.microseconds;
  printf("a millisecond or more: %s\n", us >= 1000 ? "yes" : "no");
  return 0;
}

/* Prints:
 * a millisecond or more: yes
 */
