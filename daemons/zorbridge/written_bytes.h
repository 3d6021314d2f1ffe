// Counts the bytes that SQLite writes to files: the log of a transaction, and the pages that later go from there into
// the database.
#ifndef ZORBRIDGE_WRITTEN_BYTES_H
#define ZORBRIDGE_WRITTEN_BYTES_H

#include <cstdint>

namespace zor::bridge {

// The name of the file system under SQLite that counts, for sqlite3_open_v2; it passes all calls on to the default one.
// Null, which is the default one itself, without memory.
const char *CountingFileSystem();
// By all databases of this process that use it.
std::uint64_t WrittenBytes();

}  // namespace zor::bridge

#endif
