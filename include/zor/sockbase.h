/* The socket base: sockets registered on the default loop with one event procedure each. */
#ifndef ZOR_SOCKBASE_H
#define ZOR_SOCKBASE_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/uv_io.h>

ZOR_BEGIN_DECLS

struct SockBase;

/* Listening modes. */
#define ZOR_SOCK_MODE_NONE 0u
#define ZOR_SOCK_MODE_READ 1u
#define ZOR_SOCK_MODE_WRITE 10u

typedef void (*SOCK_EVENT_PROC)(struct SockBase *sockBase, uint32_t event);

typedef struct SockBase {
  UvIO io; /* io.header.data is the caller's data */
  SOCK_EVENT_PROC eventProc;
} SockBase;

typedef struct SockAsyncWait {
  SockBase *sockBase;
  UvTimer *timer;
  uint32_t timedOut;
  void *userData;
  uintptr_t reserved;
} SockAsyncWait;

ZOR_API uint32_t ZOR_UTIL_SockBaseReg(int32_t fd, uintptr_t unused, SOCK_EVENT_PROC eventProc, uint32_t mode,
                                      void *data, SockBase **outSockBase);
ZOR_API uint32_t ZOR_UTIL_SockBaseListen(SockBase *sockBase, uint32_t mode);
ZOR_API uint32_t ZOR_UTIL_SetWriteFd(SockBase *sockBase);
ZOR_API uint32_t ZOR_UTIL_ClearWriteFd(SockBase *sockBase);
ZOR_API uint32_t ZOR_UTIL_SockBaseDirectDo(SockBase *sockBase);
ZOR_API uint32_t ZOR_UTIL_SockBaseForceLoop(SockBase *sockBase);
ZOR_API void ZOR_UTIL_SockBaseDelete(SockBase *sockBase);
ZOR_API void ZOR_UTIL_SockBaseDeleteNew(int32_t fd);
ZOR_API uint32_t ZOR_UTIL_SockBaseStart(uint32_t seconds);
ZOR_API void ZOR_UTIL_SockBaseDestroy(void);
ZOR_API uint32_t ZOR_UTIL_SockBaseRegEvtProc(const void *ignored);
ZOR_API SockAsyncWait *ZOR_UTIL_SockbaseWaitSockResponseAsync(int32_t fd, uintptr_t unused, uint32_t timeoutMs,
                                                              void *userData, SOCK_EVENT_PROC eventProc);
ZOR_API void ZOR_UTIL_SockbaseAsyncEvtDestroy(SockAsyncWait *wait);

ZOR_END_DECLS

#endif
