/*
 * Bounds-checked memory and string functions.
 *
 * 1. size is the room at the destination in bytes, the terminating NUL included.
 * 2. A null destination, a size of 0 or one above ZOR_BOUNDED_MAX is an argument error that touches nothing.
 * 3. Any other argument error leaves the destination empty.
 * 4. Texts are cut to their field and always terminated: callers rely on the part that fitted.
 */
#ifndef ZOR_PLATFORM_BOUNDED_H
#define ZOR_PLATFORM_BOUNDED_H

#include <stddef.h>
#include <stdint.h>
#include <zor/export.h>
#include <zor/platform/limits.h>

ZOR_BEGIN_DECLS

/* Copies count bytes. 0; EINVAL for an argument error, null source included; ERANGE when count exceeds size or the
   ranges overlap without being the same. On any error that reaches the destination all its size bytes are zeroed. */
ZOR_API int memcpy_s(void *destination, size_t size, const void *source, size_t count);

/* Sets count bytes. 0; EINVAL for an argument error; ERANGE when count exceeds size: then size bytes are set. */
ZOR_API int memset_s(void *destination, size_t size, int value, size_t count);

/* Copies a string, which may overlap its destination. 0; ERANGE when it was cut; EINVAL for an argument error. */
ZOR_API int strcpy_s(char *destination, size_t size, const char *source);

/* The same with at most count characters of the string. ERANGE when the field was too small for them. */
ZOR_API int strncpy_s(char *destination, size_t size, const char *source, size_t count);

/* Formats at most count characters. Returns how many were stored, without the NUL; -1 when the text was cut or an
   argument is invalid. No argument may overlap the destination. */
ZOR_API int snprintf_s(char *destination, size_t size, size_t count, const char *format, ...) ZOR_PRINTF(4, 5);

/*
 * As sscanf, but a format that could store text without a bound is refused before anything is read: "%s" and "%[" need
 * a field width, as in "%11s" for a field of 12 bytes, or a "*" or "m". No sizes are passed beside the pointers.
 * Arguments by position ("%1$d") are refused too. Returns the number of fields stored; -1 for a null argument, a
 * refused format, or when the text ends before the first field.
 */
ZOR_API int sscanf_s(const char *text, const char *format, ...) __attribute__((format(scanf, 2, 3)));

ZOR_END_DECLS

#endif
