/* Monotonic time. */
#ifndef ZOR_SYSTIME_H
#define ZOR_SYSTIME_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* A point of monotonic time, or an interval. */
typedef struct ZOR_SYS_TIME {
  uint32_t seconds;
  uint32_t microseconds;
} ZOR_SYS_TIME;

/* Reads the monotonic clock. Returns 0; 1 for null; 1 with both fields 0 and a perror line when the clock fails. */
ZOR_API uint32_t ZOR_UTIL_GetSysTime(ZOR_SYS_TIME *time);

/* Seconds since boot, 0 when they cannot be read. */
ZOR_API uint32_t ZOR_UTIL_GetSysUpTime(void);

ZOR_END_DECLS

#endif
