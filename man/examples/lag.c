#include <stdio.h>
#include <unistd.h>
#include <zor/uv.h>

static void OnTimer(void *data) {
  (void)data;
  usleep(200000); /* stands here for a disk that is slow */
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

static void OnSlow(const ZOR_UV_LAG_CALLBACK *callback, uint32_t heldUs, void *data) {
  (void)data;
  if (callback->kind == ZOR_UV_LAG_TIMER && heldUs >= 200000) printf("a timer held the loop\n");
  fprintf(stderr, "%s took %u us\n", callback->name, (unsigned)heldUs); /* "lag+0x11c9 took 200089 us" */
}

int main(void) {
  static const ZOR_UV_LAG_OPTIONS options = {50000, 0, OnSlow, NULL}; /* add ZOR_UV_LAG_OFFER on a bus */
  static ZOR_UV_LAG figures;
  if (ZOR_UV_LagStart(&options) != ZOR_OK) return 1;
  ZOR_UTIL_TimerAdd(100, 1, OnTimer, NULL);
  if (ZOR_UV_LoopRun(NULL, 0) != ZOR_OK || ZOR_UV_LagRead(&figures) != ZOR_OK) return 1;
  const ZOR_UV_LAG_TIMES *timers = &figures.times[ZOR_UV_LAG_TIMER];
  printf("%u call, %u slow\n", (unsigned)timers->count, (unsigned)timers->slowCount);
  fprintf(stderr, "99 %% of them took %u us or less\n", (unsigned)timers->p99Us);
  ZOR_UV_LagStop();
  return 0;
}

/* Prints:
 * a timer held the loop
 * 1 call, 1 slow
 */
