/*
 * Character sets: conversion between named sets, the test for UTF-8, and self-contained converters between UCS-2,
 * UTF-8, big-endian bytes and hexadecimal text.
 *
 * Conventions:
 * 1. Set names are those of the platform's conversion device ("utf8", "cp936", "cp950", "iso8859-1", ...), cut to 31
 *    characters. Where there is no such device the C library's iconv is used: what cannot be converted is left
 *    out, and a name that iconv does not know is a failure. An empty name is unknown everywhere.
 * 2. A returned text or buffer is a malloc block that the caller frees, unless the comment says otherwise.
 * 3. The cl_ functions take output buffers of the caller's and an in/out length: on entry the room, on return what was
 *    written. They return one of CL_. With CL_E_ARGUMENT the length, if given, becomes 0.
 * 4. For one thread of a process.
 */
#ifndef ZOR_CHARSET_H
#define ZOR_CHARSET_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

#define CL_OK 0u
#define CL_E_ARGUMENT 1u  /* a null pointer, or a count or length of 0 */
#define CL_E_LEAD_BYTE 4u /* not the first byte of a UTF-8 sequence */
#define CL_E_ROOM 6u      /* the output buffer is too small */
#define CL_E_BASE 8u      /* a number base other than 10 and 16 */

/* How many bytes the conversion of length bytes of input gives; -1 when an argument is null, a set is not known, or,
   with lenient 0, some of the input cannot be converted. */
ZOR_API int32_t ZOR_NLS_ConvertGetLength(const char *sourceSet, const void *input, uint32_t length,
                                         const char *targetSet, uint32_t lenient);

/* Converts length bytes of input into a new buffer, leniently. *outLength may be null; it receives the bytes produced,
   0 on failure. Null for null arguments, an unknown set, an empty result, and, with the allocation guard's line, a
   result above 8 MiB. */
ZOR_API char *ZOR_NLS_ConvertString(const char *sourceSet, const void *input, uint32_t length, const char *targetSet,
                                    uint32_t *outLength);

/* Converts a text with its NUL, leniently; null on failure. Mind the order: target, then source. */
ZOR_API char *ZOR_NLS_GB2312Convert(const char *text, const char *targetSet, const char *sourceSet);

/* The same. */
ZOR_API char *ZOR_NLS_IconvConvert(const char *text, const char *targetSet, const char *sourceSet);

/* Tests whether a text is UTF-8 of sequences up to three bytes. Returns 1 if so, and for null; else 0. Overlong forms
   pass, four-byte ones do not. */
ZOR_API uint32_t ZOR_NLS_IsStringUtf8(const char *text);

/* A text of unknown set in UTF-8: a copy when ZOR_NLS_IsStringUtf8 accepts it, surrogates and overlong forms included;
   else from the first of "utf8", "cp936", "cp950", "iso8859-1" of which all of it can be converted. Null for null. */
ZOR_API char *ZOR_NLS_TryConvertToUtf8(const char *text);

/* The same in a buffer of the library's, valid until the next call; the text itself when it cannot be converted. The
   argument may be the result of the last call. Never freed by the caller. */
ZOR_API const char *ZOR_NLS_TryConvertToUtf8NoFree(const char *text);

/* Encodes units until a zero one or count of them, surrogates one by one. *length must be at least count, though up to
   3 * count + 1 bytes are written: the caller provides them. The output is NUL-terminated; *length becomes the bytes
   without the NUL. */
ZOR_API uint32_t cl_ucs2ToUTF8(const uint16_t *units, uint32_t count, char *output, uint32_t *length);

/* Encodes units until a zero one, count of them, or the first that does not fit into size bytes whole. The output needs
   size + 1 bytes, the last one for the NUL. */
ZOR_API uint32_t cl_ucs2ToUTF8ByLen(const uint16_t *units, uint32_t count, char *output, uint32_t size);

/* Decodes UTF-8, sequences of up to six bytes, each value cut to 16 bits, until a zero byte or length bytes. *count
   must not be 0 (CL_E_ROOM), and is not compared: the caller provides length + 1 units. The output is zero-terminated;
   *count becomes the units without that. Following bytes are not checked; those beyond the end count as
   zero bits. A bad lead byte gives CL_E_LEAD_BYTE and leaves *count. */
ZOR_API uint32_t cl_utf8ToUCS2(const char *bytes, uint32_t length, uint16_t *units, uint32_t *count);

/* Writes each unit with its high byte first; input and output may be the same and need no alignment. *length: room in
   bytes, at least 2 * count (CL_E_ROOM). */
ZOR_API uint32_t cl_widecharToByteOrder(const void *units, uint32_t count, void *output, uint32_t *length);

/* Big-endian bytes to units of this machine, followed by a zero unit; *count: room in units, at least length / 2 + 1
   (CL_E_ROOM). Input and output may be the same. */
ZOR_API uint32_t cl_byteOrderToWideChar(const void *bytes, uint32_t length, uint16_t *units, uint32_t *count);

/* Two upper-case hexadecimal digits a byte, and a NUL; *length: room, at least 2 * count + 1 (CL_E_ROOM). */
ZOR_API uint32_t cl_bytesToString(const void *bytes, uint32_t count, char *text, uint32_t *length);

/* One byte for every two hexadecimal digits, until length characters or a NUL; an odd last one is dropped, and other
   characters count as 0. *count: room in bytes, at least length / 2 (CL_E_ROOM). */
ZOR_API uint32_t cl_stringToBytes(const char *text, uint32_t length, void *bytes, uint32_t *count);

/* The number that length characters make in base 10 or 16 (CL_E_BASE), wrapping at 32 bits. Characters that are no
   digits are skipped; in base 10 any of them gives CL_E_ARGUMENT, in base 16 only one at the end does. Length 0 gives
   the value 0. */
ZOR_API uint32_t cl_stringToNumeric(const char *text, uint32_t length, uint32_t base, uint32_t *value);

ZOR_END_DECLS

#endif
