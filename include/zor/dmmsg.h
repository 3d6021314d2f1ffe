/*
 * Device-management messages: named items and a result code in one bus message. Byte-level description:
 * docs/protocol.md.
 *
 * Conventions of this header:
 * 1. A handle is the address of a message's body. ZOR_MSG_GetMsgByHead turns a received message into one;
 *    ZOR_MSG_GetMsgHead leads back to the bus header. Sending and replying leave the message with the caller, who
 *    releases it with ZOR_DMMSG_Free.
 * 2. Messages come from other processes, so each call checks its handle. "Not a message of this kind" is null, a body
 *    without whole header or magic, and a header whose used part (capacity - free) is negative or too short.
 *    Beyond that the bus header's body length bounds the message, whatever capacity and free say.
 * 3. What is sent returns the statuses of ZOR_MSG_Send beside the ones named here. All calls belong to the loop's
 *    thread.
 */
#ifndef ZOR_DMMSG_H
#define ZOR_DMMSG_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* Type and layout of a management message. Used with ZOR_DMMSG_Builder and ZOR_DMMSG_GetItem. */
#define ZOR_MSG_DM 0x209u /* the bus message type */
#define ZOR_DMMSG_MAGIC UINT32_C(0xfebf)
#define ZOR_DMMSG_HEAD_SIZE 24u
#define ZOR_DMMSG_ITEM_HEAD_SIZE 12u /* three words: kind, name length, value length; name and value follow */
#define ZOR_DMMSG_NEW_CAPACITY 1024u

#define ZOR_E_DM_ARGUMENT UINT32_C(0x30000)  /* a bad argument, not a message of this kind, or no more items */
#define ZOR_E_DM_NO_BLOCK UINT32_C(0x30007)  /* no memory for a new message */
#define ZOR_E_DM_NO_MEMORY UINT32_C(0x30009) /* no memory to grow, or the message would exceed 8 MiB */
#define ZOR_E_DM_BAD_ANSWER UINT32_C(0x30012)

/* The head of the body; the items follow without padding. Host byte order. */
typedef struct ZOR_DMMSG_HEAD {
  uint32_t magic;
  uint32_t capacity;  /* bytes of the body, this head included */
  uint32_t free;      /* unused bytes at its end */
  uint32_t errorCode; /* a reply's result; 0 is success */
  uint32_t configId;  /* identifier of the sender's global configuration; 0 in replies without items */
  uint32_t subType;   /* the builder's */
} ZOR_DMMSG_HEAD;

/* An item as it is in the message. Texts may lack their NUL: do not trust the sender. Valid until the next append. */
typedef struct ZOR_DMMSG_ITEM {
  uint32_t kind;
  uint32_t nameLength; /* bytes, the NUL included */
  uint32_t valueLength;
  const char *name;  /* null when its length is 0 */
  const void *value; /* null when its length is 0 */
} ZOR_DMMSG_ITEM;

/* Makes an empty message to the named application. *dm is set on success only. ZOR_E_DM_ARGUMENT for null;
   ZOR_E_DM_NO_BLOCK. Takes no sequence number. */
ZOR_API uint32_t ZOR_DMMSG_Builder(ZOR_DMMSG_HEAD **dm, const char *destination, uint32_t subType);

/*
 * Appends an item with a copy of name and value; both may point into the message itself. A null or empty name is no
 * name; value may be null when valueLength (bytes) is 0; the NUL of a text value counts when it is to travel.
 * A message without room grows, which moves it: *dm, views and iterators change.
 * ZOR_E_DM_ARGUMENT leaves everything as it was. After ZOR_E_DM_NO_MEMORY the message is freed and *dm null, with
 * which every call here fails harmlessly. A refused size prints "error: zor_realloc want to malloc 4M, return NULL,
 * malloc len=%d\n".
 */
ZOR_API uint32_t ZOR_DMMSG_AppendItem(ZOR_DMMSG_HEAD **dm, uint32_t kind, const char *name, const void *value,
                                      uint32_t valueLength);

/* Reads the item at *iterator, which starts as null for the first, and advances it. ZOR_E_DM_ARGUMENT at the end, for
   an item that leaves the message, a foreign iterator and null arguments; item and iterator are untouched then.
   Zero bytes behind the items read as items without name and value: replies of ZOR_DMMSG_Reply end in these. */
ZOR_API uint32_t ZOR_DMMSG_GetItem(const ZOR_DMMSG_HEAD *dm, ZOR_DMMSG_ITEM *item, const void **iterator);

/* The error code, the sub-type; 0 for null and for a message without head or magic. */
ZOR_API uint32_t ZOR_DMMSG_GetErrCode(const ZOR_DMMSG_HEAD *dm);
ZOR_API uint32_t ZOR_DMMSG_GetSubType(const ZOR_DMMSG_HEAD *dm);

/* Frees the whole message. Null is ignored. */
ZOR_API void ZOR_DMMSG_Free(ZOR_DMMSG_HEAD *dm);

/* Shrinks the message to its used part, even if the send then fails, and sends it. ZOR_E_DM_ARGUMENT. */
ZOR_API uint32_t ZOR_DMMSG_Send(ZOR_DMMSG_HEAD *dm);

/*
 * Sends a request and waits for the reply: the next message of the request's type, from any sender. Other
 * messages are set aside for the loop, the notice of an absent destination too. timeoutMs bounds the wait for each
 * message, not the whole; 0 waits without limit.
 * *reply (reply may be null) is cleared first; it receives a reply whose error code is 0, to be released with
 * ZOR_DMMSG_Free. Returns the reply's error code; a status of the send or of ZOR_MSG_Recv; ZOR_E_DM_ARGUMENT;
 * ZOR_E_DM_BAD_ANSWER for a reply without head or magic.
 */
ZOR_API uint32_t ZOR_DMMSG_SyncSend(ZOR_DMMSG_HEAD *dm, ZOR_DMMSG_HEAD **reply, uint32_t timeoutMs);

/* Replies to a received request with a code and no items. Takes a sequence number. ZOR_E_DM_ARGUMENT when the request
   is not a message of this kind and of type ZOR_MSG_DM. */
ZOR_API uint32_t ZOR_DMMSG_ReplyRetCode(const ZOR_DMMSG_HEAD *request, uint32_t code);

/* Sends the used part of a reply to the named application (null: the server). Capacity and free keep their values,
   so they promise the receiver room that did not travel. ZOR_E_DM_ARGUMENT. */
ZOR_API uint32_t ZOR_DMMSG_ReplyEx(const char *destination, uint32_t code, ZOR_DMMSG_HEAD *reply);

/* Sends a reply to the sender of a request, less as many bytes at its end as the request has free. A request that
   was sent by ZOR_DMMSG_Send has none free: the reply then travels with its unused bytes. ZOR_E_DM_ARGUMENT, also
   when the reply would lose part of its head. After ZOR_DMMSG_ReplyEx of the same reply only its used part is left to
   send. */
ZOR_API uint32_t ZOR_DMMSG_Reply(const ZOR_DMMSG_HEAD *request, uint32_t code, ZOR_DMMSG_HEAD *reply);

ZOR_END_DECLS

#endif
