/*
 * The event loop: one list of watchers (timers, idle hooks, descriptors, child processes), three descriptor sets and a
 * wait in select. This header has the loop and what all watchers have in common.
 *
 * 1. Loops take no locks. A loop and its watchers are used from the thread that runs the loop; all callbacks run there,
 *    one at a time.
 * 2. A null loop stands for the default loop, unless a function says otherwise. Where a function returns
 *    ZOR_E_ARGUMENT because there is no loop, null was given and there is no default loop either.
 * 3. Times are monotonic. Intervals are milliseconds.
 * 4. Every watcher is a separate malloc block. Once it is initialised on a loop, the loop owns it and frees it: at the
 *    next sweep after its deletion, or when the loop is destroyed. A record may hold more than its watcher type: the
 *    header comes first.
 * 5. Deleting marks: a deleted watcher stays valid until the next sweep, which follows a wait without events and is
 *    part of every descriptor pass. Starting it before then revives it.
 * 6. A callback may do anything to any watcher, its own included, run the loop again, or destroy it. A record whose
 *    callback is running stays valid until that callback has returned.
 */
#ifndef ZOR_UV_LOOP_H
#define ZOR_UV_LOOP_H

#include <stdint.h>
#include <sys/select.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

struct UvLoop;
struct UvIdle;
struct UvForcedEvent;

/* Kind bits of a watcher. Used with UvWatcher. */
#define UV_WATCHER_TIMER UINT32_C(0x1)
#define UV_WATCHER_IDLE UINT32_C(0x2)
#define UV_WATCHER_IO UINT32_C(0x4)
#define UV_WATCHER_PROCESS UINT32_C(0x8)
#define UV_WATCHER_SOCKBASE UINT32_C(0x10)
#define UV_WATCHER_MSG UINT32_C(0x20)
#define UV_WATCHER_RAW UINT32_C(0x40)
#define UV_WATCHER_STDIO UINT32_C(0x800)
/* State bits of a watcher. Used with UvWatcher. */
#define UV_WATCHER_DELETED UINT32_C(0x1000)
#define UV_WATCHER_LISTED UINT32_C(0x2000)
#define UV_WATCHER_ACTIVE UINT32_C(0x4000)

/* State bits of a loop. Used with ZOR_UV_LoopInit, ZOR_UV_LoopStop and ZOR_UV_IOSkipLoop. */
#define UV_LOOP_INITIALISED UINT32_C(0x1)
#define UV_LOOP_STOP UINT32_C(0x2)
#define UV_LOOP_SKIP_PASS UINT32_C(0x4)

/* Event bits of a descriptor. Used with ZOR_UV_IOStart, ZOR_UV_IOStop, ZOR_UV_IOForcedLoop, UV_IO_CALLBACK and
   SOCK_EVENT_PROC. */
#define UV_READABLE UINT32_C(1)
#define UV_WRITABLE UINT32_C(2)
#define UV_EXCEPTIONAL UINT32_C(4)

/* Loop and timer times: not struct timeval, whose fields are wider on many systems. */
typedef struct UvTime {
  int32_t seconds;
  int32_t microseconds;
} UvTime;

/* Opens every watcher record. */
typedef struct UvWatcher {
  struct UvWatcher *next;
  struct UvLoop *loop; /* the owner */
  uint32_t flags;      /* kind and state bits */
  void *data;          /* the caller's, handed back to callbacks */
} UvWatcher;

/* Callers may read it; only the functions below change it. */
typedef struct UvLoop {
  uint32_t flags;
  UvTime now;           /* start of the current iteration */
  uint32_t activeCount; /* started watchers */
  uint32_t idleTimeMs;  /* 0: never leave for idleness */
  UvWatcher *watchers;  /* in the order of registration */
  struct UvIdle *safeFreeIdle;
  struct UvIdle *processIdle;
  struct UvForcedEvent *forcedEvents;
  fd_set readSet;
  fd_set exceptSet;
  fd_set writeSet;
  int32_t maxFd;        /* highest descriptor ever watched; never lowered */
  UvTime selectTimeout; /* of the next wait; computed anew in each iteration */
  uint64_t iteration;   /* completed iterations of the current run */
} UvLoop;

/* Called for one watcher; may delete it, or unlink and free it. */
typedef void (*UV_WATCHER_VISITOR)(UvWatcher *watcher, void *arg);

