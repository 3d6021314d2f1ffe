/* Timers: watchers that call back after an interval. All intervals are milliseconds. */
#ifndef ZOR_UV_TIMER_H
#define ZOR_UV_TIMER_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/uv_loop.h>

ZOR_BEGIN_DECLS

typedef void (*UV_TIMER_CALLBACK)(void *data);

typedef struct UvTimer {
  UvWatcher header;
  int32_t expirySeconds;
  int32_t expiryMicroseconds;
  uint32_t intervalMs;
  uint32_t repeatCount;
  UV_TIMER_CALLBACK callback;
} UvTimer;

ZOR_API uint32_t ZOR_UV_TimerInit(UvLoop *loop, UvTimer *timer);
ZOR_API uint32_t ZOR_UV_TimerStart(UvTimer *timer, uint32_t intervalMs, uint32_t repeatCount,
                                   UV_TIMER_CALLBACK callback, void *data);
ZOR_API uint32_t ZOR_UV_TimerDelete(UvTimer *timer);
ZOR_API uint32_t ZOR_UV_RunTimers(UvLoop *loop, UvTime *timeoutOut);
ZOR_API UvTimer *ZOR_UTIL_TimerAdd(uint32_t intervalMs, uint32_t repeatCount, UV_TIMER_CALLBACK callback, void *data);
ZOR_API void ZOR_UTIL_TimerDel(UvTimer *timer);
ZOR_API void ZOR_UTIL_TimerChgPeriod(UvTimer *timer, uint32_t periodMs);
ZOR_API void ZOR_UTIL_TimerGetIntv(const UvTime *later, const UvTime *earlier, UvTime *out);

ZOR_END_DECLS

#endif
