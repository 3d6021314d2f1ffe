#include <zor/platform/config.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "store.h"

using zor::platform::Statement;
using zor::platform::UseStore;

namespace {

std::atomic<uint32_t> currentUser = 0;

bool IsBuffer(const void *bytes, uint32_t size) {
  return bytes != nullptr && size != 0;
}

// The value of a query that gives one row with one blob, as much of it as fits.
int CopyFound(Statement *query, void *out, uint32_t size) {
  const int result = query->Find();
  if (result == SQLITE_OK) std::memcpy(out, query->Bytes(0), std::min(query->Size(0), size));
  return result;
}

}  // namespace

uint32_t ZOR_DBGetPara(uint32_t parameter, uint32_t instance, void *value, uint32_t size) {
  if (!IsBuffer(value, size)) return ZOR_STORE_E_ARGUMENT;
  return UseStore([&](sqlite3 *db) {
    Statement query(db, "SELECT value FROM parameters WHERE id = ? AND instance = ?");
    return CopyFound(&query.Bind(parameter).Bind(instance), value, size);
  });
}

uint32_t ZOR_DBSetPara(uint32_t parameter, uint32_t instance, const void *value, uint32_t size) {
  if (!IsBuffer(value, size)) return ZOR_STORE_E_ARGUMENT;
  return UseStore([&](sqlite3 *db) {
    Statement insert(db, "INSERT OR REPLACE INTO parameters VALUES (?, ?, ?)");
    return insert.Bind(parameter).Bind(instance).Bind(value, size).Run();
  });
}

uint32_t ZOR_DBGetCurrUser(void) {
  return currentUser;
}

void ZOR_DBSetCurrUser(uint32_t user) {
  currentUser = user;
}

uint32_t ZOR_ReadAppData(uint32_t item, void *data, uint32_t size) {
  if (!IsBuffer(data, size)) return ZOR_STORE_E_ARGUMENT;
  return UseStore([&](sqlite3 *db) {
    Statement query(db, "SELECT value FROM app_data WHERE item = ?");
    return CopyFound(&query.Bind(item), data, size);
  });
}

uint32_t ZOR_GetAppDataLen(uint32_t item, uint32_t *length) {
  if (length == nullptr) return ZOR_STORE_E_ARGUMENT;
  *length = 0;
  return UseStore([&](sqlite3 *db) {
    Statement query(db, "SELECT length(value) FROM app_data WHERE item = ?");
    const int result = query.Bind(item).Find();
    if (result == SQLITE_OK) *length = query.Number(0);
    return result;
  });
}

uint32_t ZOR_WriteAppDataFunc(uint32_t item, const void *data, uint32_t size) {
  if (!IsBuffer(data, size)) return ZOR_STORE_E_ARGUMENT;
  return UseStore([&](sqlite3 *db) {
    Statement insert(db, "INSERT OR REPLACE INTO app_data VALUES (?, ?)");
    return insert.Bind(item).Bind(data, size).Run();
  });
}
