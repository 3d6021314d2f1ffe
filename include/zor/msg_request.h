/*
 * Requests that wait for their reply, asynchronous requests and the cross-process barrier.
 *
 * 1. Messages are built by the caller and stay the caller's. Every request overwrites the sequence number with the next
 *    one of the process; a send reduces the type word to the 20-bit message type and fills in the source.
 * 2. A reply address is set to null before anything else. On success it receives a new block, which the caller frees.
 * 3. Time-outs are milliseconds for the whole wait. 0 waits without limit, but only for the first message: when that is
 *    not the reply, the wait ends with ZOR_E_TIMEOUT. To wait long through other traffic, give a large time-out.
 * 4. The reply is the first message of the request's type (and, in the variants with an application name, from that
 *    application). Sequence numbers are not compared: a late reply to an earlier request of that type is taken.
 * 5. Every other message is appended to the pending queue, which the loop dispatches in order of arrival once it runs
 *    again, also when the wait failed.
 * 6. Waits return 0; ZOR_E_ARGUMENT for a null argument or when the bus has no socket to read; ZOR_E_PEER_GONE when the
 *    server reports that the destination is absent, or closes; ZOR_E_TIMEOUT when time is up or 1000 messages were set
 *    aside; else the status of ZOR_MSG_Recv. Requests also return the status of ZOR_MSG_Send when that fails:
 *    ZOR_E_NOT_CONNECTED when the bus is not initialised.
 * 7. All of it is for the loop's thread, which a wait blocks.
 */
#ifndef ZOR_MSG_REQUEST_H
#define ZOR_MSG_REQUEST_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/msg_head.h>

ZOR_BEGIN_DECLS

/* Receives the reply of an asynchronous request with status 0, or null with status 1 when none came in time. Called
   once. The reply is the loop's: copy what is needed after the call. */
typedef void (*ZOR_MSG_REPLY_PROC)(ZOR_MSG_HEAD *reply, uint32_t status, void *replyData);

/* Sends a request and waits for a reply of its type. A request to this process's own name runs the registered handlers
   within the call, before the wait; their reply comes back through the server. A process without a name, or named
   "mic", sends past the send hook and logs "Send sync msg type:... in mic not allowed." at level 1; the request goes
   on. Neither applies to the registration. */
ZOR_API uint32_t ZOR_MSG_SendAndRecv(ZOR_MSG_HEAD *msg, ZOR_MSG_HEAD **reply, uint32_t timeoutMs);

/* The same with a reply that must come from the request's destination, always through the send hook, and without the
   warning. */
ZOR_API uint32_t ZOR_MSG_SendAndRecvWithAppName(ZOR_MSG_HEAD *msg, ZOR_MSG_HEAD **reply, uint32_t timeoutMs);

/* Waits for the reply to a request that has been sent already. */
ZOR_API uint32_t ZOR_MSG_RecvResponse(ZOR_MSG_HEAD *msg, ZOR_MSG_HEAD **reply, uint32_t timeoutMs);

/* The same with a reply that must come from the request's destination. */
ZOR_API uint32_t ZOR_MSG_RecvResponseWithAppName(ZOR_MSG_HEAD *msg, ZOR_MSG_HEAD **reply, uint32_t timeoutMs);

/* Waits for the next message of a type from anyone. */
ZOR_API uint32_t ZOR_MSG_RecvWithType(uint32_t type, ZOR_MSG_HEAD **reply, uint32_t timeoutMs);

/* Sends a request and returns; the loop calls back with the reply, which must match in type and sequence number, or
   after timeoutMs without one (0: never). That the destination is absent is not noticed: such a request waits out its
   time-out. A reply that comes later goes to the handlers of its type, see ZOR_MSG_RegMsgProcEx. Returns 0;
   ZOR_E_ARGUMENT for a null message; the status of ZOR_MSG_Send; ZOR_E_IO, with the message sent and no callback to
   come, for a null callback or on a bus that has no watcher (ZOR_MSG_InitSlaveApp, or its loop was destroyed);
   ZOR_E_NO_MEMORY. */
ZOR_API uint32_t ZOR_MSG_AsyncSendAndRecv(ZOR_MSG_HEAD *msg, ZOR_MSG_REPLY_PROC callback, uint32_t timeoutMs,
                                          void *replyData);

/* Sends a message without a body (destination null: the server) and stores the data word of its reply; replyWord is
   untouched on failure. */
ZOR_API uint32_t ZOR_MSG_SendAndRecvMsgData(const char *destination, uint32_t type, uint32_t dataWord,
                                            uint32_t timeoutMs, uint32_t *replyWord);

/* Waits until a daemon posts the name, of which 11 characters count; null is the empty name. */
ZOR_API uint32_t ZOR_MSG_ZorSyncWait(const char *name, uint32_t timeoutMs);

/* Releases all daemons that wait for the name. Returns the status of ZOR_MSG_Send; 1 for a null or empty name. */
ZOR_API uint32_t ZOR_MSG_ZorSyncPost(const char *name);

ZOR_END_DECLS

#endif
