/* Inspecting the notification server: its own requests, for operators' tools. They are synchronous, go to module
   ZOR_NOTIFY_MID_SERVER, and may precede the registration, so that the sender needs no module ID. They are granted only
   to those whom the rules of access allow them; without rules, when the sender's user is root or the server's own. The
   data of a reply begins with one 32-bit word, one of ZOR_CONTROL_* of <zor/control_wire.h>; the result follows when
   that is ZOR_CONTROL_OK, the reason when it is ZOR_CONTROL_UNCHANGED. Byte-level description: docs/protocol.md. */
#ifndef ZOR_NOTIFY_CONTROL_WIRE_H
#define ZOR_NOTIFY_CONTROL_WIRE_H

#include <stdint.h>
#include <zor/control_wire.h>
#include <zor/notify_wire.h>

/* The server's own range of notification types; the reply to those that are not listed is ZOR_CONTROL_UNKNOWN. */
#define ZOR_NOTIFY_CONTROL_FIRST UINT32_C(0xFFFF0000)
#define ZOR_NOTIFY_CONTROL_LIST UINT32_C(0xFFFF0000)    /* no data; reply: JSON, the server and the modules connected */
#define ZOR_NOTIFY_CONTROL_RESTART UINT32_C(0xFFFF0001) /* no data; reply: JSON, from the program that took over */
#define ZOR_NOTIFY_CONTROL_REFUSALS UINT32_C(0xFFFF0002) /* no data; reply: text, what the rules refuse, or would */
#define ZOR_NOTIFY_CONTROL_ACCESS_RELOAD UINT32_C(0xFFFF0003) /* no data; reply: JSON, the rules now in force */
#define ZOR_NOTIFY_CONTROL_LAST UINT32_C(0xFFFF00FF)

#endif
