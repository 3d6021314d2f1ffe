/* Random numbers, wall-clock text, the configuration's identifier and privileges. */
#ifndef ZOR_PLATFORM_SYSTEM_H
#define ZOR_PLATFORM_SYSTEM_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* A random number, hard to guess and evenly spread over all 32 bits. Cannot fail. */
ZOR_API uint32_t ZOR_UTIL_GenRandomInteger(void);

/* The current UTC time as "YYYY-MM-DDThh:mm:ssZ" in a static buffer of the calling thread; "" when it has no such
   text. */
ZOR_API const char *ZOR_UTIL_GetCurrUTCTimeStamp(void);

/* The identifier at the start of the device's global configuration, which management messages carry; 0 where there is
   no such configuration. */
ZOR_API uint16_t ZOR_UTIL_GetGlobalConfigId(void);

/* Regains the privileges that the process gave up. Returns 0, or 1 when the system refuses. */
ZOR_API uint32_t ZOR_UTIL_UpRootPrivileges(void);

/* Gives up raised privileges until ZOR_UTIL_UpRootPrivileges. Returns 0, or 1 when the system refuses. */
ZOR_API uint32_t ZOR_UTIL_DropAndroidRootPrivileges(void);

ZOR_END_DECLS

#endif
