#include "sqlite.h"

#include <dlfcn.h>

#include <cstdio>
#include <mutex>

namespace zor::platform {

Sqlite sqlite;

namespace {

constexpr char kLibrary[] = "libsqlite3.so.0";

std::mutex loadMutex;
bool isLoaded = false;

template <typename Function>
bool Find(void *library, const char *name, Function *&function) {
  function = reinterpret_cast<Function *>(::dlsym(library, name));
  return function != nullptr;
}

bool FindAll(void *library) {
  return Find(library, "sqlite3_open_v2", sqlite.open) && Find(library, "sqlite3_close", sqlite.close) &&
         Find(library, "sqlite3_busy_timeout", sqlite.setBusyTimeout) &&
         Find(library, "sqlite3_exec", sqlite.execute) &&
         Find(library, "sqlite3_get_autocommit", sqlite.getAutocommit) &&
         Find(library, "sqlite3_errcode", sqlite.errorOf) && Find(library, "sqlite3_errmsg", sqlite.messageOf) &&
         Find(library, "sqlite3_errstr", sqlite.textOf) && Find(library, "sqlite3_prepare_v2", sqlite.prepare) &&
         Find(library, "sqlite3_finalize", sqlite.finalize) && Find(library, "sqlite3_step", sqlite.step) &&
         Find(library, "sqlite3_reset", sqlite.reset) && Find(library, "sqlite3_bind_int64", sqlite.bindNumber) &&
         Find(library, "sqlite3_bind_text", sqlite.bindText) &&
         Find(library, "sqlite3_bind_blob64", sqlite.bindBytes) &&
         Find(library, "sqlite3_column_int64", sqlite.numberIn) &&
         Find(library, "sqlite3_column_text", sqlite.textIn) && Find(library, "sqlite3_column_blob", sqlite.bytesIn) &&
         Find(library, "sqlite3_column_bytes", sqlite.sizeOf);
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
