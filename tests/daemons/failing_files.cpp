#include "failing_files.h"

#include <sqlite3.h>

#include <map>

namespace zor::test {
namespace {

// The system has several kinds of files, which differ in their locks only.
std::map<const sqlite3_io_methods *, sqlite3_io_methods> g_kinds;
sqlite3_io_methods g_original{};
sqlite3_vfs g_system{};

FileCall g_call;
int g_result;
long g_passing;
long g_failing;  // 0: no call fails
long g_failed;

bool Fails(FileCall call) {
  if (call != g_call || g_failing == 0 || g_passing-- > 0) return false;
  --g_failing;
  ++g_failed;
  return true;
}

int Read(sqlite3_file *file, void *bytes, int size, sqlite3_int64 offset) {
  return Fails(FileCall::kRead) ? g_result : g_original.xRead(file, bytes, size, offset);
}

int Write(sqlite3_file *file, const void *bytes, int size, sqlite3_int64 offset) {
  return Fails(FileCall::kWrite) ? g_result : g_original.xWrite(file, bytes, size, offset);
}

// No power is cut here, and waiting for the disk takes most of the time.
int Sync(sqlite3_file *, int) {
  return Fails(FileCall::kSync) ? g_result : SQLITE_OK;
}

int Open(sqlite3_vfs *system, const char *path, sqlite3_file *file, int flags, int *flagsOut) {
  file->pMethods = nullptr;
  if (Fails(FileCall::kOpen)) return g_result;
  auto *original = static_cast<sqlite3_vfs *>(system->pAppData);
  const int result = original->xOpen(original, path, file, flags, flagsOut);
  if (result != SQLITE_OK) return result;
  g_original = *file->pMethods;
  sqlite3_io_methods &kind = g_kinds[file->pMethods];
  kind = g_original;
  kind.xRead = Read;
  kind.xWrite = Write;
  kind.xSync = Sync;
  file->pMethods = &kind;
  return SQLITE_OK;
}

}  // namespace

void InstallFailingFiles() {
  sqlite3_vfs *original = sqlite3_vfs_find(nullptr);
  if (original == &g_system) return;
  g_system = *original;
  g_system.pNext = nullptr;
  g_system.zName = "failing";
  g_system.pAppData = original;
  g_system.xOpen = Open;
  sqlite3_vfs_register(&g_system, 1);
}

FailingFiles::FailingFiles(FileCall call, int result, long passing, long failing) {
  g_call = call;
  g_result = result;
  g_passing = passing;
  g_failing = failing;
  g_failed = 0;
}

FailingFiles::~FailingFiles() {
  g_failing = 0;
}

long FailingFiles::Failed() const {
  return g_failed;
}

}  // namespace zor::test
