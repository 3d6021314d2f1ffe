/*
 * Timers: watchers that call back after an interval, given in milliseconds. The conventions of the loop hold.
 *
 * All timers that are due fire in one pass, in the order of registration. A continuing timer expires one interval
 * after the start of the iteration in which it fired: lateness is not made up. A timer that is finished (no firings
 * left, or its callback cleared) is deleted by the next timer pass and freed by the sweep after it; do not use its
 * record then.
 *
 * There are two interfaces: ZOR_UV_ for records of the caller's own, ZOR_UTIL_ for records made here on the
 * default loop. Their functions may be mixed.
 */
#ifndef ZOR_UV_TIMER_H
#define ZOR_UV_TIMER_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/uv_loop.h>

ZOR_BEGIN_DECLS

typedef void (*UV_TIMER_CALLBACK)(void *data);

typedef struct UvTimer {
  UvWatcher header; /* data is the callback's argument */
  int32_t expirySeconds;
  int32_t expiryMicroseconds;
  uint32_t intervalMs;  /* 0: never fires */
  uint32_t repeatCount; /* firings left; 0: without end */
  UV_TIMER_CALLBACK callback;
} UvTimer;

/* Lists a timer. It must be started before the next timer pass, which deletes timers without a callback.
   Returns 0; ZOR_E_ARGUMENT for a null timer or when there is no loop. */
ZOR_API uint32_t ZOR_UV_TimerInit(UvLoop *loop, UvTimer *timer);

/* Starts a timer, or starts it anew with other values, counting from now. It fires every intervalMs, repeatCount times
   (0: without end); with an interval of 0 it never fires. A firing that was the last one ends the timer even when its
   callback has started it anew for one more. Returns 0; ZOR_E_ARGUMENT for null. */
ZOR_API uint32_t ZOR_UV_TimerStart(UvTimer *timer, uint32_t intervalMs, uint32_t repeatCount,
                                   UV_TIMER_CALLBACK callback, void *data);

/* Marks a timer deleted. Until it is swept, normally in the same iteration, it may still fire. Returns 0;
   ZOR_E_ARGUMENT for null. */
ZOR_API uint32_t ZOR_UV_TimerDelete(UvTimer *timer);

/* The timer pass of an iteration: fires what is due at the loop's `now` and stores how long the wait may last: the
   time until the next expiry, at most the idle time. Returns 0; ZOR_E_ARGUMENT when timeoutOut is null or there is no
   loop. */
ZOR_API uint32_t ZOR_UV_RunTimers(UvLoop *loop, UvTime *timeoutOut);

/* Makes a timer on the default loop and starts it. Returns the record, which the loop frees; null when memory runs
   out. */
ZOR_API UvTimer *ZOR_UTIL_TimerAdd(uint32_t intervalMs, uint32_t repeatCount, UV_TIMER_CALLBACK callback, void *data);

/* Stops a timer for good; it does not fire again. May be called from any callback, the timer's own included. Null is
   ignored. */
ZOR_API void ZOR_UTIL_TimerDel(UvTimer *timer);

/* Gives a timer another period. Its next expiry is periodMs from now, but at least 10 ms and at most 0x7fffffff ms;
   later periods are periodMs as given. With 0 the timer is parked: it stays listed, never fires and
   shortens no wait, also when its own callback parks it. Null is ignored. */
ZOR_API void ZOR_UTIL_TimerChgPeriod(UvTimer *timer, uint32_t periodMs);

/* Stores the time from earlier to later. Seconds below 0 count as 0; so do microseconds when no second is left to
   borrow from. Hence {1 s, 700 us} after {2 s, 300 us} is {0 s, 400 us}. out may be one of the arguments. A null
   argument does nothing. */
ZOR_API void ZOR_UTIL_TimerGetIntv(const UvTime *later, const UvTime *earlier, UvTime *out);

ZOR_END_DECLS

#endif
