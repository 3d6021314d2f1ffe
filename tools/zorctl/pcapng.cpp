#include "zorctl/pcapng.h"

#include <fcntl.h>
#include <unistd.h>
#include <zor/control_wire.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace zor::ctl {
namespace {

using Bytes = std::vector<std::byte>;

using pcapng::BlockType;
using pcapng::kByteOrderMagic;
using pcapng::kEnhancedPacket;
using pcapng::kInterface;
using pcapng::kSectionHeader;

// Each type of block numbers its options separately.
constexpr uint16_t kSectionApplication = 4;
constexpr uint16_t kInterfaceName = 2;
constexpr uint16_t kInterfaceResolution = 9;
constexpr uint16_t kPacketDropCount = 4;

constexpr std::byte kMicroseconds{6};
constexpr size_t kFlushSize = size_t{256} * 1024;

template <typename T>
void Put(Bytes &bytes, T value) {
  const size_t offset = bytes.size();
  bytes.resize(offset + sizeof value);
  std::memcpy(bytes.data() + offset, &value, sizeof value);
}

uint32_t Get32(std::span<const std::byte> bytes, size_t offset) {
  uint32_t value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

void PutPadded(Bytes &bytes, std::span<const std::byte> data) {
  bytes.insert(bytes.end(), data.begin(), data.end());
  bytes.resize((bytes.size() + 3) / 4 * 4);
}

void PutOption(Bytes &bytes, uint16_t code, std::span<const std::byte> value) {
  Put(bytes, code);
  Put(bytes, static_cast<uint16_t>(value.size()));
  PutPadded(bytes, value);
}

void EndOptions(Bytes &bytes) {
  PutOption(bytes, 0, {});
}

std::span<const std::byte> AsBytes(std::string_view text) {
  return std::as_bytes(std::span(text));
}

// A block's total length is at both its ends, so that readers can walk backwards.
template <typename Fill>
void PutBlock(Bytes &bytes, BlockType type, Fill fill) {
  const size_t start = bytes.size();
  Put(bytes, static_cast<uint32_t>(type));
  Put(bytes, uint32_t{0});
  fill();
  const auto length = static_cast<uint32_t>(bytes.size() - start + sizeof(uint32_t));
  Put(bytes, length);
  std::memcpy(bytes.data() + start + sizeof(uint32_t), &length, sizeof length);
}

void PutSectionHeader(Bytes &bytes) {
  PutBlock(bytes, kSectionHeader, [&] {
    Put(bytes, kByteOrderMagic);
    Put(bytes, uint16_t{1});  // version 1.0
    Put(bytes, uint16_t{0});
    Put(bytes, ~uint64_t{0});  // the section's length is not known
    PutOption(bytes, kSectionApplication, AsBytes("zorctl"));
    EndOptions(bytes);
  });
}

void PutInterface(Bytes &bytes, std::string_view name) {
  PutBlock(bytes, kInterface, [&] {
    Put(bytes, kPcapngLinkType);
    Put(bytes, uint16_t{0});
    Put(bytes, uint32_t{0});  // this side does not truncate packets
    PutOption(bytes, kInterfaceName, AsBytes(name));
    PutOption(bytes, kInterfaceResolution, std::span(&kMicroseconds, 1));
    EndOptions(bytes);
  });
}

void PutPacket(Bytes &bytes, std::span<const std::byte> copy) {
  ZOR_CONTROL_COPY head{};
  std::memcpy(&head, copy.data(), std::min(copy.size(), sizeof head));
  const auto captured = static_cast<uint32_t>(copy.size());
  const uint64_t original = sizeof head + uint64_t{head.frameSize};
  PutBlock(bytes, kEnhancedPacket, [&] {
    Put(bytes, uint32_t{0});  // of the only interface
    Put(bytes, static_cast<uint32_t>(head.timeUs >> 32));
    Put(bytes, static_cast<uint32_t>(head.timeUs));
    Put(bytes, captured);
    Put(bytes, original < captured || original > UINT32_MAX ? captured : static_cast<uint32_t>(original));
    PutPadded(bytes, copy);
    if (head.missed == 0) return;
    const uint64_t missed = head.missed;
    PutOption(bytes, kPacketDropCount, std::as_bytes(std::span(&missed, 1)));
    EndOptions(bytes);
  });
}

}  // namespace

bool PcapngFile::Open(const std::string &path, std::string_view interfaceName) {
  file_.reset(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  return file_.valid() && Attach(file_.get(), interfaceName);
}

bool PcapngFile::Attach(int fd, std::string_view interfaceName) {
  fd_ = fd;
  PutSectionHeader(blocks_);
  PutInterface(blocks_, interfaceName);
  return Flush();
}

bool PcapngFile::Write(std::span<const std::byte> copy) {
  PutPacket(blocks_, copy);
  return blocks_.size() < kFlushSize || Flush();
}

bool PcapngFile::Flush() {
  size_t written = 0;
  while (written < blocks_.size()) {
    const ssize_t count = ::write(fd_, blocks_.data() + written, blocks_.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    written += static_cast<size_t>(count);
  }
  const int error = errno;
  const bool complete = written == blocks_.size();
  const size_t rest = written - Account(written);
  if (complete) return true;
  // A pipe or a device keeps the part of a block that it accepted.
  const off_t end = ::lseek(fd_, 0, SEEK_CUR);
  if (end >= static_cast<off_t>(rest) && ::ftruncate(fd_, end - static_cast<off_t>(rest)) != 0) bytes_ += rest;
  errno = error;
  return false;
}

// Counts the blocks that are complete within the bytes written, and drops all. Returns the size of the complete ones.
size_t PcapngFile::Account(size_t written) {
  size_t offset = 0;
  while (offset < written) {
    const uint32_t length = Get32(blocks_, offset + sizeof(uint32_t));
    if (offset + length > written) break;
    if (Get32(blocks_, offset) == kEnhancedPacket) ++packets_;
    offset += length;
  }
  bytes_ += offset;
  blocks_.clear();
  return offset;
}

}  // namespace zor::ctl
