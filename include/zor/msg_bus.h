/*
 * The connection to the message server; sending and receiving whole messages.
 *
 * Conventions of this header:
 * 1. Every function returns a status of <zor/status.h>; 0 is success.
 * 2. All functions belong to the loop's thread. There is one connection per process.
 * 3. Messages to send stay the caller's. A received message is one block that its receiver frees with one free(); no
 *    partial message is ever handed out.
 * 4. Names are at most 11 characters; longer ones are cut.
 * 5. A body of more than ZOR_MSG_INLINE_BODY_MAX bytes travels in a file under "/var/run/msg/", which the sender makes
 *    and the receiver deletes.
 */
#ifndef ZOR_MSG_BUS_H
#define ZOR_MSG_BUS_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/msg_head.h>

ZOR_BEGIN_DECLS

struct sockaddr;

/* Sees every message before it is written. It may set *handled, which starts at 0: then nothing is sent and its status
   is the send's; or change *fd, a copy of the descriptor: then the message goes there and its status is ignored. */
typedef uint32_t (*ZOR_MSG_SEND_HOOK)(ZOR_MSG_HEAD *msg, int *handled, int *fd);

/* The send hook of the process; null, the initial value, for none. */
ZOR_API extern ZOR_MSG_SEND_HOOK g_pfMsgSendHook;

/*
 * Connects to the local server at "/var/msgsvr", registers under the name (null: without one), puts the socket on the
 * default loop with ZOR_MSG_MsgFilterProc as its handler, and opens the notification client. Ignores SIGPIPE for the
 * whole process. Does nothing and returns 0 when the bus is connected already. Only the first 11 characters of the name
 * count: "quorelbridge" registers as "quorelbridg", and senders cut the name in the same way.
 * Returns ZOR_E_CONNECT when there is no socket or no server; ZOR_E_NO_MEMORY; ZOR_E_ARGUMENT when the loop cannot
 * watch a descriptor of that number; else the status of ZOR_NOTIFYCLT_InitByName, after whose failure the bus is
 * destroyed. A refused registration destroys the bus too but is not reported: the next send returns
 * ZOR_E_NOT_CONNECTED.
 * When the server exits the socket is no longer watched; sends return ZOR_E_PEER_GONE until ZOR_MSG_Destroy, or until
 * ZOR_MSG_EnableRejoin has connected again.
 */
ZOR_API uint32_t ZOR_MSG_Init(const char *appName);

/*
 * Connects to the server of another board over TCP and registers; the port is in host order. The socket is not on the
 * loop and there is no notification client. An existing connection is not looked at.
 * Returns ZOR_E_ARGUMENT for a null address; ZOR_E_CONNECT when it is malformed or the connection is refused; else the
 * status of the registration (ZOR_E_REFUSED when no name was granted), after whose failure the bus is destroyed.
 */
ZOR_API uint32_t ZOR_MSG_InitSlaveApp(const char *appName, const char *ipv4Text, uint16_t port);

/*
 * Closes the connection and clears the whole context: message procedure, sequence counter, flags, pending messages,
 * and what ZOR_MSG_SetLinkProc and ZOR_MSG_EnableRejoin have set.
 * Asynchronous requests still get their time-out. May be called from a message handler, and after a fork without harm
 * to the parent's connection. The trace descriptor is 0 afterwards, the socket descriptor -1.
 */
ZOR_API void ZOR_MSG_Destroy(void);

/* Writes this process's name into the source field and sends on the bus. ZOR_E_ARGUMENT for null; ZOR_E_NOT_CONNECTED;
   else as ZOR_MSG_SendEx. */
ZOR_API uint32_t ZOR_MSG_Send(ZOR_MSG_HEAD *msg);

/* Asks the send hook, then sends on the descriptor: the hook's status when it handled the message, else as
   ZOR_MSG_SendTo without an address. */
ZOR_API uint32_t ZOR_MSG_SendEx(int fd, ZOR_MSG_HEAD *msg);

/*
 * Writes a message to a socket; address and addressLength are those of sendto, null and 0 on a connected socket.
 * Waits up to 10 s until the socket accepts the first byte. A message that was written itself, or whose write failed,
 * has its type word reduced to the message type afterwards; it is untouched when its body went by file or when the
 * send ended before the write.
 * Returns ZOR_E_ARGUMENT for null or a negative descriptor; ZOR_E_NOT_WRITABLE when the wait timed out or there is
 * no memory for the message that names the file; ZOR_E_BODY_FILE; ZOR_E_PEER_GONE; ZOR_E_IO for any other error.
 */
ZOR_API uint32_t ZOR_MSG_SendTo(int fd, ZOR_MSG_HEAD *msg, const struct sockaddr *address, uint32_t addressLength);

/*
 * Reads one message. timeoutMs bounds the wait before each read, not the whole call; 0 waits without limit. convert
 * nonzero brings the header into host order, reduces its type word and fetches a body that is in a file; with 0 the
 * message is handed out as it came.
 * *msg is null after every failure but ZOR_E_ARGUMENT, which is returned for null or a negative descriptor. Others:
 * ZOR_E_TIMEOUT; ZOR_E_PEER_GONE at the end of file; ZOR_E_NO_MEMORY for a body of more than 8 MiB less the header,
 * which is left in the stream; ZOR_E_IO for any other error, for a header that came in pieces, and for a body file that
 * cannot be read, is no regular file or is not in "/var/run/msg/".
 */
ZOR_API uint32_t ZOR_MSG_RecvWithEndian(int fd, ZOR_MSG_HEAD **msg, uint32_t timeoutMs, uint32_t convert);

/* ZOR_MSG_RecvWithEndian with conversion. */
ZOR_API uint32_t ZOR_MSG_Recv(int fd, ZOR_MSG_HEAD **msg, uint32_t timeoutMs);

/* Does nothing and returns 0. The argument is ignored. */
ZOR_API uint32_t ZOR_MSG_SendRealTimeMsg(void *message);

ZOR_END_DECLS

#endif
