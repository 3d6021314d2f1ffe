/*
 * Changes of the KIVA device list as they travel to the daemon that keeps it. Byte-level description:
 * docs/protocol.md.
 */
#ifndef ZOR_KIVA_WIRE_H
#define ZOR_KIVA_WIRE_H

#include <stdint.h>
#include <zor/limits.h>

#define ZOR_KIVA_DAEMON_NAME "cms"

/* Message types. Replies carry a result in their data word, 0 for success. */
#define ZOR_MSG_KIVA_ADD UINT32_C(0x26E00)         /* one-way; body: a request */
#define ZOR_MSG_KIVA_REMOVE UINT32_C(0x26E01)      /* one-way; body: a MAC, zero-padded to ZOR_KIVA_MAC_SIZE */
#define ZOR_MSG_KIVA_ADD_SYNC UINT32_C(0x26E0F)    /* with a reply; body: a request */
#define ZOR_MSG_KIVA_REMOVE_SYNC UINT32_C(0x26E10) /* with a reply; body: a MAC without a NUL */

/* A MAC, without ':' and with its NUL, in a request to remove. */
#define ZOR_KIVA_MAC_SIZE 18u

/* The head of a request to add. The record's mac, detail and xmlPath follow, each with its NUL. Host byte order. */
typedef struct kiva_info_status {
  uint32_t dlSize; /* bytes downloaded so far */
  uint32_t param1;
  uint32_t state;
  uint32_t param3;
  uint32_t flags;
} kiva_info_status;

/* Flags and states of a record. Used with dev_kiva_info, ZOR_UPG_UpdateKivaStateEx, ZOR_UPG_UpdateKivaStateExSync,
   ZOR_UPG_UpdateKivaDlSize and ZOR_UPG_RemoveDevKivaInfoFromXDR. */
#define ZOR_KIVA_NEEDS_UPDATE 0x1u /* flags */
#define ZOR_KIVA_STATE_KEPT 18u    /* the state that pruning keeps */
#define ZOR_KIVA_STATE_LOADING 23u /* the state in which dlSize counts */

#endif
