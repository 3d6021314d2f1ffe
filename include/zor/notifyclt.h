/*
 * The notification client: the second, module-ID based channel, for small typed notifications between modules.
 *
 * 1. A process has one client. ZOR_NOTIFYCLT_Init connects it, registers it under its module id (MID) and watches
 *    it on the default loop; ZOR_NOTIFYCLT_Destroy, or the exit of the server, ends it and drops the handlers, unless
 *    ZOR_NOTIFYCLT_EnableRejoin was called.
 * 2. Threads: sending is serialised by one mutex, so any thread may post. Everything else, a synchronous request
 *    included, belongs to the loop's thread.
 * 3. Data goes out as it is, integers in host byte order. Message data passed in is copied. Data given to a handler
 *    belongs to the library, is followed by a NUL and is valid during the call; null stands for no data.
 * 4. A header and its data above 0x800000 bytes are refused with ZOR_NOTIFY_E_NO_MEMORY and the line
 *    "error: not host tool, but malloc 4M, return NULL, malloc len=%d\n" on standard output.
 * 5. Every sender may return: 0; ZOR_NOTIFY_E_NO_MEMORY; ZOR_NOTIFY_E_NOT_WRITABLE when the socket took nothing for 10
 *    seconds or there is no connection; ZOR_NOTIFY_E_TIMEOUT when the server has closed the connection;
 *    ZOR_NOTIFY_E_IO. Each failure to send prints a line on standard output.
 * 6. When ten sends in a row have returned ZOR_NOTIFY_E_NOT_WRITABLE, each further send first runs the command
 *    "reboot", without waiting for it, until one succeeds.
 */
#ifndef ZOR_NOTIFYCLT_H
#define ZOR_NOTIFYCLT_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/notify_wire.h>

ZOR_BEGIN_DECLS

/* Status codes of this channel; the numbers are the bus's, the meanings are not. */
#define ZOR_NOTIFY_OK UINT32_C(0)
#define ZOR_NOTIFY_E_CONNECT UINT32_C(0x10000)      /* no socket, or no server at the other end */
#define ZOR_NOTIFY_E_ARGUMENT UINT32_C(0x10001)     /* null message, or neither synchronous nor asynchronous */
#define ZOR_NOTIFY_E_MID UINT32_C(0x10002)          /* module id outside 1 to 102 */
#define ZOR_NOTIFY_E_SERVER_GONE UINT32_C(0x10003)  /* end of stream, or the registration could not be sent */
#define ZOR_NOTIFY_E_TIMEOUT UINT32_C(0x10004)      /* no message for 240 seconds, or EPIPE while sending */
#define ZOR_NOTIFY_E_NO_MEMORY UINT32_C(0x10005)    /* out of memory, data too long, or no place on the loop */
#define ZOR_NOTIFY_E_IO UINT32_C(0x10006)           /* read or write error, or a torn header */
#define ZOR_NOTIFY_E_NOT_WRITABLE UINT32_C(0x10007) /* not connected, or not writable within 10 seconds */

/* Handles a synchronous message of one type. The reply to a request is *reply (a malloc block, which the library frees
   after sending) and *replyLength; untouched, the reply is empty. For a reply that no request waits for both are null,
   and the result is the dispatch status. */
typedef uint32_t (*ZOR_NOTIFY_SYNC_PROC)(void *data, void **reply, uint32_t *replyLength);
/* Handles an asynchronous message of one type. The second part is null when its length is 0 or it would begin
   outside the data. The result is the dispatch status. */
typedef uint32_t (*ZOR_NOTIFY_ASYNC_PROC)(void *part1, void *part2);
/* The same for all types without a handler of their own. The state begins with this process's module id, a uint32_t. */
typedef uint32_t (*ZOR_NOTIFY_DEFAULT_SYNC_PROC)(uint32_t type, void *data, void **reply, uint32_t *replyLength);
typedef uint32_t (*ZOR_NOTIFY_DEFAULT_ASYNC_PROC)(uint32_t type, void *part1, void *part2, void *state);

/* Connects to the notification server as module mid, from the socket "/var/run/notify/client%05d" (process id).
   Returns 0, also when already connected; ZOR_NOTIFY_E_MID; ZOR_NOTIFY_E_CONNECT; ZOR_NOTIFY_E_SERVER_GONE when the
   registration could not be sent; ZOR_NOTIFY_E_NO_MEMORY when the loop does not take the socket. A failure after the
   socket was bound destroys the client, handlers registered before included. */
