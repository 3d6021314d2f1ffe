/*
 * Slow handlers: how long the callbacks of the loop hold it, and which of them hold it longest.
 *
 * 1. Nothing is measured until ZOR_UV_LagStart, or until a loop runs in a process with ZOR_LAG_US in its environment: a
 *    number of microseconds, the threshold; the figures are then offered to operators' tools if they can be. Processes
 *    with raised privileges ignore the variable.
 * 2. Measured are the loops of the thread that made the call; one thread of a process at a time. A forked child
 * measures nothing unless it makes the call itself.
 * 3. The time of a callback is its own: what it spends in callbacks that it causes counts for those, and a wait of the
 *    same loop that it runs again counts for nobody. Waits of any other kind are its own time: sleeps, synchronous
 *    requests, a synchronous spawn.
 * 4. Times are monotonic, in microseconds. Those beyond 2^32 - 1 count as that. A percentile is at most an eighth too
 *    high, never too low, and never above the greatest time.
 * 5. Measuring takes a fixed amount of memory, 13 KiB, and two readings of the clock for each callback.
 */
#ifndef ZOR_UV_LAG_H
#define ZOR_UV_LAG_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/limits.h>

ZOR_BEGIN_DECLS

/* What is measured. A turn lasts from the end of one wait of the loop to the beginning of the next, or to the
   end of the run, with all that runs in between; it is not a callback. Used with ZOR_UV_LagRead, ZOR_UV_LAG,
   ZOR_UV_LAG_CALLBACK and ZOR_UV_LAG_PROC. */
#define ZOR_UV_LAG_TURN UINT32_C(0)
#define ZOR_UV_LAG_TIMER UINT32_C(1)
#define ZOR_UV_LAG_IDLE UINT32_C(2)
#define ZOR_UV_LAG_DESCRIPTOR UINT32_C(3)   /* socket base, forced events and standard streams included */
#define ZOR_UV_LAG_PROCEDURE UINT32_C(4)    /* the message procedure, without the handlers that it calls */
#define ZOR_UV_LAG_HANDLER UINT32_C(5)      /* of messages of one type, of restful requests, of events */
#define ZOR_UV_LAG_REPLY UINT32_C(6)        /* of an asynchronous request */
#define ZOR_UV_LAG_NOTIFICATION UINT32_C(7) /* of the notification client; link procedures */
#define ZOR_UV_LAG_CHILD UINT32_C(8)        /* the exit callback of a child */
#define ZOR_UV_LAG_KINDS 9                  /* how many there are */

/* Offers the figures to operators' tools, in a file that they read. Used with ZOR_UV_LagStart and
   ZOR_UV_LAG_OPTIONS. */
#define ZOR_UV_LAG_OFFER UINT32_C(1)

/* The calls of one callback since it is in the table; of handlers and reply callbacks, those with one message type. */
typedef struct ZOR_UV_LAG_CALLBACK {
  char name[ZOR_UV_LAG_NAME_SIZE]; /* its symbol; without one "FILE+0xOFFSET", as in "greeter+0x11c9" */
  uint32_t kind;                   /* ZOR_UV_LAG_TIMER, ... */
  uint32_t type;                   /* of the message; 0: none */
  char source[ZOR_MSG_NAME_SIZE];  /* who sent the message of the longest call; "" for none */
  uint32_t longestUs;
  uint64_t count;
  uint64_t slowCount; /* calls that took the threshold or longer */
  uint64_t totalUs;
} ZOR_UV_LAG_CALLBACK;

/* All calls of one kind. */
typedef struct ZOR_UV_LAG_TIMES {
  uint64_t count;
  uint64_t slowCount;
  uint64_t totalUs;
  uint32_t p50Us; /* half of the calls took no longer */
  uint32_t p90Us;
  uint32_t p99Us;
  uint32_t longestUs;
} ZOR_UV_LAG_TIMES;

typedef struct ZOR_UV_LAG {
  uint32_t thresholdUs;
  uint32_t callbackCount;                              /* of those in the table */
  ZOR_UV_LAG_TIMES times[ZOR_UV_LAG_KINDS];            /* by kind */
  ZOR_UV_LAG_CALLBACK callbacks[ZOR_UV_LAG_CALLBACKS]; /* the one with the longest call first */
} ZOR_UV_LAG;

/* Hears of a call that took the threshold or longer, once the callback has returned and as if the callback itself made
   the call: it may do what that may do. The record is that callback's, with this call in it and the source of this
   message; heldUs is the time of this call. Both are valid during the call only. */
typedef void (*ZOR_UV_LAG_PROC)(const ZOR_UV_LAG_CALLBACK *callback, uint32_t heldUs, void *data);

/* What ZOR_UV_LagStart is to do. 0 and null stand for the defaults. */
typedef struct ZOR_UV_LAG_OPTIONS {
  uint32_t thresholdUs; /* of a slow call; ZOR_UV_LAG_THRESHOLD_US */
  uint32_t flags;       /* ZOR_UV_LAG_OFFER */
  ZOR_UV_LAG_PROC proc; /* hears of slow calls; none. The trace line "slow ..." of the module "lag", level warning, is
                           printed in any case */
  void *data;           /* for the procedure */
} ZOR_UV_LAG_OPTIONS;

/*
 * Begins to measure the loops of the calling thread; null options stand for the defaults. Made again, the figures begin
 * anew, with the new options. May be called in a callback, whose own call is not measured then.
 *
 * Returns 0; ZOR_E_BUSY when another thread of the process measures; ZOR_E_ARGUMENT for unknown flags; ZOR_E_NO_MEMORY;
 * ZOR_E_IO when the figures cannot be offered, because the message server has made no directory "/var/run/msg/" yet or
 * this user may not write there. What was measured before has ended in the last two cases.
 */
ZOR_API uint32_t ZOR_UV_LagStart(const ZOR_UV_LAG_OPTIONS *options);

/* Ends it. The figures are forgotten and no longer offered, which the end of the process does too unless it is killed.
   Nothing happens when this thread does not measure. */
ZOR_API void ZOR_UV_LagStop(void);

/* Reads the figures since ZOR_UV_LagStart. Calls that have not returned are not among them. Returns 0; ZOR_E_ARGUMENT
   for null and when this thread does not measure; figures is untouched then. */
ZOR_API uint32_t ZOR_UV_LagRead(ZOR_UV_LAG *figures);

ZOR_END_DECLS

#endif
