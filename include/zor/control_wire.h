/* Inspecting and configuring the message server: its own requests, for operators' tools. They name no destination and
   are granted only when the sender's connection is local and the rules of access allow it, or where there are none its
   user is root or the server's own; ZOR_MSG_CONTROL_GAPS is granted to everyone. The reply to each is
   a message of its type, whose data word is one of ZOR_CONTROL_*; a reply that is too long for the socket travels in a
   file, like any body. Byte-level description: docs/protocol.md. */
#ifndef ZOR_CONTROL_WIRE_H
#define ZOR_CONTROL_WIRE_H

#include <stdint.h>
#include <zor/msg_wire.h>

/* The server's own range of message types; the reply to those that are not listed is ZOR_CONTROL_UNKNOWN. */
#define ZOR_MSG_CONTROL_FIRST UINT32_C(0xFF000)
#define ZOR_MSG_CONTROL_LIST UINT32_C(0xFF000)          /* no body; reply: JSON, the server and all its clients */
#define ZOR_MSG_CONTROL_MONITOR UINT32_C(0xFF001)       /* ZOR_CONTROL_FILTER: start or change copying; no body: stop */
#define ZOR_MSG_CONTROL_COPY UINT32_C(0xFF002)          /* from the server, unasked: ZOR_CONTROL_COPY and a frame */
#define ZOR_MSG_CONTROL_TRACE_GET UINT32_C(0xFF003)     /* 12-byte name; reply: JSON, its settings at registration */
#define ZOR_MSG_CONTROL_TRACE_SET UINT32_C(0xFF004)     /* JSON of that shape with "name": the members given replace */
#define ZOR_MSG_CONTROL_TRACE_CLEAR UINT32_C(0xFF005)   /* 12-byte name: back to the settings file; empty: all names */
#define ZOR_MSG_CONTROL_RESTART UINT32_C(0xFF006)       /* no body; reply: JSON, from the program that took over */
#define ZOR_MSG_CONTROL_BOARD UINT32_C(0xFF007)         /* from the tunnel, before all else: ZOR_CONTROL_BOARD */
#define ZOR_MSG_CONTROL_ACCESS_RELOAD UINT32_C(0xFF008) /* no body; reply: JSON, the rules of access now in force */
#define ZOR_MSG_CONTROL_ACCESS_REFUSED UINT32_C(0xFF009) /* no body; reply: a text, what these have refused */
#define ZOR_MSG_CONTROL_RECORDER UINT32_C(0xFF00A)       /* no body; reply: the latest frames, see docs/protocol.md */
#define ZOR_MSG_CONTROL_GAPS UINT32_C(0xFF010) /* no body; data word 1: tell me of events I miss, 0: no longer */
#define ZOR_MSG_CONTROL_GAP UINT32_C(0xFF011)  /* from the server, before the next event: ZOR_CONTROL_GAP, types */
#define ZOR_MSG_CONTROL_LAST UINT32_C(0xFF0FF)

/* The data word of a reply. */
#define ZOR_CONTROL_OK UINT32_C(0)
#define ZOR_CONTROL_REFUSED UINT32_C(1)   /* the sender is not permitted */
#define ZOR_CONTROL_MALFORMED UINT32_C(2) /* the body does not fit the type */
#define ZOR_CONTROL_UNKNOWN UINT32_C(3)   /* no such request */
#define ZOR_CONTROL_FAILED UINT32_C(4)    /* the server failed: out of memory, or a disk error */
#define ZOR_CONTROL_UNCHANGED UINT32_C(5) /* the server, or its rules, were not replaced; the body: why, a text */

/* Which board is at the other end of a connection that the tunnel has made. It is valid only as the first message to
   the socket that msgsvr has for the tunnel, where every connection begins with it; there is no reply. */
#define ZOR_CONTROL_BOARD_MAGIC UINT32_C(0x5A544E31) /* "ZTN1" */
#define ZOR_CONTROL_BOARD_VERSION UINT32_C(1)
#define ZOR_CONTROL_BOARD_NAME_SIZE 64
typedef struct {
  uint32_t magic;                         /* ZOR_CONTROL_BOARD_MAGIC */
  uint32_t version;                       /* ZOR_CONTROL_BOARD_VERSION */
  uint32_t address;                       /* IPv4 address from which the board came */
  uint32_t port;                          /* and its port */
  char name[ZOR_CONTROL_BOARD_NAME_SIZE]; /* in the board's certificate, zero-filled, with at least one zero */
} ZOR_CONTROL_BOARD;

/* Which messages to copy. Zero means any: a filter of zeros asks for everything. No filter at all ends the copies; the
   reply is one uint32_t, the number of copies lost since the latest one. */
#define ZOR_CONTROL_SENT UINT32_C(1)     /* by `name` */
#define ZOR_CONTROL_RECEIVED UINT32_C(2) /* by `name` */
typedef struct {
  char name[ZOR_MSG_NAME_SIZE];
  uint32_t directions; /* ZOR_CONTROL_SENT | ZOR_CONTROL_RECEIVED; ignored when `name` is empty */
  uint32_t firstType;
  uint32_t lastType; /* 0: only firstType, or any when that is 0 too */
} ZOR_CONTROL_FILTER;

/* The outcome of a delivery. */
#define ZOR_CONTROL_DELIVERED UINT32_C(0)   /* given to `receiver`, or to the server when that is empty */
#define ZOR_CONTROL_UNDELIVERED UINT32_C(1) /* no client of that name, or it could not receive */

/* The start of a copy. The frame follows: header and body as the receiver gets them, cut to what fits into a body of
   ZOR_MSG_INLINE_BODY_MAX bytes. A monitor that cannot keep up loses copies; the bus does not wait for it. */
typedef struct {
  uint64_t timeUs;    /* since 1970, UTC */
  uint32_t missed;    /* copies that this monitor lost since the one before */
  uint32_t outcome;   /* ZOR_CONTROL_DELIVERED or ZOR_CONTROL_UNDELIVERED */
  uint32_t frameSize; /* of the whole frame, cut or not */
  char receiver[ZOR_MSG_NAME_SIZE];
} ZOR_CONTROL_COPY;

/* The events that a subscriber has missed, because it did not read, since it was last told. ZOR_CONTROL_GAP_TYPE
   follows `types` times; when there are too many types, some are only in `events`. */
typedef struct {
  uint64_t sinceUs; /* since 1970, UTC: the first of them */
  uint32_t events;  /* all of them */
  uint32_t types;
} ZOR_CONTROL_GAP;

typedef struct {
  uint32_t type;
  uint32_t events;
} ZOR_CONTROL_GAP_TYPE;

#endif
