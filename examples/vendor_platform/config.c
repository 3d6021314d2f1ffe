/* zor/platform/config.h, config_file.h and config_list.h: each call reads the store, and writes what it has changed. */
#include <stdatomic.h>
#include <stdlib.h>
#include <string.h>
#include <zor/platform/config.h>
#include <zor/platform/config_file.h>
#include <zor/platform/config_list.h>
#include <zor/platform/list.h>

#include "store.h"

static atomic_uint currentUser;

static uint32_t GetBytes(uint32_t kind, uint32_t id, uint32_t instance, void *out, uint32_t size) {
  if (out == NULL || size == 0) return ZOR_STORE_E_ARGUMENT;
  Session session;
  const uint32_t status = example_begin(&session, 0);
  if (status != ZOR_STORE_OK) return status;
  const Entry *entry = example_store_get(&session.store, kind, id, instance, "");
  if (entry != NULL) memcpy(out, entry->value, entry->size < size ? entry->size : size);
  return example_end(&session, entry == NULL ? ZOR_STORE_E_NOT_FOUND : ZOR_STORE_OK);
}

static uint32_t SetBytes(uint32_t kind, uint32_t id, uint32_t instance, const void *value, uint32_t size) {
  if (value == NULL || size == 0) return ZOR_STORE_E_ARGUMENT;
  Session session;
  const uint32_t status = example_begin(&session, 1);
  if (status != ZOR_STORE_OK) return status;
  const Entry entry = {kind, id, instance, size, "", (char *)value};
  return example_end(&session, example_store_put(&session.store, &entry));
}

uint32_t ZOR_DBGetPara(uint32_t parameter, uint32_t instance, void *value, uint32_t size) {
  return GetBytes(ZOR_STORE_KIND_PARAMETER, parameter, instance, value, size);
}

uint32_t ZOR_DBSetPara(uint32_t parameter, uint32_t instance, const void *value, uint32_t size) {
  return SetBytes(ZOR_STORE_KIND_PARAMETER, parameter, instance, value, size);
}

uint32_t ZOR_ReadAppData(uint32_t item, void *data, uint32_t size) {
  return GetBytes(ZOR_STORE_KIND_APPDATA, item, 0, data, size);
}

uint32_t ZOR_WriteAppDataFunc(uint32_t item, const void *data, uint32_t size) {
  return SetBytes(ZOR_STORE_KIND_APPDATA, item, 0, data, size);
}

uint32_t ZOR_GetAppDataLen(uint32_t item, uint32_t *length) {
  if (length == NULL) return ZOR_STORE_E_ARGUMENT;
  *length = 0;
  Session session;
  const uint32_t status = example_begin(&session, 0);
  if (status != ZOR_STORE_OK) return status;
  const Entry *entry = example_store_get(&session.store, ZOR_STORE_KIND_APPDATA, item, 0, "");
  if (entry != NULL) *length = entry->size;
  return example_end(&session, entry == NULL ? ZOR_STORE_E_NOT_FOUND : ZOR_STORE_OK);
}

uint32_t ZOR_DBGetCurrUser(void) {
  return currentUser;
}

void ZOR_DBSetCurrUser(uint32_t user) {
  currentUser = user;
}

static void FreeValue(void *item) {
  ZOR_CFM_VALUE *value = item;
  free(value->name);
  free(value->value);
}

static uint32_t HasName(const void *item, const void *name) {
  return strcmp(((const ZOR_CFM_VALUE *)item)->name, name) == 0;
}

void ZOR_CFM_FreeObj(ZOR_CFM_OBJ *object) {
  if (object == NULL) return;
  ZOR_UTIL_ListDeleteAll(&object->values, FreeValue);
  free(object);
}

uint32_t ZOR_CFM_SetObjStrValue(ZOR_CFM_OBJ **object, const char *name, const char *value) {
  if (object == NULL || name == NULL || *name == '\0' || value == NULL) return ZOR_STORE_E_ARGUMENT;
  ZOR_CFM_OBJ *target = *object != NULL ? *object : calloc(1, sizeof *target);
  ZOR_CFM_VALUE *known = target == NULL ? NULL : ZOR_UTIL_ListFindItem(&target->values, HasName, name);
  ZOR_CFM_VALUE *added = known != NULL ? NULL : calloc(1, sizeof *added);
  char *nameCopy = known != NULL ? NULL : strdup(name);
  char *valueCopy = strdup(value);
  if (target == NULL || valueCopy == NULL || (known == NULL && (added == NULL || nameCopy == NULL))) {
    if (*object == NULL) free(target);
    free(added);
    free(nameCopy);
    free(valueCopy);
    return ZOR_STORE_E_NO_MEMORY;
  }
  if (known != NULL) {
    free(known->value);
    known->value = valueCopy;
  } else {
    added->name = nameCopy;
    added->value = valueCopy;
    ZOR_UTIL_ListAppend(&target->values, added);
  }
  *object = target;
  return ZOR_STORE_OK;
}

