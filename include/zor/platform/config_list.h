/*
 * What the configuration store holds, for tools that do not know the numbers. The conventions of config.h hold.
 */
#ifndef ZOR_PLATFORM_CONFIG_LIST_H
#define ZOR_PLATFORM_CONFIG_LIST_H

#include <stdint.h>
#include <zor/export.h>
#include <zor/platform/config.h>

ZOR_BEGIN_DECLS

/* Kinds of entries. Used with ZOR_STORE_List. */
#define ZOR_STORE_KIND_PARAMETER UINT32_C(1)
#define ZOR_STORE_KIND_OBJECT UINT32_C(2)
#define ZOR_STORE_KIND_APPDATA UINT32_C(3)

/* One entry: a parameter, an item of application data, or one value of an object. An object without values is one entry
   without a name. */
typedef struct ZOR_STORE_ENTRY {
  uint32_t kind;
  uint32_t id;       /* of the parameter or item, or the class of the object */
  uint32_t instance; /* 0 for application data */
  uint32_t size;     /* of the value in bytes */
  const char *name;  /* of an object's value, else null; valid during the call */
} ZOR_STORE_ENTRY;

/* Called for each entry, with the context that ZOR_STORE_List was given. Must not use the store. */
typedef void (*ZOR_STORE_VISIT)(const ZOR_STORE_ENTRY *entry, void *context);

/* Visits a snapshot of all entries: parameters, objects, application data, each in the order of number, instance and
   name. Values are not shown. After a failure, some entries may have been visited. Returns 0, also when the store is
   empty; ZOR_STORE_E_ARGUMENT for a null function; ZOR_STORE_E_BUSY; ZOR_STORE_E_NO_MEMORY; ZOR_STORE_E_IO. */
ZOR_API uint32_t ZOR_STORE_List(ZOR_STORE_VISIT visit, void *context);

ZOR_END_DECLS

#endif
