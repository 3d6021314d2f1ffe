#include <stdio.h>
#include <zor/uv.h>

static UvTimer *blink;

static void OnBlink(void *data) {
  int *count = data;
  printf("blink %d\n", ++*count);
  if (*count == 2) ZOR_UTIL_TimerChgPeriod(blink, 50); /* faster from now on */
  if (*count == 4) {
    ZOR_UTIL_TimerDel(blink); /* a timer may delete itself */
    ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
  }
}

static void OnTimeout(void *data) {
  printf("%s\n", (const char *)data);
}

int main(void) {
  static char text[] = "once";
  int count = 0;
  UvTimer *once = ZOR_UTIL_TimerAdd(100, 1, OnTimeout, text); /* once; the loop frees it */
  blink = ZOR_UTIL_TimerAdd(200, 0, OnBlink, &count);         /* every 200 ms, without end */
  if (blink == NULL || once == NULL) return 1;
  return (int)ZOR_UV_LoopRun(NULL, 0);
}

/* Prints:
 * once
 * blink 1
 * blink 2
 * blink 3
 * blink 4
 */
