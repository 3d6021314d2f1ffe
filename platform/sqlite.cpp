#include "sqlite.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <mutex>
#include <string_view>

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
         FindLoaded(library, "sqlite3_column_bytes", sqlite.sizeOf) &&
         FindLoaded(library, "sqlite3_vfs_find", sqlite.findFileSystem) &&
         FindLoaded(library, "sqlite3_vfs_register", sqlite.registerFileSystem);
}

int Access(sqlite3_vfs *system, const char *path, int flags, int *result) {
  *result = 0;
  if (std::string_view(path).ends_with("-journal")) return SQLITE_OK;
  auto *const original = static_cast<sqlite3_vfs *>(system->pAppData);
  return original->xAccess(original, path, flags, result);
}

int Open(sqlite3_vfs *system, const char *path, sqlite3_file *file, int flags, int *flagsOut) {
  auto *const original = static_cast<sqlite3_vfs *>(system->pAppData);
  return original->xOpen(original, path, file, flags, flagsOut);
}

bool MakeFileSystem() {
  static sqlite3_vfs ours = {};
  if (sqlite.findFileSystem(kFileSystem) != nullptr) return true;
  sqlite3_vfs *const original = sqlite.findFileSystem(nullptr);
  if (original == nullptr) return false;
  ours = *original;
  ours.pNext = nullptr;
  ours.zName = kFileSystem;
  ours.pAppData = original;
  ours.xOpen = Open;
  ours.xAccess = Access;
  return sqlite.registerFileSystem(&ours, 0) == SQLITE_OK;
}

}  // namespace

SqliteUri::SqliteUri(const char *path, const char *query) {
  char *end = stpcpy(text_, *path == '/' ? "file://" : "file:");
  for (const char *from = path; *from != '\0' && from - path < PATH_MAX; ++from) {
    const bool isPlain = std::strchr("%?#", *from) == nullptr;
    end += std::sprintf(end, isPlain ? "%c" : "%%%02X", static_cast<unsigned char>(*from));
  }
  std::snprintf(end, static_cast<size_t>(text_ + sizeof text_ - end), "%s", query);
}

bool LoadSqlite() {
  const std::lock_guard guard(loadMutex);
  if (isLoaded) return true;
  void *const library = ::dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
  isLoaded = library != nullptr && FindAll(library) && MakeFileSystem();
  if (isLoaded) return true;
  const char *const problem = ::dlerror();
  std::fprintf(stderr, "configuration store: %s\n", problem != nullptr ? problem : "SQLite has no file system");
  if (library != nullptr) ::dlclose(library);
  return false;
}

}  // namespace zor::platform
