/*
 * The configuration store as files: what is saved, exported and restored. The conventions of config.h hold.
 * Paths have been through ZOR_UTIL_FixedPath. A file holds one part of the store or both and says nothing of which.
 */
#ifndef ZOR_PLATFORM_CONFIG_FILE_H
#define ZOR_PLATFORM_CONFIG_FILE_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* Parts of the store. Used with ZOR_STORE_WriteFile, ZOR_STORE_ReadFile and ZOR_STORE_Clear. */
#define ZOR_STORE_CONFIGURATION UINT32_C(1) /* parameters and objects */
#define ZOR_STORE_APPDATA UINT32_C(2)
#define ZOR_STORE_ALL (ZOR_STORE_CONFIGURATION | ZOR_STORE_APPDATA)

/* Writes a consistent snapshot of the parts to a file that only its owner may read. An existing store file of that
   name is replaced once the new one is whole; anything else of that name stays, and the status is ZOR_STORE_E_IO. */
ZOR_API uint32_t ZOR_STORE_WriteFile(const char *path, uint32_t parts);

/* Replaces the parts by what the file holds of them. ZOR_STORE_E_NOT_FOUND when there is no such file; a file that
   ZOR_STORE_CheckFile refuses changes nothing. */
ZOR_API uint32_t ZOR_STORE_ReadFile(const char *path, uint32_t parts);

/* Whether the file is whole and can be read. ZOR_STORE_E_NOT_FOUND when there is none; ZOR_STORE_E_IO when it is
   damaged, no store file, of a later version, or the store's own file or a copy of that. */
ZOR_API uint32_t ZOR_STORE_CheckFile(const char *path);

/* Empties the parts. */
ZOR_API uint32_t ZOR_STORE_Clear(uint32_t parts);

ZOR_END_DECLS

#endif
