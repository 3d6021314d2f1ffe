/*
 * Builders, copies, one-call sends, requests about other daemons, and descriptor passing.
 *
 * Conventions of this header:
 * 1. A status is one of <zor/status.h>. All functions belong to the loop's thread.
 * 2. A destination that is null or empty is the message server. Names are at most 11 characters; longer ones are cut.
 * 3. Messages that are returned are blocks of the caller, freed with one free(). Lengths are in bytes. A block of more
 *    than 8 MiB is refused with a line on standard output.
 * 4. "Takes a number" means that the process-wide sequence counter advances.
 */
#ifndef ZOR_MSG_BUILD_H
#define ZOR_MSG_BUILD_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/msg_head.h>

ZOR_BEGIN_DECLS

/* How long the stop of a dynamic application waits, in milliseconds; 5000 at start. */
ZOR_API extern uint32_t g_ulSafeExitMsgTimeout;

/* Fills a header without a body; takes a number. A null header is ignored. */
ZOR_API void ZOR_MSG_SimpleBuilder(ZOR_MSG_HEAD *header, const char *destination, uint32_t type, uint32_t dataWord);

/* A new reply to the sender of a request, with the request's type and number. A null data pointer gives a reply
   without a body and takes a number that is not used. Null for a null request, a length from 0x7fffffd7 on, or when
   the block is refused. */
ZOR_API ZOR_MSG_HEAD *ZOR_MSG_MsgResponseBuilder(const ZOR_MSG_HEAD *request, uint32_t dataWord, const void *data,
                                                 uint32_t dataLength);

/* Sends a header without a body; takes a number. Returns the status of ZOR_MSG_Send. */
ZOR_API uint32_t ZOR_MSG_SendSimpleMsg(const char *destination, uint32_t type, uint32_t dataWord);

/* The same with the given number; one is taken nevertheless. */
ZOR_API uint32_t ZOR_MSG_SendSimpleMsgWithSeqNum(const char *destination, uint32_t type, uint32_t dataWord,
                                                 uint32_t sequence);

/* Sends a body with the given number; takes none. Null data: as ZOR_MSG_SendSimpleMsgWithSeqNum. ZOR_E_NO_MEMORY when
   the block is refused, else the status of ZOR_MSG_Send. */
ZOR_API uint32_t ZOR_MSG_SendMsgDataWithDataSeq(const char *destination, uint32_t type, const void *data,
                                                uint32_t dataLength, uint32_t dataWord, uint32_t sequence);

/* The same with number 0. Null data: as ZOR_MSG_SendSimpleMsg. */
ZOR_API uint32_t ZOR_MSG_SendMsgDataWithData(const char *destination, uint32_t type, const void *data,
                                             uint32_t dataLength, uint32_t dataWord);

/* The same with number and data word 0. */
ZOR_API uint32_t ZOR_MSG_SendMsgData(const char *destination, uint32_t type, const void *data, uint32_t dataLength);

/* An exact copy. Null for null, a body length from 0xffffffd7 on, or when the block is refused. */
ZOR_API ZOR_MSG_HEAD *ZOR_MSG_Dup(const ZOR_MSG_HEAD *msg);

/* A new message with a body of the given length. Returns the place of the body, also for length 0; the block is
   freed through ZOR_MSG_GetMsgHead. Null when it is refused. */
ZOR_API void *ZOR_MSG_GetMsgBlock(uint32_t dataLength);

/* Lays a message over the caller's buffer of size bytes, at any address; only the header is cleared. Returns the place
   of the body; null for null or a size below 40. ZOR_MSG_SetMsgProfile and the sends of <zor/msg_bus.h> take such a
   message; other functions need one that is aligned for a uint32_t. */
ZOR_API void *ZOR_MSG_GetMsgBlockEx(void *buffer, uint32_t size);

/* Sets destination (not when null), type and body length of the message around a body. ZOR_E_ARGUMENT for a null body,
   and for a length above the present one: then the length stays, but destination and type are set. */
ZOR_API uint32_t ZOR_MSG_SetMsgProfile(void *body, const char *destination, uint32_t type, uint32_t dataLength);

/* Subscribes the named daemon to an event, or unsubscribes it; a daemon that subscribes for itself gives its own name.
   A null name does nothing and returns 0; else the status of the send. */
ZOR_API uint32_t ZOR_MSG_SubscribeEventForOtherApp(uint32_t event, const char *name);
ZOR_API uint32_t ZOR_MSG_UnSubscribeEventForOtherApp(uint32_t event, const char *name);

/* How many processes of that name are on the bus. Asks the server and waits up to 5 s; 0 for null and on any failure.
 */
ZOR_API uint32_t ZOR_MSG_GetNumOfProcesses(const char *name);

/* Asks the named daemon to exit and waits up to 5 s for its reply, then notifies the server in any case. Returns the
   two statuses combined by bitwise OR: 0, or a value that need not be a single status. 0 for null. */
ZOR_API uint32_t ZOR_MSG_SafeExitProcesses(const char *name);

/* Passes a descriptor, which stays open here, to the destination of the process's latest message. Neither waits nor
   retries. ZOR_E_NOT_CONNECTED; ZOR_E_IO. */
ZOR_API uint32_t ZOR_MSG_SendFd(int fd);

/* Receives a descriptor, close-on-exec, that the caller closes. timeoutMs 0 waits without limit. On failure *fd is
   untouched and no descriptor stays open: ZOR_E_ARGUMENT for null; ZOR_E_NOT_CONNECTED; ZOR_E_TIMEOUT;
   ZOR_E_PEER_GONE at the end of file; ZOR_E_IO for any other error or when something else came, which is consumed. */
ZOR_API uint32_t ZOR_MSG_RecvFd(int *fd, uint32_t timeoutMs);

ZOR_END_DECLS

#endif
