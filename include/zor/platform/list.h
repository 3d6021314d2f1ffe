/*
 * Singly linked lists. An item begins with its link, so any record whose first member is a pointer to the next one can
 * be an item. A list is identified by the address of its head pointer; an empty list has a null head.
 * Items are separate malloc blocks wherever the list releases them. An item is on one list, once. Callbacks must not
 * change the list that is being walked.
 */
#ifndef ZOR_PLATFORM_LIST_H
#define ZOR_PLATFORM_LIST_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* Releases what an item holds, not the item itself. */
typedef void (*ZOR_LIST_DESTROY)(void *item);
/* Nonzero when the item is the one looked for. */
typedef uint32_t (*ZOR_LIST_MATCH)(const void *item, const void *key);

/* Appends the item at the tail. Returns the item; null, with nothing changed, for a null argument. */
ZOR_API void *ZOR_UTIL_ListAppend(void *list, void *item);

/* Unlinks the item, calls destroy (when not null) on it and frees it. Returns 0; 1, with nothing freed, for a null
   argument or when the item is not on the list. */
ZOR_API uint32_t ZOR_UTIL_ListDeleteItem(void *list, void *item, ZOR_LIST_DESTROY destroy);

/* Unlinks the item and frees nothing. Returns 0; 1 for a null argument or when the item is not on the list. */
ZOR_API uint32_t ZOR_UTIL_ListDeleteItemEx(void *list, void *item);

/* Empties the list: calls destroy (when not null) on each item and frees it, in list order. */
ZOR_API void ZOR_UTIL_ListDeleteAll(void *list, ZOR_LIST_DESTROY destroy);

/* The first item for which match(item, key) is nonzero, else null. */
ZOR_API void *ZOR_UTIL_ListFindItem(void *list, ZOR_LIST_MATCH match, const void *key);

/* How many items the list holds; 0 for null. */
ZOR_API uint32_t ZOR_UTIL_ListGetCount(void *list);

ZOR_END_DECLS

#endif
