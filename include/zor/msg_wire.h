/*
 * The bus wire format: the message header, the message types that the bus itself knows, and the bodies of
 * registration and restful requests. Byte-level description: docs/protocol.md.
 *
 * 1. Integers are 32 bits wide (one is 64) and in the sender's byte order. A receiver whose server reported another
 *    byte order swaps the header's four integers and the trace levels, nothing else.
 * 2. Names and texts are fields of fixed size, NUL-terminated when well formed, which a receiver must not rely on.
 */
#ifndef ZOR_MSG_WIRE_H
#define ZOR_MSG_WIRE_H

#include <stdint.h>
#include <zor/limits.h>

/* Type word: the message type, a flag, and the sender's board number. Bits 20 to 27 are carried without a meaning.
   Used with ZOR_MSG_HeaderEndianSwap, ZOR_MSG_SendTo and ZOR_MSG_RecvWithEndian. */
#define ZOR_MSG_TYPE_MASK UINT32_C(0x000fffff)
#define ZOR_MSG_BODY_IN_FILE UINT32_C(0x10000000) /* the body is the path of the file that holds the real one */
#define ZOR_MSG_BOARD_MASK UINT32_C(0xe0000000)
#define ZOR_MSG_BOARD_SHIFT 29

/* Sizes, in bytes. Used with ZOR_MSG_SendTo, ZOR_MSG_RecvWithEndian and ZOR_MSG_GetMsgBlockEx. */
#define ZOR_MSG_HEAD_SIZE 40u
#define ZOR_MSG_FILE_PATH_SIZE 260u /* body length of a message whose body is in a file */

/* The header of every message; bodyLength bytes of body follow. */
typedef struct ZOR_MSG_HEAD {
  uint32_t type;
  uint32_t sequence;
  char source[ZOR_MSG_NAME_SIZE];      /* always written by the sending library */
  char destination[ZOR_MSG_NAME_SIZE]; /* empty: the message server itself */
  uint32_t data;                       /* one value that needs no body: a result, an event number, a count */
  uint32_t bodyLength;
} ZOR_MSG_HEAD;

/* Message types of the bus. "Name body": one name field of ZOR_MSG_NAME_SIZE bytes. */
#define ZOR_MSG_SEND_FAILED_NOTICE 0x108u /* from the server: no such client; data is the type that was sent */
#define ZOR_MSG_RESTFUL_REGISTER 0x109u   /* to the server: the pattern list that this daemon serves, with its NUL */
#define ZOR_MSG_RESTFUL_REQUEST_A 0x10Au  /* restful request */
#define ZOR_MSG_RESTFUL_REQUEST 0x10Du    /* restful request; the type that ZOR_MSG_BuildRestfulReqMsg gives */
#define ZOR_MSG_RESTFUL_REQUEST_B 0x10Eu  /* restful request */
#define ZOR_MSG_REGISTER_APP 0x701u       /* to the server: source asks for a name; the reply's destination grants it */
#define ZOR_MSG_SUBSCRIBE_EVENT 0x702u    /* to the server: subscribes the named daemon to event data; name body */
#define ZOR_MSG_UNSUBSCRIBE_EVENT 0x703u  /* to the server: ends that subscription; name body */
#define ZOR_MSG_GET_PROCESS_NUM 0x705u    /* to the server: how many processes have the name; name body */
#define ZOR_MSG_SAFE_EXIT 0x706u          /* to a daemon: exit; to the server: name body */
#define ZOR_MSG_TIMED_REPORT 0x708u       /* to the server: the periodic report that the registration reply asked for */
#define ZOR_MSG_SYNC_WAIT 0x5018u         /* to the server: wait at the barrier that the body names */
#define ZOR_MSG_SYNC_POST 0x5019u         /* to the server: open the barrier that the body names */
#define ZOR_MSG_EVENT_FIRST 0x2DA00u
#define ZOR_MSG_EVENT_LAST 0x2DAFFu

/* Restful request body: the data and its NUL follow this head. */
#define ZOR_MSG_RESTFUL_HEAD_SIZE 136u

typedef struct ZOR_MSG_RESTFUL_HEAD {
  uint32_t word0;
  uint32_t word1;
  char prefix[ZOR_MSG_RESTFUL_NAME_SIZE]; /* selects the registration */
  char name[ZOR_MSG_RESTFUL_NAME_SIZE];   /* selects the procedure in its table */
} ZOR_MSG_RESTFUL_HEAD;

/* Registration reply body: these two words, then the trace settings. */
typedef struct ZOR_MSG_REGISTER_REPLY {
  uint32_t reportSwitch;  /* nonzero: send ZOR_MSG_TIMED_REPORT periodically */
  uint32_t reportSeconds; /* the period */
} ZOR_MSG_REGISTER_REPLY;

/* Trace settings: this head, then entries up to the end of the body. */
#define ZOR_TRACE_SETTINGS_HEAD_SIZE 48u

typedef struct ZOR_TRACE_SETTINGS_HEAD {
  uint32_t outputIndex; /* 0 stdout, 1 file; used when outputText is empty; never byte-swapped */
  uint32_t reserved;
  uint64_t fileMaxKiB;                         /* never byte-swapped */
  char outputText[ZOR_TRACE_OUTPUT_TEXT_SIZE]; /* as for ZOR_TRACE_SetOutputByString */
} ZOR_TRACE_SETTINGS_HEAD;

typedef struct ZOR_TRACE_SETTINGS_ENTRY {
  uint32_t reserved;
  char module[ZOR_MSG_NAME_SIZE];
  uint32_t level; /* swapped when the peer's byte order differs */
} ZOR_TRACE_SETTINGS_ENTRY;

#endif
