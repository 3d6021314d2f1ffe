/*
 * The bus wire format: the message header, the message types that the bus itself knows, and the bodies of
 * registration and restful requests. Byte-level description: docs/protocol.md.
 */
#ifndef ZOR_MSG_WIRE_H
#define ZOR_MSG_WIRE_H

#include <stdint.h>

/* Application names: at most 11 characters and the terminating NUL, wherever one is stored or sent. */
#define ZOR_MSG_NAME_SIZE 12

/* Type word. */
#define ZOR_MSG_TYPE_MASK UINT32_C(0x000fffff)
#define ZOR_MSG_BODY_IN_FILE UINT32_C(0x10000000)
#define ZOR_MSG_BOARD_MASK UINT32_C(0xe0000000)
#define ZOR_MSG_BOARD_SHIFT 29

/* Sizes, in bytes. */
#define ZOR_MSG_HEAD_SIZE 40u
#define ZOR_MSG_INLINE_BODY_MAX 2048u       /* longer bodies travel in a file */
#define ZOR_MSG_DISPATCH_BODY_MAX 0x200000u /* longer bodies are never dispatched */
#define ZOR_MSG_RECV_BODY_MAX 0x8000000u    /* longer bodies are refused before any allocation */
#define ZOR_MSG_FILE_PATH_SIZE 260u         /* body length of a message whose body lies in a file */
#define ZOR_ALLOC_MAX 0x800000u             /* the allocation guard: 8 MiB */

/* The header. Integers are in the sender's byte order; names are NUL-terminated when well formed. */
typedef struct ZOR_MSG_HEAD {
  uint32_t type;
  uint32_t sequence;
  char source[ZOR_MSG_NAME_SIZE];
  char destination[ZOR_MSG_NAME_SIZE]; /* empty: the message server itself */
  uint32_t data;
  uint32_t bodyLength;
} ZOR_MSG_HEAD;

/* Message types of the bus. */
#define ZOR_MSG_SEND_FAILED_NOTICE 0x108u
#define ZOR_MSG_RESTFUL_REGISTER 0x109u
#define ZOR_MSG_RESTFUL_REQUEST_A 0x10Au
#define ZOR_MSG_RESTFUL_REQUEST 0x10Du
#define ZOR_MSG_RESTFUL_REQUEST_B 0x10Eu
#define ZOR_MSG_REGISTER_APP 0x701u
#define ZOR_MSG_SUBSCRIBE_EVENT 0x702u
#define ZOR_MSG_UNSUBSCRIBE_EVENT 0x703u
#define ZOR_MSG_GET_PROCESS_NUM 0x705u
#define ZOR_MSG_SAFE_EXIT 0x706u
#define ZOR_MSG_TIMED_REPORT 0x708u
#define ZOR_MSG_SYNC_WAIT 0x5018u
#define ZOR_MSG_SYNC_POST 0x5019u
#define ZOR_MSG_EVENT_FIRST 0x2DA00u
#define ZOR_MSG_EVENT_LAST 0x2DAFFu

/* Restful request body: the data and its NUL follow this head. */
#define ZOR_MSG_RESTFUL_NAME_SIZE 64
#define ZOR_MSG_RESTFUL_HEAD_SIZE 136u

typedef struct ZOR_MSG_RESTFUL_HEAD {
  uint32_t word0;
  uint32_t word1;
  char prefix[ZOR_MSG_RESTFUL_NAME_SIZE];
  char name[ZOR_MSG_RESTFUL_NAME_SIZE];
} ZOR_MSG_RESTFUL_HEAD;

/* Registration reply body: these two words, then the trace settings. */
typedef struct ZOR_MSG_REGISTER_REPLY {
  uint32_t reportSwitch;  /* nonzero: send ZOR_MSG_TIMED_REPORT periodically */
  uint32_t reportSeconds; /* the period */
} ZOR_MSG_REGISTER_REPLY;

/* Trace settings: this head, then entries. */
#define ZOR_TRACE_OUTPUT_TEXT_SIZE 32
#define ZOR_TRACE_SETTINGS_HEAD_SIZE 48u

typedef struct ZOR_TRACE_SETTINGS_HEAD {
  uint32_t outputIndex; /* 0 stdout, 1 file; used when outputText is empty */
  uint32_t reserved;
  uint64_t fileMaxKiB; /* never byte-swapped */
  char outputText[ZOR_TRACE_OUTPUT_TEXT_SIZE];
} ZOR_TRACE_SETTINGS_HEAD;

typedef struct ZOR_TRACE_SETTINGS_ENTRY {
  uint32_t reserved;
  char module[ZOR_MSG_NAME_SIZE];
  uint32_t level; /* swapped when the peer's byte order differs */
} ZOR_TRACE_SETTINGS_ENTRY;

#endif
