/*
 * Dispatch of received messages to registered handlers, message queues and restful requests.
 *
 * 1. A message that is dispatched belongs to the dispatcher: handlers read it, may change it in place, never free it.
 * 2. Handlers may register and unregister handlers (themselves included), send, make synchronous requests and dispatch
 *    further messages. An unregistered handler is not called any more, not even by a dispatch in progress.
 * 3. Lengths are in bytes. Names are cut to 11 characters. A null name as destination means the message server.
 * 4. Statuses are those of <zor/status.h>. What sends returns the statuses of ZOR_MSG_Send beside its own.
 * 5. Everything here is process-wide and belongs to the loop's thread.
 */
#ifndef ZOR_MSG_DISPATCH_H
#define ZOR_MSG_DISPATCH_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/msg_head.h>

ZOR_BEGIN_DECLS

/* A handler that sends no reply, or sends it itself. */
typedef void (*ZOR_MSG_HANDLER)(ZOR_MSG_HEAD *msg);

/* A handler whose reply is sent for it. Returns a malloc block with sequence number, data word and body filled in
   (ZOR_MSG_MsgResponseBuilder makes one), or null for no reply. The block is freed after the send. */
typedef ZOR_MSG_HEAD *(*ZOR_MSG_SYNC_HANDLER)(ZOR_MSG_HEAD *msg);

/* One registered handler; its address is the registration handle. */
typedef struct ZOR_MSG_PROC_ENTRY {
  struct ZOR_MSG_PROC_ENTRY *next;
  uint32_t type;
  uint32_t order;
  ZOR_MSG_HANDLER proc;
  ZOR_MSG_SYNC_HANDLER syncProc;
} ZOR_MSG_PROC_ENTRY;

/* Serves a restful request. body is a ZOR_MSG_RESTFUL_HEAD with the request's text behind it. On status 0 *replyText
   (null at the call) is sent to the requester and freed; on any other status the request gets no reply. */
typedef uint32_t (*ZOR_MSG_RESTFUL_PROC)(void *body, char **replyText);

typedef struct ZOR_MSG_RESTFUL_ENTRY {
  const char *name; /* null ends the table */
  ZOR_MSG_RESTFUL_PROC proc;
} ZOR_MSG_RESTFUL_ENTRY;

/* Sets the procedure that every received message goes to; null for none. Most daemons set ZOR_MSG_DefaultMsgProc. */
ZOR_API void ZOR_MSG_RegisterMsgProc(ZOR_MSG_PROC proc);

/* Traces a message (module "track") and calls the message procedure with it and its body length. A body above 0x200000
   bytes is not dispatched: "[msg] error msg datalen = %d \r\n" is printed instead. The second word is ignored, and so
   is a null message. */
ZOR_API void ZOR_MSG_MsgFilterProc(ZOR_MSG_HEAD *msg, uint32_t word);

/* Runs the default loop until it is stopped; the loop's status. */
ZOR_API uint32_t ZOR_MSG_GetAndDispatch(void);

/* Adds a handler for a message type. Handlers of one type run in ascending order, equal orders as registered; of one
   entry first the procedure, then the synchronous one; either may be null. A handler that is registered while one of
   its type runs is called for the same message if its place is behind the running one. *handle (handle may be null) is
   cleared first. ZOR_E_NO_MEMORY.

   A reply has the type of its request. One that comes after the time-out is dispatched like any message: a daemon that
   both requests a type and has a handler for it takes the late reply for a request. Two daemons that ask each other
   with one type then reply to each other without end; give each direction a type of its own. */
ZOR_API uint32_t ZOR_MSG_RegMsgProcEx(uint32_t type, ZOR_MSG_HANDLER proc, ZOR_MSG_SYNC_HANDLER syncProc,
                                      uint32_t order, ZOR_MSG_PROC_ENTRY **handle);

/* ZOR_MSG_RegMsgProcEx without a synchronous procedure. */
ZOR_API uint32_t ZOR_MSG_RegMsgProc(uint32_t type, ZOR_MSG_HANDLER proc, uint32_t order, ZOR_MSG_PROC_ENTRY **handle);

