// Reads the captures that pcapng.h describes, packet by packet. The file may come from anywhere: other blocks are
// skipped, and a block that is malformed or incomplete ends the reading.
#ifndef ZORCTL_CAPTURE_FILE_H
#define ZORCTL_CAPTURE_FILE_H

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zor::ctl {

class CaptureFile {
 public:
  // The stream must outlive it. Failure when it does not begin like a capture of this byte order.
  explicit CaptureFile(std::istream &input);

  // The data of the next packet of the bus, a ZOR_CONTROL_COPY and a frame, valid until the next call; nothing at the
  // end.
  std::optional<std::string_view> Next();
  // Why the reading ended before the end of the file; empty if it did not.
  const std::string &problem() const { return problem_; }

 private:
  // Reads a block into body_; false at the end.
  bool ReadBlock(uint32_t &type);
  bool IsSection() const;
  std::optional<std::string_view> PacketData() const;

  std::istream &input_;
  std::string body_;                 // of the block, without its type and lengths
  std::vector<uint16_t> linkTypes_;  // of the section's interfaces
  std::string problem_;
};

}  // namespace zor::ctl

#endif
