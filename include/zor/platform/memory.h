/* Memory. */
#ifndef ZOR_PLATFORM_MEMORY_H
#define ZOR_PLATFORM_MEMORY_H

#include <stddef.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* A record with a variable part behind it, as one zeroed malloc block: *variable points at variableSize bytes directly
   behind the record, without padding. Freeing the record frees both. Null, with *variable null, when there is no memory
   or an argument is null or 0. */
ZOR_API void *ZOR_UTIL_CallocVarg(size_t recordSize, size_t variableSize, void **variable);

ZOR_END_DECLS

#endif
