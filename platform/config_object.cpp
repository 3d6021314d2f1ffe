#include <zor/platform/config.h>
#include <zor/platform/list.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "common/malloc_ptr.h"
#include "store.h"

using zor::platform::kNotFound;
using zor::platform::Statement;
using zor::platform::Transaction;
using zor::platform::UseStore;

namespace {

struct ObjectDeleter {
  void operator()(ZOR_CFM_OBJ *object) const { ZOR_CFM_FreeObj(object); }
};
using Object = std::unique_ptr<ZOR_CFM_OBJ, ObjectDeleter>;

void ReleaseValue(void *item) {
  auto *value = static_cast<ZOR_CFM_VALUE *>(item);
  std::free(value->name);
  std::free(value->value);
}

uint32_t HasName(const void *item, const void *name) {
  return std::strcmp(static_cast<const ZOR_CFM_VALUE *>(item)->name, static_cast<const char *>(name)) == 0 ? 1 : 0;
}

Object NewObject(uint32_t objectClass, uint32_t instance) {
  Object object(static_cast<ZOR_CFM_OBJ *>(std::calloc(1, sizeof(ZOR_CFM_OBJ))));
  if (object != nullptr) *object = {objectClass, instance, nullptr};
  return object;
}

bool AppendValue(ZOR_CFM_OBJ *object, const char *name, const char *value) {
  zor::MallocPtr<ZOR_CFM_VALUE> item(static_cast<ZOR_CFM_VALUE *>(std::calloc(1, sizeof(ZOR_CFM_VALUE))));
  zor::MallocPtr<char> nameCopy(::strdup(name)), valueCopy(::strdup(value));
  if (item == nullptr || nameCopy == nullptr || valueCopy == nullptr) return false;
  *item = {nullptr, nameCopy.release(), valueCopy.release()};
  ZOR_UTIL_ListAppend(&object->values, item.release());
  return true;
}

bool SetValue(ZOR_CFM_OBJ *object, const char *name, const char *value) {
  auto *item = static_cast<ZOR_CFM_VALUE *>(ZOR_UTIL_ListFindItem(&object->values, HasName, name));
  if (item == nullptr) return AppendValue(object, name, value);
  char *copy = ::strdup(value);
  if (copy == nullptr) return false;
  std::free(item->value);
  item->value = copy;
  return true;
}

// An instance without values is one row without a name.
int ReadValues(sqlite3 *db, ZOR_CFM_OBJ *object) {
  Statement query(db,
                  "SELECT name, value FROM objects LEFT JOIN object_values USING (class, instance)"
                  " WHERE class = ? AND instance = ? ORDER BY name");
  int result = query.Bind(object->objectClass).Bind(object->instance).Find();
  for (; result == SQLITE_OK && query.Text(0) != nullptr; result = query.Find()) {
    if (query.Text(1) == nullptr || !AppendValue(object, query.Text(0), query.Text(1))) return SQLITE_NOMEM;
  }
  return result == kNotFound && object->values != nullptr ? SQLITE_OK : result;
}

int WriteValues(sqlite3 *db, uint32_t objectClass, uint32_t instance, const ZOR_CFM_VALUE *values) {
  Statement insert(db, "INSERT OR REPLACE INTO object_values VALUES (?, ?, ?, ?)");
  int result = SQLITE_OK;
  for (; values != nullptr && result == SQLITE_OK; values = values->next) {
    result = insert.Bind(objectClass).Bind(instance).Bind(values->name).Bind(values->value).Run();
    insert.Reset();
  }
  return result;
}

int FindInstance(sqlite3 *db, uint32_t objectClass, uint32_t instance) {
  Statement query(db, "SELECT 1 FROM objects WHERE class = ? AND instance = ?");
  return query.Bind(objectClass).Bind(instance).Find();
}

// The lowest free number is 1, or one above a number whose next is free.
int InsertInstance(sqlite3 *db, uint32_t objectClass, uint32_t *instance) {
  Statement query(db,
                  "SELECT min(n) FROM (SELECT 1 AS n UNION ALL SELECT instance + 1 FROM objects WHERE class = ?1)"
                  " WHERE NOT EXISTS (SELECT 1 FROM objects WHERE class = ?1 AND instance = n)");
  const int found = query.Bind(objectClass).Find();
  if (found != SQLITE_OK) return found;
  *instance = query.Number(0);
  Statement insert(db, "INSERT INTO objects VALUES (?, ?)");
  return insert.Bind(objectClass).Bind(*instance).Run();
}

int DeleteInstance(sqlite3 *db, uint32_t objectClass, uint32_t instance) {
  int result = FindInstance(db, objectClass, instance);
  for (const char *sql : {"DELETE FROM object_values WHERE class = ? AND instance = ?",
                          "DELETE FROM objects WHERE class = ? AND instance = ?"}) {
    Statement erase(db, sql);
    if (result == SQLITE_OK) result = erase.Bind(objectClass).Bind(instance).Run();
  }
  return result;
}

}  // namespace

