/*
 * A codec for DNS messages (RFC 1035): walks a message, reads its questions and records, turns a reverse-lookup name
 * into an address, and builds requests, answers and error answers.
 *
 * Conventions:
 * 1. A packet is one malloc block. Those returned here belong to the caller, who frees them with free().
 * 2. A position is a pointer into a packet's data. Every read is checked against the packet's length; a position
 *    outside the message is malformed, not a crash.
 * 3. Readers return 0; ZOR_DNS_E_ARGUMENT for a null argument; ZOR_DNS_E_MALFORMED when a bound, label or pointer check
 *    fails. A failed reader leaves the name empty and the length 0.
 * 4. A name is dotted text without a trailing dot; the root is "". A name may be compressed: at most 10 segments are
 *    read, and a pointer may follow labels, or be the whole name once, at the start. Only behind labels that point to
 * the root does the text keep its last dot.
 * 5. Lengths of records are as on the wire; all other numbers are in host order.
 * 6. A packet of more than 8 MiB, its length field included, is refused with a line on standard output:
 *    "error: not host tool, but malloc 4M, return NULL, malloc len=%d\n".
 */
#ifndef ZOR_DNS_H
#define ZOR_DNS_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/limits.h>

ZOR_BEGIN_DECLS

#define ZOR_DNS_OK UINT32_C(0)
#define ZOR_DNS_E_TOO_FEW_LABELS UINT32_C(1)   /* fewer labels than ZOR_DNS_PacketPTRName2Addr requires */
#define ZOR_DNS_E_ARGUMENT UINT32_C(0x360000)  /* null, or a text that is not valid there */
#define ZOR_DNS_E_MALFORMED UINT32_C(0x360009) /* a bound, label or pointer check fails */

/* A message: its length in bytes, then the bytes as they are on the wire. Size a block as
   offsetof(DnsPacket, data) + length. */
typedef struct DnsPacket {
  uint32_t length;
  uint8_t data[1];
} DnsPacket;

typedef struct DnsQuestionValues {
  char name[ZOR_DNS_NAME_SIZE];
  uint32_t type;
  uint32_t qclass;
} DnsQuestionValues;

typedef struct DnsRecordValues {
  char name[ZOR_DNS_NAME_SIZE];
  uint32_t type;
  uint32_t qclass;
  uint32_t ttl; /* seconds */
  uint32_t rdlength;
  const uint8_t *rdata; /* inside the packet that was read, or what to copy; not owned */
} DnsRecordValues;

/* A new packet with the first maxLength bytes of a message, all of them for 0. Null for null or without memory. */
ZOR_API DnsPacket *ZOR_DNS_PacketCopy(const DnsPacket *packet, uint32_t maxLength);

/* How many bytes the name at a position occupies; 0 when it is malformed or an argument is null. A name that is a
   pointer alone needs one byte more behind it. The pointer behind labels is not looked at: where the message cuts it,
   the length passes the end by one byte. */
ZOR_API uint32_t ZOR_DNS_PacketGetNameLen(const DnsPacket *packet, const uint8_t *position);

/* Expands the name at a position into a field of capacity bytes. *consumed, unless it is null, becomes the number of
   bytes that the name occupies, but 0 for a name that ends in a pointer behind labels. */
ZOR_API uint32_t ZOR_DNS_PacketGetName(const DnsPacket *packet, const uint8_t *position, char *name, uint32_t capacity,
                                       uint32_t *consumed);

/* The length of the question at a position: that of its name plus 4, whether or not the message is that long; 0
   when the name is malformed or an argument is null. */
ZOR_API uint32_t ZOR_DNS_PacketGetQuestionLen(const DnsPacket *packet, const uint8_t *position);

/* Reads the question at a position; *length becomes the consumed length of its name plus 4. Behind a name whose
   consumed length is 0, type and class are read from where the name starts. */
ZOR_API uint32_t ZOR_DNS_PacketGetValuesOfQuestion(const DnsPacket *packet, const uint8_t *position,
                                                   DnsQuestionValues *values, uint32_t *length);

/* The length of the record at a position; 0 when it is malformed, passes the end, or an argument is null. An RDLENGTH
   of 65534 or 65535 wraps: the record then ends 0 or 1 bytes behind its TTL. */