/* The first entry of an instance, and how many it has: 0 when there is no such instance. */
static size_t FindObject(const Store *store, uint32_t objectClass, uint32_t instance, size_t *count) {
  const size_t first = example_store_find(store, ZOR_STORE_KIND_OBJECT, objectClass, instance, "");
  for (*count = 0; first + *count < store->count; ++*count) {
    const Entry *entry = &store->entries[first + *count];
    if (entry->kind != ZOR_STORE_KIND_OBJECT || entry->id != objectClass || entry->instance != instance) break;
  }
  return first;
}

static uint32_t PutObject(Store *store, uint32_t objectClass, uint32_t instance, const ZOR_CFM_VALUE *values) {
  Entry entry = {ZOR_STORE_KIND_OBJECT, objectClass, instance, 0, "", ""};
  uint32_t status = example_store_put(store, &entry);
  for (; values != NULL && status == ZOR_STORE_OK; values = values->next) {
    entry.name = values->name;
    entry.value = values->value;
    entry.size = (uint32_t)strlen(values->value);
    status = example_store_put(store, &entry);
  }
  return status;
}

uint32_t ZOR_DBGetObj(uint32_t objectClass, uint32_t instance, ZOR_CFM_OBJ **object) {
  if (object == NULL) return ZOR_STORE_E_ARGUMENT;
  *object = NULL;
  Session session;
  uint32_t status = example_begin(&session, 0);
  if (status != ZOR_STORE_OK) return status;
  size_t count;
  const size_t first = FindObject(&session.store, objectClass, instance, &count);
  ZOR_CFM_OBJ *read = calloc(1, sizeof *read);
  if (count == 0) status = ZOR_STORE_E_NOT_FOUND;
  if (read == NULL) status = ZOR_STORE_E_NO_MEMORY;
  for (size_t i = first + 1; i < first + count && status == ZOR_STORE_OK; ++i) {
    status = ZOR_CFM_SetObjStrValue(&read, session.store.entries[i].name, session.store.entries[i].value);
  }
  status = example_end(&session, status);
  if (status != ZOR_STORE_OK) {
    ZOR_CFM_FreeObj(read);
    return status;
  }
  read->objectClass = objectClass;
  read->instance = instance;
  *object = read;
  return ZOR_STORE_OK;
}

uint32_t ZOR_DBSetObj(const ZOR_CFM_OBJ *object) {
  if (object == NULL) return ZOR_STORE_E_ARGUMENT;
  Session session;
  const uint32_t status = example_begin(&session, 1);
  if (status != ZOR_STORE_OK) return status;
  size_t count;
  FindObject(&session.store, object->objectClass, object->instance, &count);
  return example_end(&session, count == 0
                                   ? ZOR_STORE_E_NOT_FOUND
                                   : PutObject(&session.store, object->objectClass, object->instance, object->values));
}

uint32_t ZOR_DBAddObj(uint32_t objectClass, const ZOR_CFM_OBJ *object, uint32_t *instance) {
  if (instance == NULL) return ZOR_STORE_E_ARGUMENT;
  Session session;
  uint32_t status = example_begin(&session, 1);
  if (status != ZOR_STORE_OK) return status;
  uint32_t number = 1;
  while (example_store_get(&session.store, ZOR_STORE_KIND_OBJECT, objectClass, number, "") != NULL) ++number;
  status = PutObject(&session.store, objectClass, number, object == NULL ? NULL : object->values);
  status = example_end(&session, status);
  if (status == ZOR_STORE_OK) *instance = number;
  return status;
}

uint32_t ZOR_DBDelObj(uint32_t objectClass, uint32_t instance) {
  Session session;
  const uint32_t status = example_begin(&session, 1);
  if (status != ZOR_STORE_OK) return status;
  size_t count;
  const size_t first = FindObject(&session.store, objectClass, instance, &count);
  example_store_erase(&session.store, first, count);
  return example_end(&session, count == 0 ? ZOR_STORE_E_NOT_FOUND : ZOR_STORE_OK);
}

