/*
 * What happens when the connection to the notification server ends: notification, and connecting again.
 *
 * 1. Without these calls the end of the connection destroys the client with its handlers, and sends then fail with
 *    ZOR_NOTIFY_E_NOT_WRITABLE, which after ten in a row runs "reboot".
 * 2. They are for a connection made with ZOR_NOTIFYCLT_Init, and end with it: ZOR_NOTIFYCLT_Destroy forgets the
 *    procedure and ends the attempts. A forked child is neither notified nor connected unless it makes the calls
 * itself.
 * 3. The end of a connection is noticed by the loop, after all that had arrived before it was dispatched, or by a
 *    synchronous request. The procedure is called from the loop, and may call anything, ZOR_NOTIFYCLT_Destroy and
 *    ZOR_NOTIFYCLT_Init included.
 */
#ifndef ZOR_NOTIFY_REJOIN_H
#define ZOR_NOTIFY_REJOIN_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/msg_rejoin.h>

ZOR_BEGIN_DECLS

/* What has happened to the connection. Used with ZOR_NOTIFYCLT_SetLinkProc and ZOR_NOTIFYCLT_LINK_PROC. */
#define ZOR_NOTIFYCLT_LINK_LOST UINT32_C(1)     /* it has ended */
#define ZOR_NOTIFYCLT_LINK_REJOINED UINT32_C(2) /* the module is connected, and its registration was sent */

/* Is notified of what has happened to the connection; data is that of ZOR_NOTIFYCLT_SetLinkProc. */
typedef void (*ZOR_NOTIFYCLT_LINK_PROC)(uint32_t event, void *data);

/*
 * Sets the procedure that is called when the connection has ended or is restored; null for none. Nothing else changes:
 * connecting again is ZOR_NOTIFYCLT_EnableRejoin. Without that the client is destroyed when the procedure is called,
 * and the procedure is forgotten: it may call ZOR_NOTIFYCLT_Init and register its handlers again. Returns
 * ZOR_NOTIFY_E_NOT_WRITABLE without a connection of ZOR_NOTIFYCLT_Init; ZOR_NOTIFY_E_NO_MEMORY.
 */
ZOR_API uint32_t ZOR_NOTIFYCLT_SetLinkProc(ZOR_NOTIFYCLT_LINK_PROC proc, void *data);

/*
 * From now on the library connects again when the connection ends, and registers under the same module id. Null
 * settings stand for the defaults; a second call changes the settings; replyWaitMs has no effect, since the server does
 * not reply to a registration. The pauses before the attempts are those of ZOR_MSG_EnableRejoin. An attempt does not
 * block the loop. Attempts go on without limit.
 *
 * What a lost connection means:
 * - sends return ZOR_NOTIFY_E_TIMEOUT until the module is connected again, and their messages are not kept. They do not
 *   count towards "reboot", and none runs it: the library repairs what that would repair;
 * - a synchronous request under way returns ZOR_NOTIFY_E_SERVER_GONE;
 * - handlers, messages set aside, module id and sequence counter stay;
 * - ZOR_NOTIFYCLT_Init returns 0 at once, as when connected; ZOR_NOTIFYCLT_SwitchSock ends the attempts.
 *
 * Returns ZOR_NOTIFY_E_NOT_WRITABLE without a connection of ZOR_NOTIFYCLT_Init; ZOR_NOTIFY_E_ARGUMENT when the longest
 * pause is below the first; ZOR_NOTIFY_E_NO_MEMORY. Nothing has changed then.
 */
ZOR_API uint32_t ZOR_NOTIFYCLT_EnableRejoin(const ZOR_MSG_REJOIN *settings);

ZOR_END_DECLS

#endif