/* Makes an empty loop of a record, whatever was in it. Null is ignored. */
ZOR_API void ZOR_UV_LoopInit(UvLoop *loop);

/* The default loop, one for the whole process, made at the first call. While a synchronous spawn runs, that spawn's
   private loop. */
ZOR_API UvLoop *ZOR_UV_LoopGetDefault(void);

/* Runs the loop until it is stopped or has been idle for idleTimeMs (0: no idle end). One iteration reads the clock,
   runs the timers and the idle hooks, waits, and calls forced events or the watchers of ready descriptors: readable
   first, then exceptional, then writable.
   The run ends as idle when no timer was due within the whole seconds of idleTimeMs and the wait brought nothing;
   forced events that are queued then stay queued. Runs may be nested; an inner run of the same loop sets the
   idle time and counts its iterations anew for the outer one too.
   Returns 0 when stopped; ZOR_E_TIMEOUT when idle; ZOR_E_IO when select failed, after "Sock base select err %d.\n" on
   standard output; ZOR_E_ARGUMENT when there is no loop. */
ZOR_API uint32_t ZOR_UV_LoopRun(UvLoop *loop, uint32_t idleTimeMs);

/* Asks the loop to leave: before the wait when asked from a timer or an idle hook, else after the current iteration.
   Asked while the loop is not running, it ends the next run before its first iteration. Null is ignored and does not
   stand for the default loop here: pass ZOR_UV_LoopGetDefault(). */
ZOR_API void ZOR_UV_LoopStop(UvLoop *loop);

/* Lowers the time-out of the coming wait, from an idle hook. The whole time is taken when its seconds are lower;
   otherwise its microseconds alone when they are lower, even with more seconds: {5 s, 900 us} and {7 s, 100 us} give
   {5 s, 100 us}. Null is ignored. */
ZOR_API void ZOR_UV_LoopUpdateSelectTimeout(UvLoop *loop, const UvTime *timeout);

/* The idle time of the run in progress, in milliseconds; 0: no idle end, or no loop. */
ZOR_API void ZOR_UV_LoopSetIdleTime(UvLoop *loop, uint32_t idleTimeMs);
ZOR_API uint32_t ZOR_UV_LoopGetIdleTime(UvLoop *loop);

/* The highest descriptor that was ever watched; 0 when there is no loop. */
ZOR_API int32_t ZOR_UV_LoopGetMaxFd(UvLoop *loop);

/* The number of completed iterations of the current or last run, as the trace lines print it; 0 when there is no
   loop. */
ZOR_API uint64_t ZOR_UV_LoopGetCurIdx(UvLoop *loop);

/* Hands a malloc block over to be freed later. It stays valid until every callback of the current iteration has
   returned; outside a run it is freed at the start of the next one. A null block is accepted.
   Returns 0; ZOR_E_ARGUMENT when there is no loop; ZOR_E_NO_MEMORY, and the block is still the caller's. */
ZOR_API uint32_t ZOR_UV_LoopSafeFree(UvLoop *loop, void *block);

/* Frees every watcher, forced event, awaited reply and deferred block at once, calling nothing and closing nothing, and
   makes the loop empty again. Null is ignored. */
ZOR_API void ZOR_UV_LoopDestroy(UvLoop *loop);

/* Zeroes the header of a watcher, sets its kind bits and lists it. For makers of watcher kinds; the kinds of this
   library have functions of their own. Returns 0; ZOR_E_ARGUMENT for a null watcher or when there is no loop. */
ZOR_API uint32_t ZOR_UV_WatcherInit(UvLoop *loop, UvWatcher *watcher, uint32_t kind);

/* Marks a watcher started; one that was deleted and not yet swept stays. Returns 0, also when it was started already;
   ZOR_E_ARGUMENT for null. */
ZOR_API uint32_t ZOR_UV_WatcherStart(UvWatcher *watcher);

/* Marks a watcher deleted. Returns 0; ZOR_E_ARGUMENT for null. */
ZOR_API uint32_t ZOR_UV_WatcherDelete(UvWatcher *watcher);

/* Calls the visitor for every watcher in list order. Returns 0; ZOR_E_ARGUMENT when there is no loop; ZOR_E_IO for a
   null visitor. */
ZOR_API uint32_t ZOR_UV_WatcherIterateItem(UvLoop *loop, void *arg, UV_WATCHER_VISITOR visitor);

ZOR_END_DECLS

#endif
