/*
 * Events: what happened somewhere in the system, published to all who subscribed. Byte-level description:
 * docs/protocol.md.
 *
 * Conventions of this header:
 * 1. An event's number is its message type. Types ZOR_EVT_JSON_FIRST to ZOR_EVT_JSON_LAST carry a JSON text, all others
 *    a device-management message with items. Subscribers get a JSON text either way:
 *    {"Method":"notify","Module":...,"EventType":...,"Timestamp":...,"Payload":{...}}, the members in this order.
 * 2. A module is the part of the system that owns an event type; the name of the event ("EventType") is the
 *    publisher's. Both are case-sensitive.
 * 3. ZOR_EVT_FAILED (1) stands for a bad argument and for JSON that cannot be made. Publishing also returns the
 *    statuses of <zor/dmmsg.h> and of ZOR_MSG_Send.
 * 4. JSON objects are those of cJSON. Texts that are returned are malloc blocks of the caller, whatever hooks cJSON
 *    has.
 * 5. All of it is process-wide, for the loop's thread. Callbacks may publish, subscribe and make synchronous requests.
 */
#ifndef ZOR_EVENT_H
#define ZOR_EVENT_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/msg_head.h>
#include <zor/nvpair.h>

ZOR_BEGIN_DECLS

struct cJSON;

/* Event types. Used with ZOR_EVT_PublishEvent, ZOR_EVT_PublishEventWithNVPair, ZOR_EVT_PublishEventWithJson,
   ZOR_EVT_GetMsgTypeByEventModuleName, ZOR_EVT_GetEventModuleNameByEventType, ZOR_EVT_SubscribeSingelEventCallBack and
   ZOR_MSG_SubscribeEventForOtherApp. */
#define ZOR_EVT_ALL ZOR_MSG_EVENT_FIRST /* stands for all events; no event itself */
#define ZOR_EVT_JSON_FIRST 0x2DA01u
#define ZOR_EVT_JSON_LAST 0x2DA63u
#define ZOR_EVT_ITEMS_FIRST 0x2DA64u
#define ZOR_EVT_ITEMS_LAST 0x2DAFFu

/* Returned for a bad argument and for JSON that cannot be made. */
#define ZOR_EVT_FAILED UINT32_C(1)

/* Receives an event: a JSON text, whose length does not count the NUL behind it. The text of a JSON event is as the
   publisher sent it and need not be JSON at all. A status other than 0 is printed: "Do Event CallBack Error %x". */
typedef uint32_t (*ZOR_EVT_CALLBACK)(uint32_t type, const char *body, uint32_t bodyLength);

/* The module that owns an event type; null when none does. */
ZOR_API const char *ZOR_EVT_GetEventModuleNameByEventType(uint32_t type);

/* The event type of a module; ZOR_EVT_ALL for null and for an unknown one. */
ZOR_API uint32_t ZOR_EVT_GetMsgTypeByEventModuleName(const char *module);

/* Publishes an event with one item, or without any when name or value is null: such an event reaches no callback.
   ZOR_EVT_FAILED for a null event name. */
ZOR_API uint32_t ZOR_EVT_PublishEvent(uint32_t type, const char *eventName, const char *name, const char *value);

/* Publishes an event with an item for each pair; pairs with a null name or value are skipped. Out of memory shows as
   ZOR_E_DM_ARGUMENT. ZOR_EVT_FAILED for a null event name. */
ZOR_API uint32_t ZOR_EVT_PublishEventWithNVPair(uint32_t type, const char *eventName, const ZOR_NVPAIR *pairs);

/* Publishes a JSON event with a copy of the payload, as compact text. ZOR_EVT_FAILED for a null argument and when the
   text cannot be made, also when no time stamp is available; else the status of ZOR_MSG_Send. */
ZOR_API uint32_t ZOR_EVT_PublishEventWithJson(const char *module, const char *eventName, uint32_t type,
                                              const struct cJSON *payload);

/* Turns a received item event into JSON, as formatted text. *text must be null or a malloc block, which is freed; it
   is null after ZOR_EVT_FAILED: an unknown event type, or no item beside the event's name. length (may be null)
   receives the text's length on success. */
ZOR_API uint32_t ZOR_EVT_GetEventContent(const ZOR_MSG_HEAD *msg, char **text, uint32_t *length);

/* Sets *body to the data behind the bus header, never null for a message; it is the message's. ZOR_EVT_FAILED for a
   null argument. */
ZOR_API uint32_t ZOR_EVT_GetEventBody(ZOR_MSG_HEAD *msg, void **body);

/* Asks the server to send every event to this process. Returns the status of ZOR_MSG_Send. */
ZOR_API uint32_t ZOR_EVT_SubscribeAllEvent(void);

/* Calls back for events of one type that arrive. This asks the server for nothing: a daemon that wants this one event
   also calls ZOR_MSG_SubscribeEventForOtherApp with its own name, one that wants all of them ZOR_EVT_SubscribeAllEvent.
   Callbacks of a type run in the order of their subscription, which lasts as long as the process. Returns 0;
   ZOR_EVT_FAILED for a type below ZOR_EVT_ALL, a null callback, or without memory. */
ZOR_API uint32_t ZOR_EVT_SubscribeSingelEventCallBack(uint32_t type, ZOR_EVT_CALLBACK callback);

/* Sets the one callback for events of every type, which runs after the others; null removes it. */
ZOR_API void ZOR_EVT_SubscribeAllEventCallBack(ZOR_EVT_CALLBACK callback);

/* Runs the callbacks of an event, those subscribed when it begins; the bus calls it for events without a handler. The
   message of a JSON event must be followed by a zero byte, as every received one is. Null is ignored. */
ZOR_API void ZOR_Evt_SubMsgProc(ZOR_MSG_HEAD *msg);

/* Adds a text member to an object. ZOR_EVT_FAILED for a null argument and without memory; so do the three below. */
ZOR_API uint32_t ZOR_GenerateJsonItem(struct cJSON *object, const char *name, const char *value);

/* Begins an event in *root (a struct cJSON *, or null), everything but its payload. The object that is there is deleted
   first, unless an argument is null. */
ZOR_API uint32_t ZOR_EVT_JsonBeginProc(void **root, const char *module, const char *eventName);

/* Adds a text member to *payload, which is made when null. */
ZOR_API uint32_t ZOR_EVT_BuiderJsonProc(struct cJSON **payload, const char *name, const char *value);

/* Ends an event: deletes *root and its payload and puts the formatted text, a malloc block, in its place. On failure
   both objects stay the caller's: a missing one, or no memory. */
ZOR_API uint32_t ZOR_EVT_EndJsonEndProc(void **root, struct cJSON *payload);

ZOR_END_DECLS

#endif
