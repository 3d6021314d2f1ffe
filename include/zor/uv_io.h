/* Descriptor watchers, idle hooks and message watchers. */
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

typedef void (*UV_IO_CALLBACK)(struct UvIO *watcher, uint32_t event);
typedef void (*UV_IDLE_CALLBACK)(struct UvIdle *watcher, uint32_t flags);

typedef struct UvIO {
  UvWatcher header;
  int32_t fd;
  uint32_t events;
  UV_IO_CALLBACK ioCallback;
} UvIO;

typedef struct UvIdle {
  UvWatcher header;
  UV_IDLE_CALLBACK idleCallback;
} UvIdle;

typedef struct UvForcedEvent {
  struct UvForcedEvent *next;
  UvIO *watcher;
  uint32_t events;
} UvForcedEvent;

typedef uint32_t (*UV_MSG_PAYLOAD_LENGTH)(ZOR_MSG_HEAD *header, uint32_t *needsFixUp);
typedef void (*UV_MSG_HANDLER)(ZOR_MSG_HEAD *msg);
typedef uint32_t (*UV_MSG_MATCH)(const ZOR_MSG_HEAD *msg, uint32_t key1, uint32_t key2);
typedef uint32_t (*UV_MSG_FIX_UP)(ZOR_MSG_HEAD **msg);
typedef void (*UV_MSG_REPLY)(ZOR_MSG_HEAD *msg, uint32_t status, void *replyData);

typedef struct UvPendingReply {
  struct UvPendingReply *next;
  uint32_t key1;
  uint32_t key2;
  void *replyData;
  UV_MSG_REPLY replyCallback;
  struct UvMsgWatcher *watcher;
  UvTimer *timer;
} UvPendingReply;

typedef struct UvMsgWatcher {
  UvIO io;
  uint32_t headerLength;
  UV_MSG_PAYLOAD_LENGTH getPayloadLength;
  UV_MSG_HANDLER defaultHandler;
  UV_MSG_MATCH matchReply;
  UV_MSG_FIX_UP fixUp;
  UvPendingReply *pending;
} UvMsgWatcher;

ZOR_API uint32_t ZOR_UV_IOInit(UvLoop *loop, UvIO *watcher, int32_t fd, UV_IO_CALLBACK callback);
ZOR_API uint32_t ZOR_UV_IOStart(UvIO *watcher, uint32_t events);
ZOR_API uint32_t ZOR_UV_IOStop(UvIO *watcher, uint32_t events);
ZOR_API uint32_t ZOR_UV_IODelete(UvIO *watcher);
ZOR_API uint32_t ZOR_UV_IOForcedLoop(UvIO *watcher, uint32_t events);
ZOR_API uint32_t ZOR_UV_IOSkipLoop(UvIO *watcher, uint32_t on);
ZOR_API UvIO *ZOR_UV_IOFindByFd(UvLoop *loop, int32_t fd);

ZOR_API uint32_t ZOR_UV_IdleInit(UvLoop *loop, UvIdle *watcher);
ZOR_API UvIdle *ZOR_UV_IdleStart(UvLoop *loop, UV_IDLE_CALLBACK callback);
ZOR_API uint32_t ZOR_UV_IdleStop(UvIdle *watcher);

ZOR_API void ZOR_UV_MsgInit(UvLoop *loop, UvMsgWatcher *watcher, int32_t fd, UV_MSG_HANDLER defaultHandler);
ZOR_API uint32_t ZOR_UV_MsgStart(UvMsgWatcher *watcher);
ZOR_API uint32_t ZOR_UV_MsgDelete(UvMsgWatcher *watcher);
ZOR_API uint32_t ZOR_UV_MsgStartWatcher(UvMsgWatcher *watcher, uint32_t key1, uint32_t key2, uint32_t timeoutMs,
                                        void *replyData, UV_MSG_REPLY replyCallback);

ZOR_END_DECLS

#endif
