/*
 * Descriptor watchers, idle hooks and message watchers. The conventions of the loop hold.
 *
 * Descriptor watchers. A watcher is called at most once per event and iteration, for readable, exceptional and writable
 * in this order. A callback must tolerate spurious calls: its descriptor number may have been closed and reopened
 * since the wait. A descriptor that was closed without its watcher is noticed by the loop: its watcher is traced
 * ("Invalid fd ..." or "Bogus fd ...", module "sockbase") and not called, and in the second case its fd becomes -1; its
 * owner still deletes it.
 *
 * Idle hooks are called in every iteration, before the wait, in the order of registration. One that is added by a hook
 * is called from the next iteration on when the adding hook is the last watcher, else at once. The wait in between
 * ignores it; see ZOR_UV_LoopUpdateSelectTimeout.
 *
 * Message watchers read whole messages: a header of fixed length and the payload that it announces. A message goes to
 * the first awaited reply that it matches, else to the default handler. It belongs to the watcher, which frees it after
 * the call: copy what is to be kept. While a message arrives in pieces the loop is blocked, for up to a second per
 * piece. Read errors are silent and drop what was read; so is the end of file, at which the loop calls again and again
 * until the owner stops or deletes the watcher. A message of more than 0x8000000 payload bytes is dropped silently, one
 * of more than 8 MiB in all with the line "error: zor_realloc want to malloc 4M, return NULL, malloc len=%d\n"; in both
 * cases its payload is not read and is parsed as headers.
 */
#ifndef ZOR_UV_IO_H
#define ZOR_UV_IO_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/msg_wire.h>
#include <zor/uv_loop.h>
#include <zor/uv_timer.h>

ZOR_BEGIN_DECLS

struct UvIO;
struct UvIdle;
struct UvMsgWatcher;

/* One event bit, or the bits of a forced event. */
typedef void (*UV_IO_CALLBACK)(struct UvIO *watcher, uint32_t event);
/* The flags are those of the watcher. */
typedef void (*UV_IDLE_CALLBACK)(struct UvIdle *watcher, uint32_t flags);

typedef struct UvIO {
  UvWatcher header;
  int32_t fd;      /* -1 once deleted or found bad */
  uint32_t events; /* those waited for */
  UV_IO_CALLBACK ioCallback;
} UvIO;

typedef struct UvIdle {
  UvWatcher header;
  UV_IDLE_CALLBACK idleCallback;
} UvIdle;

/* An event that waits for the next iteration; see ZOR_UV_IOForcedLoop. */
typedef struct UvForcedEvent {
  struct UvForcedEvent *next;
  UvIO *watcher;
  uint32_t events;
} UvForcedEvent;

/* The payload length that a header announces. Called once per message; may change the header in place. Sets
   needsFixUp when fixUp is to see the message. */
typedef uint32_t (*UV_MSG_PAYLOAD_LENGTH)(ZOR_MSG_HEAD *header, uint32_t *needsFixUp);
/* Receives a message, which it must not free. */
typedef void (*UV_MSG_HANDLER)(ZOR_MSG_HEAD *msg);
/* Nonzero when the message is the reply to the request with these keys. */
typedef uint32_t (*UV_MSG_MATCH)(const ZOR_MSG_HEAD *msg, uint32_t key1, uint32_t key2);
/* Completes a message with a payload, replacing the block if need be. Returns 0; on failure it has freed the block and
   stores null, and the message is dropped. */
typedef uint32_t (*UV_MSG_FIX_UP)(ZOR_MSG_HEAD **msg);
/* Receives a reply with status 0, or null with status 1 when none came in time. Called exactly once per request, unless
   the loop is destroyed before. Must not free the message. */
typedef void (*UV_MSG_REPLY)(ZOR_MSG_HEAD *msg, uint32_t status, void *replyData);

/* A request that waits for its reply; freed after its callback. */
typedef struct UvPendingReply {
  struct UvPendingReply *next;
  uint32_t key1;
  uint32_t key2;
  void *replyData;
  UV_MSG_REPLY replyCallback;
  struct UvMsgWatcher *watcher; /* null once the watcher is gone; the guard still calls back */
  UvTimer *timer;               /* the guard */
} UvPendingReply;

/* Zeroed by its owner, who sets the header length and the functions before ZOR_UV_MsgInit. With the flag UV_WATCHER_RAW
   it treats the result of one read of up to 1024 bytes as a message, and needs neither. */
