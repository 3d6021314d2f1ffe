/*
 * The configuration store: parameters, objects and application data, shared by all processes of the device.
 *
 * Conventions:
 * 1. A call is one transaction: when it returns, the store holds all of it or nothing of it, and other processes see
 *    it. Several processes may read and write at once.
 * 2. Statuses: 0, or one of ZOR_STORE_E_.
 * 3. Sizes are in bytes. Output buffers belong to the caller unless a comment says otherwise.
 */
#ifndef ZOR_PLATFORM_CONFIG_H
#define ZOR_PLATFORM_CONFIG_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

#define ZOR_STORE_OK UINT32_C(0)
#define ZOR_STORE_E_ARGUMENT UINT32_C(0x10001)  /* null, or a size of 0 where a value is needed */
#define ZOR_STORE_E_NOT_FOUND UINT32_C(0x10002) /* no such parameter, object, instance or item */
#define ZOR_STORE_E_BUSY UINT32_C(0x10005)      /* another process held the store for too long */
#define ZOR_STORE_E_NO_MEMORY UINT32_C(0x10006)
#define ZOR_STORE_E_IO UINT32_C(0x10007) /* the store cannot be opened, read or written, or is damaged */

/* Reads a parameter of an instance (0 where there is only one): copies at most size bytes of the stored value. A
   shorter stored value leaves the rest of the buffer untouched; on failure all of it is. */
ZOR_API uint32_t ZOR_DBGetPara(uint32_t parameter, uint32_t instance, void *value, uint32_t size);

/* Stores a parameter of an instance, size bytes. */
ZOR_API uint32_t ZOR_DBSetPara(uint32_t parameter, uint32_t instance, const void *value, uint32_t size);

/* The number of the user on whose behalf this process acts: 0 unless it was told otherwise. */
ZOR_API uint32_t ZOR_DBGetCurrUser(void);

/* Reads an item of application data: copies at most size bytes. A shorter item leaves the rest untouched. */
ZOR_API uint32_t ZOR_ReadAppData(uint32_t item, void *data, uint32_t size);

/* The length of an item of application data. *length is 0 on failure. */
ZOR_API uint32_t ZOR_GetAppDataLen(uint32_t item, uint32_t *length);

/* Stores an item of application data, size bytes. */
ZOR_API uint32_t ZOR_WriteAppDataFunc(uint32_t item, const void *data, uint32_t size);

ZOR_END_DECLS

#endif
