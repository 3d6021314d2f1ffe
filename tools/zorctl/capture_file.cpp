#include "zorctl/capture_file.h"

#include <array>
#include <cstring>

#include "zorctl/exit_code.h"
#include "zorctl/pcapng.h"

namespace zor::ctl {
namespace {

constexpr uint32_t kSmallestBlock = 12;
constexpr uint32_t kLargestBlock = 16u << 20;
constexpr size_t kPacketHead = 20;  // interface, time in two words, captured and original length
constexpr size_t kCapturedLength = 12;

template <class Integer>
Integer Get(std::string_view bytes, size_t offset) {
  Integer value = 0;
  if (bytes.size() >= offset + sizeof value) std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

uint32_t Get32(std::string_view bytes, size_t offset) {
  return Get<uint32_t>(bytes, offset);
}

}  // namespace

CaptureFile::CaptureFile(std::istream &input) : input_(input) {
  uint32_t type = 0;
  if (ReadBlock(type) && type == pcapng::kSectionHeader && IsSection()) return;
  throw Failure(kExitUsage, "not a capture of this machine's byte order",
                "give a file that zorctl monitor --pcapng wrote");
}

bool CaptureFile::ReadBlock(uint32_t &type) {
  std::array<char, 8> head;
  input_.read(head.data(), head.size());
  if (input_.gcount() == 0) return false;
  const std::string_view words(head.data(), static_cast<size_t>(input_.gcount()));
  type = Get32(words, 0);
  const uint32_t length = Get32(words, 4);
  problem_ = "the capture is cut short";
  if (words.size() < head.size()) return false;
  if (length < kSmallestBlock || length > kLargestBlock || length % 4 != 0) {
    problem_ = "the capture is damaged";
    return false;
  }
  body_.resize(length - head.size());
  input_.read(body_.data(), static_cast<std::streamsize>(body_.size()));
  if (static_cast<size_t>(input_.gcount()) < body_.size()) return false;
  if (Get32(body_, body_.size() - sizeof length) != length) {
    problem_ = "the capture is damaged";
    return false;
  }
  body_.resize(body_.size() - sizeof length);
  problem_.clear();
  return true;
}

bool CaptureFile::IsSection() const {
  return Get32(body_, 0) == pcapng::kByteOrderMagic;
}

std::optional<std::string_view> CaptureFile::PacketData() const {
  const uint32_t interface = Get32(body_, 0), captured = Get32(body_, kCapturedLength);
  if (body_.size() < kPacketHead || captured > body_.size() - kPacketHead) return std::nullopt;
  if (interface >= linkTypes_.size() || linkTypes_[interface] != kPcapngLinkType) return std::nullopt;
  return std::string_view{body_}.substr(kPacketHead, captured);
}

std::optional<std::string_view> CaptureFile::Next() {
  uint32_t type = 0;
  while (problem_.empty() && ReadBlock(type)) {
    if (type == pcapng::kSectionHeader) {
      linkTypes_.clear();
      if (!IsSection()) problem_ = "the capture goes on in another byte order";
    } else if (type == pcapng::kInterface) {
      linkTypes_.push_back(Get<uint16_t>(body_, 0));
    } else if (type == pcapng::kEnhancedPacket) {
      if (const auto data = PacketData()) return data;
    }
  }
  return std::nullopt;
}

}  // namespace zor::ctl
