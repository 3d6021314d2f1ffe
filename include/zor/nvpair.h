/*
 * Lists of name-value pairs. The owner holds the first node, null for the empty list, and passes its address to what
 * may change it. Nodes, names and values are malloc blocks. Names are compared exactly.
 */
#ifndef ZOR_NVPAIR_H
#define ZOR_NVPAIR_H

#include <zor/export.h>

ZOR_BEGIN_DECLS

typedef struct ZOR_NVPAIR {
  struct ZOR_NVPAIR *next;
  char *name; /* nodes without a name are never found */
  char *value;
} ZOR_NVPAIR;

/* The first pair of that name; null when there is none, or for a null name. */
ZOR_API ZOR_NVPAIR *ZOR_UTIL_NVPairFindByName(ZOR_NVPAIR *list, const char *name);

/* Gives a name a copy of a value, which may be a value of the list. A pair of that name keeps its place, another is
   appended. Returns the pair; null, with the list unchanged, for a null argument or without memory. */
ZOR_API ZOR_NVPAIR *ZOR_UTIL_NVPairSet(ZOR_NVPAIR **list, const char *name, const char *value);

/* The value of the first pair of that name, owned by the pair; null when there is none, or for null. */
ZOR_API const char *ZOR_UTIL_NVPairGetValue(ZOR_NVPAIR *list, const char *name);

/* Removes and frees the first pair of that name, if there is one; the name may be the pair's own. */
ZOR_API void ZOR_UTIL_NVPairDelByName(ZOR_NVPAIR **list, const char *name);

/* Frees every pair. Null is ignored. */
ZOR_API void ZOR_UTIL_NVPairDelAll(ZOR_NVPAIR **list);

/* Prints "Print NVPair for [%p] now ...\n" with the list on standard output, and no pair: a value may be a secret. */
ZOR_API void ZOR_UTIL_NVPairPrint(ZOR_NVPAIR *list);

ZOR_END_DECLS

#endif
