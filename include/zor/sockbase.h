/*
 * The socket base: sockets registered on the default loop, with one event procedure each and a listening mode. A thin
 * layer over descriptor watchers, whose conventions hold: deleting a socket base closes its socket, and its record
 * stays valid until the loop sweeps it. Statuses are those of the loop.
 */
#ifndef ZOR_SOCKBASE_H
#define ZOR_SOCKBASE_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/uv_io.h>

ZOR_BEGIN_DECLS

struct SockBase;

/* Listening modes: what a socket is watched for. Used with ZOR_UTIL_SockBaseReg and ZOR_UTIL_SockBaseListen. */
#define ZOR_SOCK_MODE_NONE 0u
#define ZOR_SOCK_MODE_READ 1u
#define ZOR_SOCK_MODE_WRITE 10u

/* The event is a UV_ event bit; it has no meaning in the call of a response wait that timed out. */
typedef void (*SOCK_EVENT_PROC)(struct SockBase *sockBase, uint32_t event);

typedef struct SockBase {
  UvIO io; /* io.header.data is the caller's data */
  SOCK_EVENT_PROC eventProc;
} SockBase;

/* A wait for one response; the data of its socket base. */
typedef struct SockAsyncWait {
  SockBase *sockBase;
  UvTimer *timer;    /* null once it has fired */
  uint32_t timedOut; /* 1 when the time-out has passed */
  void *userData;
  uintptr_t reserved;
} SockAsyncWait;

/* Registers a socket. The second argument is ignored; eventProc may be null. A mode other than the three above watches
   for exceptional conditions. *outSockBase (outSockBase may be null) is cleared first, and gets the record, which the
   loop frees.
   Returns 0; ZOR_E_NO_MEMORY; ZOR_E_ARGUMENT for a descriptor of 1024 or more. The descriptor of a failed registration
   is still the caller's. */
ZOR_API uint32_t ZOR_UTIL_SockBaseReg(int32_t fd, uintptr_t unused, SOCK_EVENT_PROC eventProc, uint32_t mode,
                                      void *data, SockBase **outSockBase);

/* Changes the mode. A mode other than the three above watches for nothing. Returns 0; null or a closed socket base is
   ignored. */
ZOR_API uint32_t ZOR_UTIL_SockBaseListen(SockBase *sockBase, uint32_t mode);

/* Watches for writability too, or no longer: for sockets with queued output. Returns 0; ZOR_E_ARGUMENT for null. */
ZOR_API uint32_t ZOR_UTIL_SetWriteFd(SockBase *sockBase);
ZOR_API uint32_t ZOR_UTIL_ClearWriteFd(SockBase *sockBase);

/* Has the event procedure called with UV_READABLE in the next iteration, whatever the socket's state. Returns 0;
   ZOR_E_ARGUMENT for null; ZOR_E_NO_MEMORY. */
ZOR_API uint32_t ZOR_UTIL_SockBaseDirectDo(SockBase *sockBase);

/* The same; ignored, with 0, for a closed socket base. */
ZOR_API uint32_t ZOR_UTIL_SockBaseForceLoop(SockBase *sockBase);

/* Closes the socket and marks the record deleted; ends the descriptor pass in progress. Null is ignored. */
ZOR_API void ZOR_UTIL_SockBaseDelete(SockBase *sockBase);

/* Deletes the socket base of a descriptor. Nothing happens when the default loop's first watcher of that number is no
   socket base. */
ZOR_API void ZOR_UTIL_SockBaseDeleteNew(int32_t fd);

/* Runs the default loop until it is stopped, or idle for that many seconds (0: no idle end). Returns what
   ZOR_UV_LoopRun returns. */
ZOR_API uint32_t ZOR_UTIL_SockBaseStart(uint32_t seconds);

/* Kept for old callers: does nothing. */
ZOR_API void ZOR_UTIL_SockBaseDestroy(void);

/* Kept for old callers: does nothing and returns 0. */
ZOR_API uint32_t ZOR_UTIL_SockBaseRegEvtProc(const void *ignored);

/* Registers a socket and calls eventProc when it is readable, and once when timeoutMs have passed (0: never); the
   procedure looks at the wait's timedOut. In either case the caller ends the wait with
   ZOR_UTIL_SockbaseAsyncEvtDestroy, which the procedure may do. The second argument is ignored. Returns the wait; null
   when the socket could not be registered or memory runs out. */
ZOR_API SockAsyncWait *ZOR_UTIL_SockbaseWaitSockResponseAsync(int32_t fd, uintptr_t unused, uint32_t timeoutMs,
                                                              void *userData, SOCK_EVENT_PROC eventProc);

/* Ends a wait, closes its socket and frees the wait. Null is ignored. */
ZOR_API void ZOR_UTIL_SockbaseAsyncEvtDestroy(SockAsyncWait *wait);

ZOR_END_DECLS

#endif