/* ZOR_MSG_RegMsgProcEx with nothing but a synchronous procedure. */
ZOR_API uint32_t ZOR_MSG_RegSyncMsgProc(uint32_t type, ZOR_MSG_SYNC_HANDLER syncProc, uint32_t order,
                                        ZOR_MSG_PROC_ENTRY **handle);

/* Removes a handler. A handle that is not registered (any more) is ignored. */
ZOR_API void ZOR_MSG_UnRegMsgProc(ZOR_MSG_PROC_ENTRY *handle);

/* Runs all handlers of the message's type and sends the replies of the synchronous ones to its source. A message that
   no handler took may still be one that the bus handles itself: ZOR_MSG_SAFE_EXIT to "dhcps", "ssdpd", "upnp",
   "ntwksync", "quorelbridge", "devmngr" or "datacli" prints "Fatal: App(%s:%d)
   exited.=================================\n", is acknowledged and ends the process with exit(0). Has the shape of a
   message procedure; the second word is ignored. */
ZOR_API void ZOR_MSG_DefaultMsgProc(ZOR_MSG_HEAD *msg, uint32_t ignored ZOR_DEFAULT(0));

/* Appends a message, which then belongs to the queue, with a word of the caller's. ZOR_E_ARGUMENT for a null argument;
   ZOR_E_NO_MEMORY. On failure the message stays with the caller. */
ZOR_API uint32_t ZOR_MSG_QueueAppendEx(ZOR_MSG_QUEUE_NODE **head, ZOR_MSG_HEAD *msg, uintptr_t extra);

/* ZOR_MSG_QueueAppendEx with the word 0. */
ZOR_API uint32_t ZOR_MSG_QueueAppend(ZOR_MSG_QUEUE_NODE **head, ZOR_MSG_HEAD *msg);

/* Frees all nodes and their messages and leaves the queue empty. */
ZOR_API void ZOR_MSG_QueueDestroy(ZOR_MSG_QUEUE_NODE **head);

/* Hands over the descriptor for the bus's trace output, replacing the one before, which is closed. The library keeps it
   when the context's trace switch is set and a stream can be opened on it, else closes it. A negative one only ends
   the output so far. */
ZOR_API void ZOR_MSG_TraceProc(int fd);

/* Registers the procedures of a path prefix and announces the prefix itself as the pattern of the paths to receive. */
ZOR_API uint32_t ZOR_MSG_RegRestfulProcs(const char *prefix, const ZOR_MSG_RESTFUL_ENTRY *table);

/* The same. When expand is not null (its target is not looked at), "prefix/name" of every row is announced instead, as
   one list of at most 4095 characters; what does not fit is left out. The table is not copied. ZOR_E_ARGUMENT for a
   null prefix or table; ZOR_E_NO_MEMORY; a send's status, nothing then being registered. */
ZOR_API uint32_t ZOR_MSG_RegRestfulProcsEx(const char *prefix, const ZOR_MSG_RESTFUL_ENTRY *table, const void *expand);

/* Tests whether one of the patterns, separated by "|", matches the whole path. Returns 1 if so, else 0, also for null.
   In a pattern "?" stands for any one character, "*" for a run without "/", "**" for any run; either run may be empty.
   */
ZOR_API uint32_t ZOR_UTIL_MatchPrefixPath(const char *patternList, const char *path);

/* A new restful request to the server, which the caller sends and frees; null when it cannot be allocated. Prefix and
   name are cut to 63 characters, null ones are left empty. data is text of at most dataLength characters, or null. */
ZOR_API ZOR_MSG_HEAD *ZOR_MSG_BuildRestfulReqMsg(uint32_t word0, uint32_t word1, const char *prefix, const char *name,
                                                 const char *data, uint32_t dataLength);

/* Sends a message with a body under a sequence number of the caller's. ZOR_E_ARGUMENT for null data;
   ZOR_E_NO_MEMORY. */
ZOR_API uint32_t ZOR_MSG_SendRestfulResponseMsg(const char *destination, uint32_t type, const void *data,
                                                uint32_t dataLength, uint32_t dataWord, uint32_t sequence);

ZOR_END_DECLS

#endif
