/* The notification channel's header. Byte-level description: docs/protocol.md. */
#ifndef ZOR_NOTIFY_WIRE_H
#define ZOR_NOTIFY_WIRE_H

#include <stdint.h>
#include <zor/limits.h>

/* Header size, module IDs, types and the values of ack_tag. Used with ZOR_NOTIFY_MSG. */
#define ZOR_NOTIFY_HEAD_SIZE 48u
#define ZOR_NOTIFY_MID_FIRST 1u
#define ZOR_NOTIFY_MID_SERVER 30u
#define ZOR_NOTIFY_TYPE_REGISTER 0u
#define ZOR_NOTIFY_ACK_REQUEST 1u /* not a reply */
#define ZOR_NOTIFY_ACK_ANSWER 2u

typedef struct ZOR_NOTIFY_MSG {
  uint32_t msg_type;
  uint32_t seq;
  uint32_t source_id;
  uint32_t des_id;
  uint32_t sync_tag; /* 1 synchronous */
  uint32_t ack_tag;
  uint32_t data_len;
  uint32_t sub_data_len1;
  uint32_t sub_data_len2;
  uint32_t request_word; /* room for the reply that the requester announced */
  uint32_t reserved;
  uint32_t async_flag;
} ZOR_NOTIFY_MSG;

#endif
