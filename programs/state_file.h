// The state of a server as records in memory that has a descriptor, which stays open over exec: a head that names the
// server and the version of its format, records of tagged fields, and an end mark, without which the state was cut.
#ifndef PROGRAMS_STATE_FILE_H
#define PROGRAMS_STATE_FILE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/unique_fd.h"
#include "programs/fields.h"

namespace zor::daemon {

class StateWriter {
 public:
  // The name has at most 15 characters.
  StateWriter(std::string_view server, uint32_t version);

  // Tags are above 0. A failure shows in Finish.
  template <typename Record>
  void Add(uint16_t tag, const Record &record) {
    buffer_.clear();
    FieldWriter writer(buffer_);
    writer(tag, record);
    Write(writer.valid());
  }
  // The descriptor of the whole state, close-on-exec and not sealed; invalid, with errno, if anything failed.
  UniqueFd Finish();

 private:
  void Write(bool complete);
  void Fail(int error);

  UniqueFd file_;
  int error_ = 0;
  std::vector<std::byte> buffer_;  // of the record at hand
};

class StateReader {
 public:
  // Reads the state of that server, which must be of one of the versions up to `newestVersion`. Check valid() first.
  StateReader(std::span<const std::byte> file, std::string_view server, uint32_t newestVersion);

  bool valid() const { return problem_.empty(); }
  // Why it is not valid.
  const std::string &problem() const { return problem_; }
  uint32_t version() const { return version_; }
  // The records in the order in which they were added. They are part of the file.
  const std::vector<Field> &records() const { return records_; }

 private:
  void Parse(std::span<const std::byte> file, std::string_view server, uint32_t newestVersion);
  bool ReadRecords(std::span<const std::byte> bytes);

  uint32_t version_ = 0;
  std::string problem_;
  std::vector<Field> records_;
};

}  // namespace zor::daemon

#endif
