// The body file of the frame at hand, as its sender left it.
//
// What is needed of it is asked of one descriptor, which is opened when the content or the mode matters and checked
// itself. So whatever takes the file's place meanwhile, nothing is used that has not been checked.
#ifndef MSGSVR_SENT_FILE_H
#define MSGSVR_SENT_FILE_H

#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "common/unique_fd.h"

namespace zor::msgsvr {

// Takes no memory, so that files can be removed when there is none.
class FilePath {
 public:
  FilePath() = default;
  FilePath(std::string_view directory, std::string_view name);
  const char *c_str() const { return text_.data(); }

 private:
  std::array<char, 4096> text_{};  // the longest that the system takes
};

class SentFile {
 public:
  // Looks at the file without opening it. Returns what is wrong with it as a body file of that user, as the rest of a
  // sentence about its message's body; null if nothing is.
  const char *Look(const FilePath &path, uid_t owner);

  uid_t owner() const { return owner_; }
  size_t size() const { return static_cast<size_t>(status_.st_size); }
  // Whether others than its owner may change it.
  bool isWritableByOthers() const { return (status_.st_mode & (S_IWGRP | S_IWOTH)) != 0; }

  // All of these fail with errno.
  // Makes it its owner's alone.
  bool MakePrivate();
  // Appends its content, as long as it was when it was opened, to another file.
  bool CopyTo(int file);
  // At most that many bytes from its start.
  std::optional<std::vector<std::byte>> Read(size_t maxBytes);

  // Removes it, unless another file has its name now.
  void Remove() const;
  // An open file would take up room after it has been removed.
  void Close() { file_.reset(); }

 private:
  bool Open();
  const char *ProblemOf(const struct stat &status) const;

  FilePath path_;
  uid_t owner_ = static_cast<uid_t>(-1);
  struct stat status_ {};
  UniqueFd file_;
};

}  // namespace zor::msgsvr

#endif
