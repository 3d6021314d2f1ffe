// Files that are read whole and replaced whole.
#ifndef APP_KIVAAPI_LIST_FILE_H
#define APP_KIVAAPI_LIST_FILE_H

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <span>

#include "base/alloc.h"
#include "base/fixed_path.h"
#include "common/replacement.h"

namespace zor {

// The bytes of a file at a fixed path.
class FileBytes {
 public:
  // The status of the platform's reader. Must be called once at most.
  std::uint32_t Read(const char *fixedPath) noexcept;
  std::span<char> bytes() const noexcept { return {block_.get(), length_}; }

 private:
  MallocPtr<char> block_;
  std::uint32_t length_ = 0;
};

// A new file beside a fixed path, which takes the place of the old one once it is complete. Until then, and for good
// when it is not committed, the old one stays.
class ReplacementFile {
 public:
  ReplacementFile(const char *fixedPath, mode_t mode) noexcept;
  ReplacementFile(const ReplacementFile &) = delete;
  ReplacementFile &operator=(const ReplacementFile &) = delete;
  ~ReplacementFile();

  // Null when the file could not be made.
  std::FILE *stream() const noexcept { return stream_; }
  // Where the new file is until it is committed.
  const char *path() const noexcept { return replacement_.building(); }
  // False, with the old file untouched, when not everything could be written.
  bool Commit() noexcept;

 private:
  bool Close() noexcept;

  FixedPath target_;
  Replacement replacement_;
  std::FILE *stream_ = nullptr;
};

}  // namespace zor

#endif
