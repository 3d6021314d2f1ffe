/* Socket utilities. */
#ifndef ZOR_SOCKET_H
#define ZOR_SOCKET_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* Clears O_NONBLOCK, shuts both directions down and closes, retrying a close that a signal interrupted. A negative
   descriptor is ignored. Returns the result of close, 0 for a negative descriptor. */
ZOR_API int32_t ZOR_UTIL_SocketClose(int32_t fd);

ZOR_END_DECLS

#endif
