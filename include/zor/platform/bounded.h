/*
 * Bounds-checked memory and string functions. Sizes are in bytes and include the terminating NUL. An argument error
 * (null, size 0, size above ZOR_BOUNDED_MAX) changes nothing but an addressable destination, which is emptied.
 */
#ifndef ZOR_PLATFORM_BOUNDED_H
#define ZOR_PLATFORM_BOUNDED_H

#include <stddef.h>
#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

#define ZOR_BOUNDED_MAX 0x7fffffffu

/* Copies count bytes. 0; EINVAL for a null argument; ERANGE when count exceeds size or the ranges overlap: then the
   destination is zeroed and nothing copied. */
ZOR_API int memcpy_s(void *destination, size_t size, const void *source, size_t count);

/* Sets count bytes. 0; EINVAL for null; ERANGE when count exceeds size: then size bytes are set. */
ZOR_API int memset_s(void *destination, size_t size, int value, size_t count);

/* Copies a string, cut to the field. 0; ERANGE when it was cut; EINVAL. */
ZOR_API int strcpy_s(char *destination, size_t size, const char *source);

/* Copies at most count characters of a string, cut to the field, always terminated. 0; ERANGE when the field was too
   small; EINVAL. */
ZOR_API int strncpy_s(char *destination, size_t size, const char *source, size_t count);

/* Formats, cut to the field. Returns the number of characters stored without the NUL when all fitted, else -1. */
ZOR_API int snprintf_s(char *destination, size_t size, size_t count, const char *format, ...) ZOR_PRINTF(4, 5);

/* As sscanf; -1 for a null argument. */
ZOR_API int sscanf_s(const char *text, const char *format, ...) __attribute__((format(scanf, 2, 3)));

ZOR_END_DECLS

#endif