ZOR_API uint32_t ZOR_NOTIFYCLT_Init(uint32_t mid);

/* ZOR_NOTIFYCLT_Init for the two modules that connect by name, "cms" and "web". Every other name, and null, returns 0
   without connecting. */
ZOR_API uint32_t ZOR_NOTIFYCLT_InitByName(const char *name);

/* Closes the connection and clears the client: handlers, pending messages, sequence counter. */
ZOR_API void ZOR_NOTIFYCLT_Destroy(void);

/* Replaces the descriptor used for sending and receiving. The loop watches the new one instead of the old one (when it
   takes it; synchronous requests work in any case). The old one stays open and belongs to the caller, the new one to
   the client. A negative descriptor leaves the client unconnected. */
ZOR_API void ZOR_NOTIFYCLT_SwitchSock(int32_t fd);

/* The id of a module by its exact name; 0 for an unknown name and for null. */
ZOR_API uint32_t ZOR_NOTIFYCLT_GetMIDByName(const char *name);
ZOR_API uint32_t ZOR_NOTIFYCLT_GetAllowMIDByName(const char *name);

/* The name of a module, a static string; null for an id without a name. */
ZOR_API const char *ZOR_NOTIFYCLT_GetNameByMID(uint32_t mid);

/* Sets the synchronous or the asynchronous handler of a type; null removes it. The other handler of the type stays.
   Returns the type's entry, which is for comparing only; null when memory runs out. */
ZOR_API void *ZOR_NOTIFYCLT_RegSyncMsgProc(uint32_t type, ZOR_NOTIFY_SYNC_PROC proc);
ZOR_API void *ZOR_NOTIFYCLT_RegAsyncMsgProc(uint32_t type, ZOR_NOTIFY_ASYNC_PROC proc);

/* Sets both default handlers. */
ZOR_API void ZOR_NOTIYCLT_RegMsgProc(ZOR_NOTIFY_DEFAULT_SYNC_PROC syncProc, ZOR_NOTIFY_DEFAULT_ASYNC_PROC asyncProc);

/* Sends a request and waits for its reply: the next message with the same type and sequence number. Other
   messages are dispatched later, by the loop. Each message is waited for up to 240 seconds; the whole is not
   limited. *replyLength goes out with the request as the caller set it and receives the length of the reply;
   *reply receives a malloc block that the caller frees, null for a reply without data. Either may be null. Both are
   untouched on failure. Returns what a sender returns, or: ZOR_NOTIFY_E_TIMEOUT; ZOR_NOTIFY_E_SERVER_GONE, with the
   client destroyed; ZOR_NOTIFY_E_NO_MEMORY; ZOR_NOTIFY_E_IO. */
ZOR_API uint32_t ZOR_NOTIFYCLT_SendSynNotify(uint32_t destination, uint32_t type, const void *data, uint32_t length,
                                             void **reply, uint32_t *replyLength);

/* Sends a notification of two parts, one after the other. A null part with a length goes out as zeros. */
ZOR_API uint32_t ZOR_NOTIFYCLT_PostAsynNotify(uint32_t destination, uint32_t type, const void *part1, uint32_t length1,
                                              const void *part2, uint32_t length2);

/* Sends a notification whose parts are two 32-bit values. */
ZOR_API uint32_t ZOR_NOTIFYCLT_PostSimpleAsynNotify(uint32_t destination, uint32_t type, uint32_t value1,
                                                    uint32_t value2);

/* Dispatches one message to the handler of its type, else to the default handler. A request gets a reply even
   without a handler, unless it comes from the server itself. Returns, for a request, the status of sending the reply
   (0 for a request from the server); for an unexpected reply and for an asynchronous message the handler's status, 0
   without a handler or when the default asynchronous handler took it; ZOR_NOTIFY_E_ARGUMENT for null and for a message
   that is neither synchronous nor asynchronous. */
ZOR_API uint32_t ZOR_NOTIFYCLT_MsgFilterProc(ZOR_NOTIFY_MSG *msg);

ZOR_END_DECLS

#endif
