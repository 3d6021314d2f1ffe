#include "sqlite.h"

#include <dlfcn.h>

#include <cstdio>
#include <mutex>

#include "common/loaded_function.h"

namespace zor::platform {

Sqlite sqlite;

namespace {

constexpr char kLibrary[] = "libsqlite3.so.0";

std::mutex loadMutex;
bool isLoaded = false;

bool FindAll(void *library) {
  return FindLoaded(library, "sqlite3_open_v2", sqlite.open) && FindLoaded(library, "sqlite3_close", sqlite.close) &&
         FindLoaded(library, "sqlite3_busy_timeout", sqlite.setBusyTimeout) &&
         FindLoaded(library, "sqlite3_exec", sqlite.execute) &&
         FindLoaded(library, "sqlite3_get_autocommit", sqlite.getAutocommit) &&
         FindLoaded(library, "sqlite3_errcode", sqlite.errorOf) &&
         FindLoaded(library, "sqlite3_errmsg", sqlite.messageOf) &&
         FindLoaded(library, "sqlite3_errstr", sqlite.textOf) &&
         FindLoaded(library, "sqlite3_prepare_v2", sqlite.prepare) &&
         FindLoaded(library, "sqlite3_finalize", sqlite.finalize) && FindLoaded(library, "sqlite3_step", sqlite.step) &&
         FindLoaded(library, "sqlite3_reset", sqlite.reset) &&
         FindLoaded(library, "sqlite3_bind_int64", sqlite.bindNumber) &&
         FindLoaded(library, "sqlite3_bind_text", sqlite.bindText) &&
         FindLoaded(library, "sqlite3_bind_blob64", sqlite.bindBytes) &&
         FindLoaded(library, "sqlite3_column_int64", sqlite.numberIn) &&
         FindLoaded(library, "sqlite3_column_text", sqlite.textIn) &&
         FindLoaded(library, "sqlite3_column_blob", sqlite.bytesIn) &&
         FindLoaded(library, "sqlite3_column_bytes", sqlite.sizeOf);
}

}  // namespace

bool LoadSqlite() {
  const std::lock_guard guard(loadMutex);
  if (isLoaded) return true;
  void *const library = ::dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
  isLoaded = library != nullptr && FindAll(library);
  if (isLoaded) return true;
  std::fprintf(stderr, "configuration store: %s\n", ::dlerror());
  if (library != nullptr) ::dlclose(library);
  return false;
}

}  // namespace zor::platform