uint32_t ZOR_DBGetNumOfObjs(uint32_t objectClass, uint32_t *count) {
  if (count == NULL) return ZOR_STORE_E_ARGUMENT;
  *count = 0;
  Session session;
  const uint32_t status = example_begin(&session, 0);
  if (status != ZOR_STORE_OK) return status;
  for (size_t i = 0; i < session.store.count; ++i) {
    const Entry *entry = &session.store.entries[i];
    *count += entry->kind == ZOR_STORE_KIND_OBJECT && entry->id == objectClass && *entry->name == '\0';
  }
  return example_end(&session, ZOR_STORE_OK);
}

/* An instance shows its values, or itself when it has none. */
uint32_t ZOR_STORE_List(ZOR_STORE_VISIT visit, void *context) {
  if (visit == NULL) return ZOR_STORE_E_ARGUMENT;
  Session session;
  const uint32_t status = example_begin(&session, 0);
  if (status != ZOR_STORE_OK) return status;
  for (size_t i = 0; i < session.store.count; ++i) {
    const Entry *entry = &session.store.entries[i];
    size_t count = 0;
    if (entry->kind == ZOR_STORE_KIND_OBJECT && *entry->name == '\0') {
      FindObject(&session.store, entry->id, entry->instance, &count);
    }
    if (count > 1) continue;
    const char *name = *entry->name == '\0' ? NULL : entry->name;
    const ZOR_STORE_ENTRY shown = {entry->kind, entry->id, entry->instance, entry->size, name};
    visit(&shown, context);
  }
  return example_end(&session, ZOR_STORE_OK);
}

static int IsPartOf(const Entry *entry, uint32_t parts) {
  return (parts & (entry->kind == ZOR_STORE_KIND_APPDATA ? ZOR_STORE_APPDATA : ZOR_STORE_CONFIGURATION)) != 0;
}

static void EraseParts(Store *store, uint32_t parts) {
  for (size_t i = store->count; i > 0; --i) {
    if (IsPartOf(&store->entries[i - 1], parts)) example_store_erase(store, i - 1, 1);
  }
}

static int AreParts(uint32_t parts) {
  return parts != 0 && (parts & ~ZOR_STORE_ALL) == 0;
}

uint32_t ZOR_STORE_CheckFile(const char *path) {
  if (path == NULL) return ZOR_STORE_E_ARGUMENT;
  Store store;
  const uint32_t status = example_store_read(path, &store);
  example_store_release(&store);
  return status;
}

uint32_t ZOR_STORE_WriteFile(const char *path, uint32_t parts) {
  if (path == NULL || !AreParts(parts)) return ZOR_STORE_E_ARGUMENT;
  const uint32_t existing = ZOR_STORE_CheckFile(path);
  if (existing != ZOR_STORE_OK && existing != ZOR_STORE_E_NOT_FOUND) return existing;
  Session session;
  const uint32_t status = example_begin(&session, 0);
  if (status != ZOR_STORE_OK) return status;
  EraseParts(&session.store, ZOR_STORE_ALL & ~parts);
  return example_end(&session, example_store_write(path, &session.store, 0600));
}

uint32_t ZOR_STORE_ReadFile(const char *path, uint32_t parts) {
  if (path == NULL || !AreParts(parts)) return ZOR_STORE_E_ARGUMENT;
  Store file;
  uint32_t status = example_store_read(path, &file);
  if (status != ZOR_STORE_OK) return status;
  Session session;
  status = example_begin(&session, 1);
  if (status == ZOR_STORE_OK) {
    EraseParts(&session.store, parts);
    for (size_t i = 0; i < file.count && status == ZOR_STORE_OK; ++i) {
      if (IsPartOf(&file.entries[i], parts)) status = example_store_put(&session.store, &file.entries[i]);
    }
    status = example_end(&session, status);
  }
  example_store_release(&file);
  return status;
}

uint32_t ZOR_STORE_Clear(uint32_t parts) {
  if (!AreParts(parts)) return ZOR_STORE_E_ARGUMENT;
  Session session;
  const uint32_t status = example_begin(&session, 1);
  if (status != ZOR_STORE_OK) return status;
  EraseParts(&session.store, parts);
  return example_end(&session, ZOR_STORE_OK);
}
