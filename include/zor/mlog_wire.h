/* The logging daemon's datagrams and its file. Byte-level description: docs/protocol.md. */
#ifndef ZOR_MLOG_WIRE_H
#define ZOR_MLOG_WIRE_H

#include <stdint.h>
#include <zor/limits.h>

#define ZOR_MLOG_SERVER_NAME "mlogServer"
#define ZOR_MLOG_HEAD_SIZE 8u

/* Datagram types. */
#define ZOR_MLOG_LINE 1u       /* a text line and its NUL; no reply */
#define ZOR_MLOG_SET_STAT 2u   /* a statistics record to keep; no reply */
#define ZOR_MLOG_GET_STAT 4u   /* a record with a name; the reply has the value filled in */
#define ZOR_MLOG_POWER_OFF 10u /* no data; the reply comes when everything is saved */

/* One datagram: sent with exactly 8 + length bytes, integers in host order. */
typedef struct ZOR_MLOG_MSG {
  uint32_t type;
  uint32_t length;
  char data[ZOR_MLOG_DATA_MAX];
} ZOR_MLOG_MSG;

/* A statistics record; both texts end in a NUL. */
typedef struct ZOR_MLOG_STAT {
  char name[ZOR_MLOG_STAT_TEXT_SIZE];
  char value[ZOR_MLOG_STAT_TEXT_SIZE];
  uint32_t reserved; /* zero */
} ZOR_MLOG_STAT;

/* The circular log file: a text header of 63 characters, then data up to 2 MiB in all. */
#define ZOR_MLOG_FILE_HEADER_SIZE 63

#endif
