/* Requests to the log daemon "syslog" on the bus. Byte-level description and what the daemon does: docs/protocol.md. */
#ifndef ZOR_LOG_WIRE_H
#define ZOR_LOG_WIRE_H

#include <stdint.h>
#include <zor/limits.h>

#define ZOR_LOG_DAEMON_NAME "syslog"

/* Message types. */
#define ZOR_LOG_MSG_RECORD UINT32_C(0x4B01)        /* a record; with a reply when its index has ZOR_LOG_SYNC_FLAG */
#define ZOR_LOG_MSG_RECORD_KERNEL UINT32_C(0x4B02) /* a record; no reply */
#define ZOR_LOG_MSG_SYSTEM_QUERY UINT32_C(0x4B03)  /* a query; with a reply */
#define ZOR_LOG_MSG_QUERY UINT32_C(0x4B04)         /* a query; with a reply */
#define ZOR_LOG_MSG_CLEAR UINT32_C(0x4B05)         /* data word: type << 8; no reply */
#define ZOR_LOG_MSG_SET_FILTER UINT32_C(0x4B06)    /* data word: type-level code; no reply */
#define ZOR_LOG_MSG_SET_SERVER UINT32_C(0x4B07)    /* remote servers; no reply */
#define ZOR_LOG_MSG_FLUSH UINT32_C(0x4B09)         /* no body; with a reply */
#define ZOR_LOG_MSG_COPY UINT32_C(0x4B10)          /* sent by the daemon: a record that it has kept */

/* Type-level codes: the level in the low 8 bits, the type above. Used with ZOR_LOG_ITEM, ZOR_UTIL_LOG_GetTypeString and
   ZOR_UTIL_LOG_GetLevelString. */
#define ZOR_LOG_TYPE_SHIFT 8
#define ZOR_LOG_LEVEL_MASK UINT32_C(0xff)

/* Levels. Used with ZOR_LOG_API_Record_KLog, ZOR_LOG_API_Query_Items, ZOR_LOG_API_Set_TypeLevel_Filter,
   ZOR_UTIL_LOG_GetLevelString, ZOR_UTIL_LOG_GetAllLogLevel and ZOR_UTIL_LOG_GetHigherLogLevels. */
#define ZOR_LOG_EMERGENCY UINT32_C(0x01)
#define ZOR_LOG_ALERT UINT32_C(0x02)
#define ZOR_LOG_CRITICAL UINT32_C(0x04)
#define ZOR_LOG_ERROR UINT32_C(0x08)
#define ZOR_LOG_WARNING UINT32_C(0x10)
#define ZOR_LOG_NOTICE UINT32_C(0x20)
#define ZOR_LOG_INFO UINT32_C(0x40)
#define ZOR_LOG_DEBUG UINT32_C(0x80)

/* Types. Used with ZOR_LOG_API_Record_KLog, ZOR_LOG_API_Query_Items, ZOR_LOG_API_Set_TypeLevel_Filter,
   ZOR_LOG_API_Clear_Log_By_Type and ZOR_UTIL_LOG_GetTypeString. */
#define ZOR_LOG_NONE UINT32_C(0)
#define ZOR_LOG_KERNEL UINT32_C(0x1)
#define ZOR_LOG_USER UINT32_C(0x2)
#define ZOR_LOG_SYSTEM UINT32_C(0x8)
#define ZOR_LOG_SECURITY UINT32_C(0x10)
#define ZOR_LOG_DAEMON UINT32_C(0x20)
#define ZOR_LOG_QUOREL_MESSAGE UINT32_C(0x40)
#define ZOR_LOG_WIFI UINT32_C(0x80)
#define ZOR_LOG_MISSED_CALL UINT32_C(0x2000)
#define ZOR_LOG_ALERT_TYPE UINT32_C(0x4000)
#define ZOR_LOG_INCOMING_CALL UINT32_C(0x8000)
#define ZOR_LOG_OUTGOING_CALL UINT32_C(0x10000)
#define ZOR_LOG_WAN UINT32_C(0x20000)
#define ZOR_LOG_PORT_FORWARDING UINT32_C(0x40000)
#define ZOR_LOG_DAD UINT32_C(0x80000)
#define ZOR_LOG_DSL UINT32_C(0x100000)
#define ZOR_LOG_PPP UINT32_C(0x200000)
#define ZOR_LOG_SECURITY_2 UINT32_C(0x400000)
#define ZOR_LOG_VOICE UINT32_C(0x800000)

/* Item indexes. Used with ZOR_LOG_API_Record_Log, ZOR_LOG_ITEM and logGetProcName. */
#define ZOR_LOG_SYNC_FLAG UINT32_C(0x80000)       /* the sender waits until the record is stored */
#define ZOR_LOG_KERNEL_INDEX UINT32_C(0xfff00000) /* no item: a line of the kernel log */

/* A record. Each parameter is in a slot of its length + 1, rounded up to ZOR_LOG_SLOT_ALIGN and zero-padded. */
#define ZOR_LOG_SLOT_ALIGN 4u
#define ZOR_LOG_EMPTY_PARAMETER "$\\0 \\0$" /* stands for an empty parameter; seven characters */

typedef struct ZOR_LOG_RECORD {
  uint32_t reserved0; /* zero */
  uint32_t typeLevel; /* of a kernel line; else zero, since the item has it */
  uint32_t reserved8; /* zero */
  uint32_t index;
  uint16_t parameterCount;
  uint16_t usedLength;                      /* bytes of the slots */
  char parameters[ZOR_LOG_PARAMETERS_SIZE]; /* a kernel line that fills it has no NUL */
} ZOR_LOG_RECORD;

/* A query. */
typedef struct ZOR_LOG_QUERY {
  uint32_t selector;
  uint32_t typeLevel;
  uint32_t count;
  char text[ZOR_LOG_QUERY_TEXT_SIZE]; /* NUL-terminated */
} ZOR_LOG_QUERY;

/* The start of a copy, which the record's text follows, with its NUL. */
typedef struct ZOR_LOG_COPY {
  uint64_t time; /* seconds since 1970 */
  uint32_t typeLevel;
  uint32_t index;
} ZOR_LOG_COPY;

/* Remote servers; missing texts are empty. */
typedef struct ZOR_LOG_SERVERS {
  char server1[ZOR_LOG_SERVER_TEXT_SIZE];
  char server2[ZOR_LOG_SERVER_TEXT_SIZE];
  uint16_t number1;
  uint16_t port;
  char name[ZOR_LOG_SERVER_NAME_SIZE];
  uint32_t reserved300; /* zero */
  uint32_t number2;
} ZOR_LOG_SERVERS;

#endif