typedef struct UvMsgWatcher {
  UvIO io;
  uint32_t headerLength;
  UV_MSG_PAYLOAD_LENGTH getPayloadLength;
  UV_MSG_HANDLER defaultHandler;
  UV_MSG_MATCH matchReply; /* null: no message is a reply */
  UV_MSG_FIX_UP fixUp;     /* may be null */
  UvPendingReply *pending;
} UvMsgWatcher;

/* Lists a watcher of a descriptor, waiting for nothing yet. The watcher closes the descriptor when it is deleted; the
   callback may be null. A negative descriptor is never waited for.
   Returns 0; ZOR_E_ARGUMENT, with nothing changed, for a null watcher, a descriptor of 1024 or more (select cannot wait
   for it), or when there is no loop. */
ZOR_API uint32_t ZOR_UV_IOInit(UvLoop *loop, UvIO *watcher, int32_t fd, UV_IO_CALLBACK callback);

/* Waits for more events, UV_READABLE, UV_WRITABLE and UV_EXCEPTIONAL, and starts the watcher unless all of them were
   waited for already; other bits are ignored. Returns 0; ZOR_E_ARGUMENT for null or a watcher without a loop. */
ZOR_API uint32_t ZOR_UV_IOStart(UvIO *watcher, uint32_t events);

/* Waits for these events no longer. The watcher stays started, even with no events left. Returns 0; ZOR_E_ARGUMENT for
   null or a watcher without a loop. */
ZOR_API uint32_t ZOR_UV_IOStop(UvIO *watcher, uint32_t events);

/* Stops all events, shuts the descriptor down in both directions, closes it, and marks the watcher deleted. Returns 0;
   ZOR_E_ARGUMENT for null or a watcher without a loop. */
ZOR_API uint32_t ZOR_UV_IODelete(UvIO *watcher);

/* Has the callback called with these event bits in the next iteration, as if the descriptor were ready. The real event
   of the same bit makes the call needless when it comes first. When a forced event ran, ready descriptors wait for the
   iteration after. Nothing is called when the watcher is deleted by then.
   Returns 0; ZOR_E_ARGUMENT for null or a watcher without a loop; ZOR_E_NO_MEMORY. */
ZOR_API uint32_t ZOR_UV_IOForcedLoop(UvIO *watcher, uint32_t events);

/* Ends the descriptor pass in progress when the running callback has returned (on is nonzero), or takes that back. The
   other passes of the iteration still run. Returns 0; ZOR_E_ARGUMENT for null or a watcher without a loop. */
ZOR_API uint32_t ZOR_UV_IOSkipLoop(UvIO *watcher, uint32_t on);

/* The first watcher of this descriptor in list order, deleted ones included; null when there is none. */
ZOR_API UvIO *ZOR_UV_IOFindByFd(UvLoop *loop, int32_t fd);

/* Lists an idle hook without a callback, to be set by the caller; it need not be started. Returns 0; ZOR_E_ARGUMENT for
   null or when there is no loop. */
ZOR_API uint32_t ZOR_UV_IdleInit(UvLoop *loop, UvIdle *watcher);

/* Makes an idle hook. Returns the record, which the loop frees; null for a null callback, when there is no loop or when
   memory runs out. */
ZOR_API UvIdle *ZOR_UV_IdleStart(UvLoop *loop, UV_IDLE_CALLBACK callback);

/* Marks a hook deleted. It is called until it is swept. Returns 0; ZOR_E_ARGUMENT for null. */
ZOR_API uint32_t ZOR_UV_IdleStop(UvIdle *watcher);

/* Lists a message watcher. A watcher that ZOR_UV_IOInit would refuse is left alone. */
ZOR_API void ZOR_UV_MsgInit(UvLoop *loop, UvMsgWatcher *watcher, int32_t fd, UV_MSG_HANDLER defaultHandler);

/* Waits for messages. Returns what ZOR_UV_IOStart returns. */
ZOR_API uint32_t ZOR_UV_MsgStart(UvMsgWatcher *watcher);

/* Closes the descriptor and marks the watcher deleted. Pending requests are called back at their time-outs. Returns
   what ZOR_UV_IODelete returns. */
ZOR_API uint32_t ZOR_UV_MsgDelete(UvMsgWatcher *watcher);

/* Waits for the reply to one request, for at most timeoutMs (0: without limit). Of several requests with the same keys
   the earliest gets the first reply. A reply that comes after the time-out goes to the default handler.
   Returns 0; ZOR_E_IO for a null watcher or callback; ZOR_E_NO_MEMORY. */
ZOR_API uint32_t ZOR_UV_MsgStartWatcher(UvMsgWatcher *watcher, uint32_t key1, uint32_t key2, uint32_t timeoutMs,
                                        void *replyData, UV_MSG_REPLY replyCallback);

ZOR_END_DECLS

#endif