uint32_t ZOR_CFM_SetObjStrValue(ZOR_CFM_OBJ **object, const char *name, const char *value) {
  if (object == nullptr || name == nullptr || *name == '\0' || value == nullptr) return ZOR_STORE_E_ARGUMENT;
  Object fresh = *object == nullptr ? NewObject(0, 0) : nullptr;
  ZOR_CFM_OBJ *target = fresh != nullptr ? fresh.get() : *object;
  if (target == nullptr || !SetValue(target, name, value)) return ZOR_STORE_E_NO_MEMORY;
  if (fresh != nullptr) *object = fresh.release();
  return ZOR_STORE_OK;
}

void ZOR_CFM_FreeObj(ZOR_CFM_OBJ *object) {
  if (object == nullptr) return;
  ZOR_UTIL_ListDeleteAll(&object->values, ReleaseValue);
  std::free(object);
}

uint32_t ZOR_DBGetObj(uint32_t objectClass, uint32_t instance, ZOR_CFM_OBJ **object) {
  if (object == nullptr) return ZOR_STORE_E_ARGUMENT;
  *object = nullptr;
  Object read;
  const uint32_t status = UseStore([&](sqlite3 *db) {
    read = NewObject(objectClass, instance);
    return read == nullptr ? SQLITE_NOMEM : ReadValues(db, read.get());
  });
  if (status == ZOR_STORE_OK) *object = read.release();
  return status;
}

uint32_t ZOR_DBSetObj(const ZOR_CFM_OBJ *object) {
  if (object == nullptr) return ZOR_STORE_E_ARGUMENT;
  return UseStore([&](sqlite3 *db) {
    Transaction transaction(db);
    int result = transaction.result();
    if (result == SQLITE_OK) result = FindInstance(db, object->objectClass, object->instance);
    if (result == SQLITE_OK) result = WriteValues(db, object->objectClass, object->instance, object->values);
    return transaction.End(result);
  });
}

uint32_t ZOR_DBAddObj(uint32_t objectClass, const ZOR_CFM_OBJ *object, uint32_t *instance) {
  if (instance == nullptr) return ZOR_STORE_E_ARGUMENT;
  uint32_t added = 0;
  const uint32_t status = UseStore([&](sqlite3 *db) {
    Transaction transaction(db);
    int result = transaction.result();
    if (result == SQLITE_OK) result = InsertInstance(db, objectClass, &added);
    if (result == SQLITE_OK && object != nullptr) result = WriteValues(db, objectClass, added, object->values);
    return transaction.End(result);
  });
  if (status == ZOR_STORE_OK) *instance = added;
  return status;
}

uint32_t ZOR_DBDelObj(uint32_t objectClass, uint32_t instance) {
  return UseStore([&](sqlite3 *db) {
    Transaction transaction(db);
    const int begun = transaction.result();
    return transaction.End(begun == SQLITE_OK ? DeleteInstance(db, objectClass, instance) : begun);
  });
}

uint32_t ZOR_DBGetNumOfObjs(uint32_t objectClass, uint32_t *count) {
  if (count == nullptr) return ZOR_STORE_E_ARGUMENT;
  *count = 0;
  return UseStore([&](sqlite3 *db) {
    Statement query(db, "SELECT count(*) FROM objects WHERE class = ?");
    const int result = query.Bind(objectClass).Find();
    if (result == SQLITE_OK) *count = query.Number(0);
    return result;
  });
}
