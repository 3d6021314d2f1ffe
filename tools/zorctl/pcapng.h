// Captures of the bus as pcapng, the format that packet analysers read: a section header, one interface, and a packet
// for each copy. The data of a packet is the copy as the server sent it, a ZOR_CONTROL_COPY and the frame, under the
// link type for private use; tools/wireshark/zorbus.lua decodes it.
//
// Only whole blocks are written. When the disk is full the file ends with the last block that fitted, so that what was
// captured up to then can be read.
#ifndef ZORCTL_PCAPNG_H
#define ZORCTL_PCAPNG_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "common/unique_fd.h"

namespace zor::ctl {

inline constexpr uint16_t kPcapngLinkType = 147;  // LINKTYPE_USER0

namespace pcapng {

enum BlockType : uint32_t { kSectionHeader = 0x0A0D0D0A, kInterface = 1, kEnhancedPacket = 6 };

inline constexpr uint32_t kByteOrderMagic = 0x1A2B3C4D;

}  // namespace pcapng

class PcapngFile {
 public:
  // Creates the file, or empties it. The interface name distinguishes captures. This and the following return false
  // with errno set; after that nothing can be written.
  bool Open(const std::string &path, std::string_view interfaceName);
  // Writes to a descriptor that the caller owns.
  bool Attach(int fd, std::string_view interfaceName);
  // Adds the body of a ZOR_MSG_CONTROL_COPY. It reaches the file with the next Flush, or when enough data is pending.
  bool Write(std::span<const std::byte> copy);
  bool Flush();

  // Packets that are complete in the file.
  uint64_t packets() const { return packets_; }
  uint64_t bytes() const { return bytes_; }

 private:
  size_t Account(size_t written);

  int fd_ = -1;
  UniqueFd file_;                  // what fd_ is, if Open made it
  std::vector<std::byte> blocks_;  // whole ones, not yet in the file
  uint64_t packets_ = 0;
  uint64_t bytes_ = 0;
};

}  // namespace zor::ctl

#endif
