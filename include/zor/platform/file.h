/* Whole files to and from memory, permissions, and the location of fixed paths. */
#ifndef ZOR_PLATFORM_FILE_H
#define ZOR_PLATFORM_FILE_H

#include <stddef.h>
#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* Statuses of the file functions. */
#define ZOR_FILE_OK UINT32_C(0)
#define ZOR_FILE_E_ARGUMENT UINT32_C(0x10001)
#define ZOR_FILE_E_NO_ACCOUNT UINT32_C(0x10002)
#define ZOR_FILE_E_NO_MEMORY UINT32_C(0x10006)
#define ZOR_FILE_E_IO UINT32_C(0x10007)

/*
 * Where a fixed path such as "/var/msgsvr" is opened on this system: the path itself, or beneath a directory of the
 * platform's choice (here: the one that the environment variable ZOR_ROOT names, unless the process runs with raised
 * privileges). Every path handed to the other functions of this file has been through here already.
 * Returns the length of the result; 0, with out empty, for a null argument or when it does not fit into size bytes.
 */
ZOR_API size_t ZOR_UTIL_FixedPath(const char *path, char *out, size_t size);

/* Reads a whole regular file into a new malloc block, which the caller frees and which is NUL-terminated one byte past
   its length. An empty file gives an empty block. On failure *buffer is null and *length 0. Returns 0;
   ZOR_FILE_E_ARGUMENT for null; ZOR_FILE_E_NO_MEMORY, also above 128 MiB; ZOR_FILE_E_IO when the file cannot be opened
   or read or is not a regular one. */
ZOR_API uint32_t ZOR_UTIL_ReadFileToBuf(const char *path, void **buffer, uint32_t *length);

/* The same as text: a new NUL-terminated malloc block, which the caller frees; null when that fails. */
ZOR_API char *ZOR_UTIL_StrFileToBuf(const char *path);

/* Creates or overwrites a regular file with the given bytes; a new one is readable by its owner and group. A file that
   could not be written whole is removed; a symbolic link or anything else of that name is refused and stays.
   Returns 0; ZOR_FILE_E_ARGUMENT for a null path, or a null buffer with a length; ZOR_FILE_E_IO. */
ZOR_API uint32_t ZOR_UTIL_WriteBufToFile(const char *path, const void *buffer, uint32_t length);

/* Gives the file the permissions named by an octal text such as "775", less the write permission for others.
   Returns 0; ZOR_FILE_E_ARGUMENT for null or a text that is no such number; ZOR_FILE_E_IO. */
ZOR_API uint32_t ZOR_UTIL_RemoveAndroidWPerm(const char *path, const char *mode);

/* Gives the file to the account of that name and to the account's own group; a symbolic link itself, not its target.
   Returns 0; ZOR_FILE_E_ARGUMENT for null; ZOR_FILE_E_NO_ACCOUNT; ZOR_FILE_E_IO. */
ZOR_API uint32_t ZOR_UTIL_ChangeFileUGid(const char *path, const char *account);

ZOR_END_DECLS

#endif
