/* Tables that pair texts with numbers, base64, and separators. Texts are compared whole, without regard to case. */
#ifndef ZOR_PLATFORM_TEXT_H
#define ZOR_PLATFORM_TEXT_H

#include <stddef.h>
#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* The index of a text in a null-terminated array of names, from 0; -1 when it is not there, or for null. */
ZOR_API int32_t ZOR_UTIL_GetIdxFromStr(const char *const *names, const char *text);

/* The name at an index of such an array; null outside it, or for null. */
ZOR_API const char *ZOR_UTIL_GetStrFromIdx(const char *const *names, int32_t index);

/* A text with a number of its own. */
typedef struct ZOR_STR_IDX {
  const char *text;
  int32_t index;
} ZOR_STR_IDX;

/* The number of the first of count pairs that has the text; -1 when none has it, or for null. Pairs without a text are
   skipped. */
ZOR_API int32_t ZOR_UTIL_StrIdxArrayGetIdxByStr(const ZOR_STR_IDX *pairs, uint32_t count, const char *text);

/* The text of the first of count pairs that has the number; null when none has it, or for null. */
ZOR_API const char *ZOR_UTIL_StrIdxArrayGetStrByIdx(const ZOR_STR_IDX *pairs, uint32_t count, int32_t index);

/* Length bytes as base64: the alphabet with '+' and '/', padded with '=', without line breaks. A new NUL-terminated
   malloc block, which the caller frees; "" for no bytes. Null for null, or when there is no memory. */
ZOR_API char *ZOR_UTIL_Base64Encode(const void *data, uint32_t length);

/* The bytes of a base64 text; white space in it is skipped. A new malloc block, which the caller frees and which is
   NUL-terminated one byte past its length; *length, unless length is null, becomes the number of bytes, possibly 0.
   Null, with *length 0, for null, a text that is not base64, or when there is no memory. */
ZOR_API char *ZOR_UTIL_Base64Decode(const char *text, uint32_t *length);

/* Copies a text without its separator characters into a field of size bytes, cut to it and NUL-terminated.
   Returns 0; 1 when it was cut, or for null or a size of 0, which touches nothing. May be done in place. */
ZOR_API uint32_t ZOR_UTIL_Strip_Separator(const char *text, char separator, char *out, size_t size);

ZOR_END_DECLS

#endif
