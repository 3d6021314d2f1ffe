// A regular file, opened once: what is checked is what is read, whatever becomes of its path.
#ifndef CMS_OPEN_FILE_H
#define CMS_OPEN_FILE_H

#include <sys/stat.h>

#include <cstddef>
#include <span>
#include <string>

#include "cms/secret.h"
#include "common/unique_fd.h"

namespace zor::cms {

class OpenFile {
 public:
  // A real path. Never waits, whatever is there.
  explicit OpenFile(const std::string &path);

  // If false, errno says why; EINVAL for what is not a regular file.
  bool valid() const { return file_.valid(); }
  const struct stat &status() const { return status_; }
  // As many bytes as there is room for. False if there are fewer.
  bool ReadStart(std::span<std::byte> room) const;
  // The content from its start. False if it cannot be read, or is longer than `most`.
  bool ReadAll(size_t most, Secret *content) const;

 private:
  ssize_t Read(std::span<std::byte> room) const;

  UniqueFd file_;
  struct stat status_ = {};
};

}  // namespace zor::cms

#endif
