// Captures of the bus as pcapng, the format that packet analysers read: a section header, one interface, and a packet
// for each copy. The data of a packet is the copy as the server sent it, a ZOR_CONTROL_COPY and the frame, under the
// link type that is left to private use; tools/wireshark/zorbus.lua takes it apart.
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

namespace zor::ctl {

inline constexpr uint16_t kPcapngLinkType = 147;  // LINKTYPE_USER0

class PcapngFile {
 public:
  PcapngFile() = default;
  PcapngFile(const PcapngFile &) = delete;
  PcapngFile &operator=(const PcapngFile &) = delete;
  ~PcapngFile();

  // Creates the file, or empties it. The interface name tells captures apart. This and the following return false with
  // errno set; nothing more can be written then.
  bool Open(const std::string &path, std::string_view interfaceName);
  // Writes to a descriptor, which stays the caller's.
  bool Attach(int fd, std::string_view interfaceName);
  // Adds the body of a ZOR_MSG_CONTROL_COPY. It reaches the file with the next Flush, or when enough has come together.
  bool Write(std::span<const std::byte> copy);
  bool Flush();

  // Packets that are in the file for good.
  uint64_t packets() const { return packets_; }
  uint64_t bytes() const { return bytes_; }

 private:
  size_t Account(size_t written);

  int fd_ = -1;
  bool ownsFd_ = false;
  std::vector<std::byte> blocks_;  // whole ones, not yet in the file
  uint64_t packets_ = 0;
  uint64_t bytes_ = 0;
};

}  // namespace zor::ctl

#endif
