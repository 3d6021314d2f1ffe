/*
 * The configuration store: parameters, objects and application data, shared by all processes of the device.
 *
 * Conventions:
 * 1. A call is one transaction: when it returns 0, the store holds all of it and keeps it through a power cut; on any
 *    other status it holds nothing of it. Other processes see it at once. Several processes and threads may read and
 *    write at the same time, and a process may fork at any time.
 * 2. Statuses: 0, or one of ZOR_STORE_E_. ZOR_STORE_E_BUSY and ZOR_STORE_E_IO also leave a line on standard error.
 * 3. Sizes are in bytes. Output buffers belong to the caller unless a comment says otherwise.
 * 4. A null pointer, or a size of 0, is ZOR_STORE_E_ARGUMENT and touches nothing.
 */
#ifndef ZOR_PLATFORM_CONFIG_H
#define ZOR_PLATFORM_CONFIG_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

#define ZOR_STORE_OK UINT32_C(0)
#define ZOR_STORE_E_ARGUMENT UINT32_C(0x10001)  /* null, or a size of 0 where a value is needed */
#define ZOR_STORE_E_NOT_FOUND UINT32_C(0x10002) /* no such parameter, object, instance, item or file */
#define ZOR_STORE_E_BUSY UINT32_C(0x10005)      /* another process held the store for too long */
#define ZOR_STORE_E_NO_MEMORY UINT32_C(0x10006) /* also: larger than the store takes */
#define ZOR_STORE_E_IO UINT32_C(0x10007)        /* the store cannot be opened, read or written, is full or damaged */

/* The fixed path of the store. Used with ZOR_DBGetPara, ZOR_DBSetPara and ZOR_STORE_CheckFile. */
#define ZOR_STORE_PATH "/var/zor_config.db"

/* Reads a parameter of an instance (0 where there is only one): copies at most size bytes of the stored value. A
   shorter stored value leaves the rest of the buffer untouched; on failure all of it is. */
ZOR_API uint32_t ZOR_DBGetPara(uint32_t parameter, uint32_t instance, void *value, uint32_t size);

/* Stores a parameter of an instance, size bytes. */
ZOR_API uint32_t ZOR_DBSetPara(uint32_t parameter, uint32_t instance, const void *value, uint32_t size);

/* The number of the user on whose behalf this process acts: 0 unless set. */
ZOR_API uint32_t ZOR_DBGetCurrUser(void);

/* Sets the user on whose behalf this process acts. A child made by fork starts with its parent's user. */
ZOR_API void ZOR_DBSetCurrUser(uint32_t user);

/* Reads an item of application data: copies at most size bytes. A shorter item leaves the rest untouched. */
ZOR_API uint32_t ZOR_ReadAppData(uint32_t item, void *data, uint32_t size);

/* The length of an item of application data. *length is 0 on failure. */
ZOR_API uint32_t ZOR_GetAppDataLen(uint32_t item, uint32_t *length);

/* Stores an item of application data, size bytes. */
ZOR_API uint32_t ZOR_WriteAppDataFunc(uint32_t item, const void *data, uint32_t size);

/* One value of an object. It begins with its link, so the list functions walk the values. */
typedef struct ZOR_CFM_VALUE {
  struct ZOR_CFM_VALUE *next;
  char *name;
  char *value;
} ZOR_CFM_VALUE;

/* An instance of a class of objects with its values. All of it is on the heap. */
typedef struct ZOR_CFM_OBJ {
  uint32_t objectClass;
  uint32_t instance;
  ZOR_CFM_VALUE *values;
} ZOR_CFM_OBJ;

/* Sets a value of an object in memory; the object keeps copies. A null *object becomes a new, empty object first.
   Returns 0; ZOR_STORE_E_ARGUMENT, also for an empty name; ZOR_STORE_E_NO_MEMORY, with nothing changed. */
ZOR_API uint32_t ZOR_CFM_SetObjStrValue(ZOR_CFM_OBJ **object, const char *name, const char *value);

/* Releases an object with its values. Null is a no-op. */
ZOR_API void ZOR_CFM_FreeObj(ZOR_CFM_OBJ *object);

/* Reads an object into a new one, which the caller releases. *object is null on failure. */
ZOR_API uint32_t ZOR_DBGetObj(uint32_t objectClass, uint32_t instance, ZOR_CFM_OBJ **object);

/* Stores the values of the instance that the object names; stored values of other names stay. ZOR_STORE_E_NOT_FOUND
   when there is no such instance. */
ZOR_API uint32_t ZOR_DBSetObj(const ZOR_CFM_OBJ *object);

/* Adds an instance of a class, with the object's values (null: none) and the lowest number from 1 that is free, which
   goes to *instance. The object's own class and instance do not matter. */
ZOR_API uint32_t ZOR_DBAddObj(uint32_t objectClass, const ZOR_CFM_OBJ *object, uint32_t *instance);

/* Deletes an instance with its values. The other instances keep their numbers. */
ZOR_API uint32_t ZOR_DBDelObj(uint32_t objectClass, uint32_t instance);

/* How many instances a class has: 0 is no error. *count is 0 on failure. */
ZOR_API uint32_t ZOR_DBGetNumOfObjs(uint32_t objectClass, uint32_t *count);

ZOR_END_DECLS

#endif