ZOR_API uint32_t ZOR_DNS_PacketGetRRLen(const DnsPacket *packet, const uint8_t *position);

/* Reads the record at a position; *length becomes the consumed length of its name plus 10 plus rdlength. Behind a name
   whose consumed length is 0, the fields are read from where the name starts. */
ZOR_API uint32_t ZOR_DNS_PacketGetValuesOfRR(const DnsPacket *packet, const uint8_t *position, DnsRecordValues *values,
                                             uint32_t *length);

/* The position of the first answer, authority or additional record. Null for null, for fewer than 12 bytes, or when
   something before it is malformed. The section may hold no record: the position may be the end of
   the message or, behind a question that the message cuts, up to 5 bytes past it. */
ZOR_API const uint8_t *ZOR_DNS_PacketGetFirstRR(const DnsPacket *packet);
ZOR_API const uint8_t *ZOR_DNS_PacketGetFirstAuthorityRecord(const DnsPacket *packet);
ZOR_API const uint8_t *ZOR_DNS_PacketGetFirstAddtionalRecord(const DnsPacket *packet);

/* The position behind a record, null where ZOR_DNS_PacketGetRRLen gives 0. */
ZOR_API const uint8_t *ZOR_DNS_PacketGetNextRR(const DnsPacket *packet, const uint8_t *record);

/*
 * A request for the A record of a name, which is cut to 259 characters. The ID is 0 and for the caller to set. The
 * question count is the bytes 01 00, which the readers of this header read as 256; empty pieces of the name are left
 * out and leave as many zero bytes at the end. A piece is not checked: one of 64 bytes or more makes a malformed
 * message. Null for null, a name without any piece, or without memory.
 */
ZOR_API DnsPacket *ZOR_DNS_PacketBuildRequest(const char *name);

/*
 * Answers a query from a record that was stored at storedAt, in seconds since boot; 0 means that its TTL does not run.
 * The whole query comes first, with flags 81 00, one answer and no additional record counted; the answer's name is
 * a pointer to offset 12. The record's name is not used; its type, class and rdlength are cut to 16 bits, its data is
 * not. Null for null, for a record whose TTL has run out, for data that is null but not empty, or when a length passes
 * 0x7ffffff6 or memory is short.
 */
ZOR_API DnsPacket *ZOR_DNS_PacketBuildResponse(const DnsPacket *query, const DnsRecordValues *record,
                                               uint32_t storedAt);

/* A copy of the query with the flags 0x8100 + rcode and no records counted. Null for null, for fewer than 12 bytes, or
   without memory. */
ZOR_API DnsPacket *ZOR_DNS_PacketBuildErrorResponse(const DnsPacket *query, uint32_t rcode);

/* Tests whether a reply is an error. Returns 1 when it has an RCODE, no record in any section, or fewer than 12 bytes;
   else 0, also for null. */
ZOR_API uint32_t ZOR_DNS_PacketCheckIfErrorRely(const DnsPacket *packet);

/*
 * The address in a reverse-lookup name, of which the first 255 characters are looked at: "4.3.2.1.in-addr.arpa" gives
 * "1.2.3.4", and 32 nibbles before ".ip6.arpa" give 8 groups of 4 digits. The suffix is matched with regard to case;
 * text behind it is ignored. The caller passes a zeroed field of at least n + 1 bytes, where n (7 to 15, or 63) is the
 * length in front of the suffix: the byte behind the address is not written. *isIpv4, unless it is null, becomes 1 or
 * 0; it stays as it is for an IPv4 name that fails.
 * Returns 0; ZOR_DNS_E_TOO_FEW_LABELS when an empty label makes it too few; else ZOR_DNS_E_ARGUMENT.
 */
ZOR_API uint32_t ZOR_DNS_PacketPTRName2Addr(const char *name, char *address, uint32_t capacity, uint32_t *isIpv4);

/* The number of '.' among the first 63 characters. ZOR_DNS_E_ARGUMENT, as if it were a count, for null and "". */
ZOR_API uint32_t ZOR_DNS_CountAddrPoints(const char *text);

ZOR_END_DECLS

#endif
