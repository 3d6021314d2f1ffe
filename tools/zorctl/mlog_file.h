// The developers' log: the circular file that mlogserver writes, from its oldest line to its newest, and what is added
// to it. The file is written while it is read, and by programs whose lines may be anything.
#ifndef ZORCTL_MLOG_FILE_H
#define ZORCTL_MLOG_FILE_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "programs/mlog_header.h"

namespace zor::ctl {

// The contents of the file at one moment.
struct MlogImage {
  std::string bytes;  // header included
  MlogHeader header;  // its offset is within them

  // No value if the bytes are no such file.
  static std::optional<MlogImage> Of(std::string bytes);

  // All lines, the oldest first. One that is partly overwritten is left out.
  std::vector<std::string> Lines() const;
  // The lines that have been written since that moment. All, with `lost`, if there may be more than are left.
  struct News {
    std::vector<std::string> lines;
    bool lost = false;
  };
  News Since(const MlogImage &before) const;

 private:
  std::string_view all() const { return bytes; }
  // What the round before this one has left behind the newest line.
  std::string_view Remnant() const { return all().substr(header.offset); }
  std::string_view Front() const;
};

// The file as it is. Throws Failure when it cannot be read.
MlogImage ReadMlog(const std::string &path);

}  // namespace zor::ctl

#endif
