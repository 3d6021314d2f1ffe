/* The event loop and the watcher header that opens every watcher record. */
#ifndef ZOR_UV_LOOP_H
#define ZOR_UV_LOOP_H

#include <stdint.h>
#include <sys/select.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

struct UvLoop;
struct UvIdle;
struct UvForcedEvent;

/* Kind bits of a watcher. */
#define UV_WATCHER_TIMER UINT32_C(0x1)
#define UV_WATCHER_IDLE UINT32_C(0x2)
#define UV_WATCHER_IO UINT32_C(0x4)
#define UV_WATCHER_PROCESS UINT32_C(0x8)
#define UV_WATCHER_SOCKBASE UINT32_C(0x10)
#define UV_WATCHER_MSG UINT32_C(0x20)
#define UV_WATCHER_RAW UINT32_C(0x40)
#define UV_WATCHER_STDIO UINT32_C(0x800)
/* State bits of a watcher. */
#define UV_WATCHER_DELETED UINT32_C(0x1000)
#define UV_WATCHER_LISTED UINT32_C(0x2000)
#define UV_WATCHER_ACTIVE UINT32_C(0x4000)

/* State bits of a loop. */
#define UV_LOOP_INITIALISED UINT32_C(0x1)
#define UV_LOOP_STOP UINT32_C(0x2)
#define UV_LOOP_SKIP_PASS UINT32_C(0x4)

/* Event bits of a descriptor. */
#define UV_READABLE UINT32_C(1)
#define UV_WRITABLE UINT32_C(2)
#define UV_EXCEPTIONAL UINT32_C(4)

/* Loop and timer times: not struct timeval, whose fields are wider on many systems. */
typedef struct UvTime {
  int32_t seconds;
  int32_t microseconds;
} UvTime;

typedef struct UvWatcher {
  struct UvWatcher *next;
  struct UvLoop *loop;
  uint32_t flags;
  void *data;
} UvWatcher;

typedef struct UvLoop {
  uint32_t flags;
  UvTime now;
  uint32_t activeCount;
  uint32_t idleTimeMs;
  UvWatcher *watchers;
  struct UvIdle *safeFreeIdle;
  struct UvIdle *processIdle;
  struct UvForcedEvent *forcedEvents;
  fd_set readSet;
  fd_set exceptSet;
  fd_set writeSet;
  int32_t maxFd;
  UvTime selectTimeout;
  uint64_t iteration;
} UvLoop;

typedef void (*UV_WATCHER_VISITOR)(UvWatcher *watcher, void *arg);

ZOR_API void ZOR_UV_LoopInit(UvLoop *loop);
ZOR_API UvLoop *ZOR_UV_LoopGetDefault(void);
ZOR_API uint32_t ZOR_UV_LoopRun(UvLoop *loop, uint32_t idleTimeMs);
ZOR_API void ZOR_UV_LoopStop(UvLoop *loop);
ZOR_API void ZOR_UV_LoopUpdateSelectTimeout(UvLoop *loop, const UvTime *timeout);
ZOR_API void ZOR_UV_LoopSetIdleTime(UvLoop *loop, uint32_t idleTimeMs);
ZOR_API uint32_t ZOR_UV_LoopGetIdleTime(UvLoop *loop);
ZOR_API int32_t ZOR_UV_LoopGetMaxFd(UvLoop *loop);
ZOR_API uint64_t ZOR_UV_LoopGetCurIdx(UvLoop *loop);
ZOR_API uint32_t ZOR_UV_LoopSafeFree(UvLoop *loop, void *block);
ZOR_API void ZOR_UV_LoopDestroy(UvLoop *loop);
ZOR_API uint32_t ZOR_UV_WatcherInit(UvLoop *loop, UvWatcher *watcher, uint32_t kind);
ZOR_API uint32_t ZOR_UV_WatcherStart(UvWatcher *watcher);
ZOR_API uint32_t ZOR_UV_WatcherDelete(UvWatcher *watcher);
ZOR_API uint32_t ZOR_UV_WatcherIterateItem(UvLoop *loop, void *arg, UV_WATCHER_VISITOR visitor);

ZOR_END_DECLS

#endif
