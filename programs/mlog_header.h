// The header of the developers' log, the circular file that mlogserver writes.
#ifndef ZOR_PROGRAMS_MLOG_HEADER_H
#define ZOR_PROGRAMS_MLOG_HEADER_H

#include <cstddef>
#include <optional>
#include <string_view>

namespace zor {

struct MlogHeader {
  long overturn = 0;  // how often writing has begun at the front again
  size_t offset = 0;  // behind the newest line; may be anything from the header's end on
};

// Reads the beginning of a file. No value if the bytes are no such header.
std::optional<MlogHeader> ReadMlogHeader(std::string_view bytes);

}  // namespace zor

#endif
