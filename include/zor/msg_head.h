/*
 * Message header access and the process-wide bus context.
 *
 * 1. A message is one malloc block: the 40-byte header, then the body. Its receiver owns it and releases it with
 *    one free() of the header's address. Blocks that callers build themselves should be aligned for 32-bit words;
 *    ZOR_MSG_GetMsgBlockEx says what takes others.
 * 2. Every copy of a name is cut to 11 characters and terminated.
 * 3. The context has no lock: it belongs to the thread that runs the loop.
 */
#ifndef ZOR_MSG_HEAD_H
#define ZOR_MSG_HEAD_H

#include <stdint.h>
#include <stdio.h>
#include <zor/export.h>
#include <zor/msg_wire.h>

ZOR_BEGIN_DECLS

struct UvMsgWatcher;

/* The application's dispatch entry: the message, which it must not free, and its body length in bytes. */
typedef void (*ZOR_MSG_PROC)(ZOR_MSG_HEAD *msg, uint32_t bodyLength);

/* A queue of messages; a queue is identified by the address of its head pointer. */
typedef struct ZOR_MSG_QUEUE_NODE {
  struct ZOR_MSG_QUEUE_NODE *next;
  ZOR_MSG_HEAD *msg;
  uintptr_t extra;
} ZOR_MSG_QUEUE_NODE;

/* Context flag word. Used with ZOR_MSG_CTX. */
#define ZOR_MSG_FLAG_SWAP UINT32_C(0x2)              /* the peer's byte order differs */
#define ZOR_MSG_FLAG_BOARD_MASK UINT32_C(0x1c000000) /* own board; 0 unless the application sets it */
#define ZOR_MSG_FLAG_BOARD_SHIFT 26
#define ZOR_MSG_FLAG_PEER_BOARD_MASK UINT32_C(0xe0000000) /* board of the last message received */

/* The bus context: one per process. */
typedef struct ZOR_MSG_CTX {
  char appName[ZOR_MSG_NAME_SIZE]; /* the daemon's own name; the granted one once registered */
  int socketFd;                    /* -1 when not connected */
  ZOR_MSG_PROC messageProc;
  uint32_t traceFdEnabled; /* nonzero: ZOR_MSG_TraceProc keeps a stream on the descriptor it is given */
  FILE *traceStream;
  int traceFd;                 /* -1 at start; 0 after ZOR_MSG_Destroy */
  ZOR_MSG_QUEUE_NODE *pending; /* messages that arrived while a request waited for its reply */
  uint32_t flags;
  struct UvMsgWatcher *watcher; /* reads the socket; owned by the loop */
  uint32_t sequence;            /* last number handed out */
} ZOR_MSG_CTX;

/* The bus context of the process. It starts as all zeros but for the two descriptors, which are -1. */
ZOR_API extern ZOR_MSG_CTX g_stMsgCtx;

/* The name in trace lines: "" until registration, then the context's name. */
ZOR_API extern const char *m_aucAppName;

/* The library's version, "V1.01". */
ZOR_API const char *ZOR_MSG_GetVersion(void);

/* Reverses the byte order of type, sequence, data and body length in place; names and body stay. Null is ignored. */
ZOR_API void ZOR_MSG_HeaderEndianSwap(ZOR_MSG_HEAD *header);

/* Always 0: the bus never converts a body, and an application that sends binary ones between boards of different byte
   order does so itself. The argument is ignored. */
ZOR_API uint32_t ZOR_MSG_BodyNeedEndianSwap(const void *message);

/* The header in front of a body; null for null. */
ZOR_API ZOR_MSG_HEAD *ZOR_MSG_GetMsgHead(void *body);

/* The body behind a header; null when the header is null or its body length is 0. */
ZOR_API void *ZOR_MSG_GetMsgByHead(ZOR_MSG_HEAD *header);

ZOR_END_DECLS

#endif
