#include "zorbridge/written_bytes.h"

#include <sqlite3.h>

#include <array>

namespace zor::bridge {
namespace {

constexpr char kName[] = "zor-counting";

// The methods of one kind of file, with our own for writing; each open file points to its kind's. The default file
// system has a few kinds. It comes first, so that a file's methods lead to it.
struct Kind {
  sqlite3_io_methods counted;
  const sqlite3_io_methods *original;
};

std::array<Kind, 8> g_kinds{};
std::uint64_t g_written = 0;
sqlite3_vfs g_system{};

int Write(sqlite3_file *file, const void *bytes, int size, sqlite3_int64 offset) {
  const auto *kind = reinterpret_cast<const Kind *>(file->pMethods);
  g_written += static_cast<std::uint64_t>(size);
  return kind->original->xWrite(file, bytes, size, offset);
}

const sqlite3_io_methods *Counted(const sqlite3_io_methods *original) {
  for (Kind &kind : g_kinds) {
    if (kind.original == original) return &kind.counted;
    if (kind.original != nullptr) continue;
    kind = {*original, original};
    kind.counted.xWrite = Write;
    return &kind.counted;
  }
  return original;
}

int Open(sqlite3_vfs *system, const char *path, sqlite3_file *file, int flags, int *flagsOut) {
  auto *original = static_cast<sqlite3_vfs *>(system->pAppData);
  const int result = original->xOpen(original, path, file, flags, flagsOut);
  if (result == SQLITE_OK && file->pMethods != nullptr) file->pMethods = Counted(file->pMethods);
  return result;
}

}  // namespace

const char *CountingFileSystem() {
  if (sqlite3_vfs_find(kName) != nullptr) return kName;
  sqlite3_vfs *original = sqlite3_vfs_find(nullptr);
  if (original == nullptr) return nullptr;
  g_system = *original;
  g_system.pNext = nullptr;
  g_system.zName = kName;
  g_system.pAppData = original;
  g_system.xOpen = Open;
  return sqlite3_vfs_register(&g_system, 0) == SQLITE_OK ? kName : nullptr;
}

std::uint64_t WrittenBytes() {
  return g_written;
}

}  // namespace zor::bridge
