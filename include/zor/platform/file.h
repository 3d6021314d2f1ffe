/* Whole files to and from memory, permissions, and the place where fixed paths lie. */
#ifndef ZOR_PLATFORM_FILE_H
#define ZOR_PLATFORM_FILE_H

#include <stddef.h>
#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* Statuses of the file functions. */
#define ZOR_FILE_OK UINT32_C(0)
#define ZOR_FILE_E_ARGUMENT UINT32_C(0x10001)
#define ZOR_FILE_E_NO_MEMORY UINT32_C(0x10006)
#define ZOR_FILE_E_IO UINT32_C(0x10007)

/*
 * Where a fixed path such as "/var/msgsvr" is opened on this system: the path itself, or beneath a directory of the
 * platform's choice (here: the one that the environment variable ZOR_ROOT names, unless the process runs with raised
 * privileges). Every path handed to the other functions of this file has been through here already.
 * Returns the length of the result; 0, with out empty, for a null argument or when it does not fit into size bytes.
 */
ZOR_API size_t ZOR_UTIL_FixedPath(const char *path, char *out, size_t size);

/* Reads a whole file into a new malloc block, which is NUL-terminated one byte past its length. An empty file gives an
   empty block. On failure *buffer is null and *length 0. Returns 0, ZOR_FILE_E_ARGUMENT, ZOR_FILE_E_NO_MEMORY (also
   above 128 MiB) or ZOR_FILE_E_IO. */
ZOR_API uint32_t ZOR_UTIL_ReadFileToBuf(const char *path, void **buffer, uint32_t *length);

/* Reads a text file into a new NUL-terminated malloc block; null when that fails. */
ZOR_API char *ZOR_UTIL_StrFileToBuf(const char *path);

/* Creates or replaces a file with the given bytes, readable by its owner and group. A file that could not be
   written whole is removed. Returns 0, ZOR_FILE_E_ARGUMENT or ZOR_FILE_E_IO. */
ZOR_API uint32_t ZOR_UTIL_WriteBufToFile(const char *path, const void *buffer, uint32_t length);

/* Gives the file the permissions named by an octal text such as "775", less the write permission for others.
   Returns 0, ZOR_FILE_E_ARGUMENT or ZOR_FILE_E_IO. */
ZOR_API uint32_t ZOR_UTIL_RemoveAndroidWPerm(const char *path, const char *mode);

ZOR_END_DECLS

#endif
