#include <stdio.h>
#include <zor/caltime.h>

int main(void) {
  ZOR_CAL_TIME time = {0};
  if (ZOR_UTIL_UCTTimeFormatCheck("2020-01-31T08:05:00Z", &time) != 0) return 1;
  if (ZOR_UTIL_CheckTimeValid(time.year, time.month, time.day, time.hour, time.minute, time.second) != 0) return 1;
  uint32_t seconds = 0;
  uint32_t firstIsLater = 0;
  ZOR_UTIL_GetDifTime("2020-01-31T08:05:00Z", "2020-01-31T09:05:30Z", &seconds, &firstIsLater);
  printf("%u s, first is later: %u\n", (unsigned)seconds, (unsigned)firstIsLater);
  uint32_t delay = 0;
  ZOR_UTIL_GetDelayTime(1000, 300, 0, &delay); /* until the next multiple of 300 */
  printf("%u s\n", (unsigned)delay);
  return 0;
}

/* Prints:
 * 3630 s, first is later: 0
 * 200 s
 */
