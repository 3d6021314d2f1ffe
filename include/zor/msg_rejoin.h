/*
 * What happens when the connection to the message server ends: notification, and connecting again.
 *
 * 1. Without these calls a connection that has ended stays so: sends return ZOR_E_PEER_GONE until ZOR_MSG_Destroy.
 * 2. They are for a connection made with ZOR_MSG_Init or ZOR_MSG_InitSlaveApp, and end with it: ZOR_MSG_Destroy forgets
 *    the procedure, ends the attempts and forgets what would have been repeated. A forked child is neither notified nor
 *    connected unless it makes the calls itself.
 * 3. The end of a connection is noticed by the loop, after all that had arrived before it was dispatched; never inside
 *    a send. The procedure is called from the loop, and may call anything, ZOR_MSG_Destroy and ZOR_MSG_Init included.
 * 4. A connection to another board, which only calls read before, is read and dispatched by the loop from the first of
 *    these calls on, as one of ZOR_MSG_Init is: the process no longer reads it itself. It also ends when the board has
 *    been silent for ZOR_MSG_REMOTE_SILENCE_MS, as one that lost its power is.
 */
#ifndef ZOR_MSG_REJOIN_H
#define ZOR_MSG_REJOIN_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* What has happened to the connection. Used with ZOR_MSG_SetLinkProc and ZOR_MSG_LINK_PROC. */
#define ZOR_MSG_LINK_LOST UINT32_C(1)     /* it has ended */
#define ZOR_MSG_LINK_REJOINED UINT32_C(2) /* the name is back on the bus, and what is to be repeated was sent */
#define ZOR_MSG_LINK_REFUSED UINT32_C(3)  /* an attempt got no name, or another one; the next follows */

/* Is notified of what has happened to the connection; data is that of ZOR_MSG_SetLinkProc. */
typedef void (*ZOR_MSG_LINK_PROC)(uint32_t event, void *data);

/* How to connect again, in milliseconds; 0 in a member stands for its default. */
typedef struct ZOR_MSG_REJOIN {
  uint32_t firstPauseMs;   /* before the first attempt; ZOR_MSG_REJOIN_FIRST_PAUSE_MS */
  uint32_t longestPauseMs; /* where the doubling ends; ZOR_MSG_REJOIN_LONGEST_PAUSE_MS */
  uint32_t replyWaitMs;    /* for the server's reply to an attempt; ZOR_MSG_REJOIN_REPLY_WAIT_MS */
} ZOR_MSG_REJOIN;

/*
 * Sets the procedure that is called when the connection has ended, is restored, or could not be restored because the
 * server granted another name or none; null for none. Nothing else changes: connecting again is ZOR_MSG_EnableRejoin.
 * An end that passed before the call is reported too. Returns ZOR_E_NOT_CONNECTED without a connection that the loop
 * watches or can watch; ZOR_E_NO_MEMORY and ZOR_E_ARGUMENT when it does not take one to another board.
 */
ZOR_API uint32_t ZOR_MSG_SetLinkProc(ZOR_MSG_LINK_PROC proc, void *data);

/*
 * From now on the library connects again when the connection ends, or has ended already. Null settings stand for the
 * defaults; a second call changes the settings.
 *
 * Before each attempt there is a pause: the first one short, each further one twice as long up to the longest, and
 * each is shortened by a random part, at most half of it, so that the daemons of a system do not reconnect at once. An
 * attempt does not block the loop: it connects, registers the name that the process has, and waits for the reply up to
 * replyWaitMs while the loop runs. It fails when there is no server, no reply in time, or when the server grants no
 * name or another one, which is reported as ZOR_MSG_LINK_REFUSED; attempts go on without limit. The pauses
 * begin at the first again after a connection that has outlasted the latest pause.
 *
 * When the name is granted these are repeated, in their order, as far as they were sent with ZOR_MSG_Send or a function
 * that uses it, before or after this call: subscriptions to events, for the process itself and for others, that were
 * not cancelled by this process since, and restful registrations. Then the byte order, the report period and the trace
 * settings of the reply apply in place of the former ones. The socket descriptor keeps its number.
 *
 * What a lost connection means for the rest:
 * - sends return ZOR_E_PEER_GONE until the name is back; what they would have sent is not kept, and a subscription
 *   that was refused so is not repeated;
 * - a synchronous request under way returns ZOR_E_PEER_GONE;
 * - asynchronous requests end when the loop notices: their callbacks get the status ZOR_E_PEER_GONE and no message,
 *   after the call with ZOR_MSG_LINK_LOST. A reply that comes through the new connection all the same goes to
 *   the handlers of its type;
 * - messages set aside are dispatched as usual; handlers, message procedure and sequence counter stay;
 * - the notification client is a connection of its own and is left alone: see ZOR_NOTIFYCLT_EnableRejoin.
 *
 * Returns ZOR_E_NOT_CONNECTED without a connection that the loop watches or can watch; ZOR_E_ARGUMENT when the longest
 * pause is below the first; ZOR_E_NO_MEMORY. Nothing has changed then.
 */
ZOR_API uint32_t ZOR_MSG_EnableRejoin(const ZOR_MSG_REJOIN *settings);

ZOR_END_DECLS

#endif
