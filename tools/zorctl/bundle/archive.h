// Packs a bundle. The pieces are put into a directory beside the archive, which tar then packs: whatever happens, the
// archive appears complete or not at all, and nothing else stays.
#ifndef ZORCTL_BUNDLE_ARCHIVE_H
#define ZORCTL_BUNDLE_ARCHIVE_H

#include <string>
#include <string_view>

#include "zorctl/deadline.h"

namespace zor::ctl {

class Archive {
 public:
  // Failure (usage) unless the path ends in .tar.gz, .tgz or .tar.zst; Failure when nothing can be written there.
  explicit Archive(std::string path);
  Archive(const Archive &) = delete;
  Archive &operator=(const Archive &) = delete;
  // Removes what is not finished.
  ~Archive();

  // The path of a file that anything may be written to.
  std::string scratch() const { return work_ + "/scratch"; }

  // Failure when it cannot be written.
  void Add(const std::string &name, std::string_view bytes);
  // Packs all, and puts the archive in its place.
  void Finish(const Deadline &deadline);

 private:
  [[noreturn]] void Fail(const std::string &why) const;

  std::string path_;
  const char *compression_;
  std::string work_;     // the directory for both
  std::string content_;  // the directory that is packed
};

}  // namespace zor::ctl

#endif
