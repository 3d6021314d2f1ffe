#include "cms/seal_head.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace zor::cms {
namespace {

constexpr std::string_view kMagic = "zorcfenc";
constexpr uint8_t kVersion = 1;
constexpr uint8_t kScrypt = 1;
constexpr uint8_t kAes256Gcm = 1;

// Offsets in the head.
constexpr size_t kVersionAt = 8;
constexpr size_t kDerivationAt = 9;
constexpr size_t kCipherAt = 10;
constexpr size_t kLog2RoundsAt = 11;
constexpr size_t kBlockSizeAt = 12;
constexpr size_t kParallelAt = 13;
constexpr size_t kReservedAt = 14;
constexpr size_t kSaltAt = 16;
constexpr size_t kNonceAt = 32;
constexpr size_t kLengthAt = 44;
static_assert(kLengthAt + sizeof(uint32_t) == kSealHeadSize);

constexpr uint8_t kMostLog2Rounds = 20;

// scrypt itself allows no more rounds than that for a block size.
bool IsWithinBounds(const SealHead &head) {
  return head.log2Rounds > 0 && head.log2Rounds <= kMostLog2Rounds && head.blockSize > 0 && head.parallel > 0 &&
         head.log2Rounds < 16 * head.blockSize && head.memory() <= limits::cms::kKeyMemory &&
         head.work() <= limits::cms::kKeyWork && head.contentLength <= limits::cms::kExportBytes;
}

}  // namespace

bool IsSealed(std::span<const std::byte> start) {
  return start.size() >= kMagic.size() && std::memcmp(start.data(), kMagic.data(), kMagic.size()) == 0;
}

std::array<std::byte, kSealHeadSize> WriteSealHead(const SealHead &head) {
  std::array<std::byte, kSealHeadSize> bytes{};
  const auto set = [&](size_t at, uint32_t value) { bytes[at] = static_cast<std::byte>(value); };
  std::memcpy(bytes.data(), kMagic.data(), kMagic.size());
  set(kVersionAt, kVersion);
  set(kDerivationAt, kScrypt);
  set(kCipherAt, kAes256Gcm);
  set(kLog2RoundsAt, head.log2Rounds);
  set(kBlockSizeAt, head.blockSize);
  set(kParallelAt, head.parallel);
  std::copy(head.salt.begin(), head.salt.end(), bytes.begin() + kSaltAt);
  std::copy(head.nonce.begin(), head.nonce.end(), bytes.begin() + kNonceAt);
  for (uint32_t i = 0; i < 4; ++i) set(kLengthAt + i, head.contentLength >> (24 - 8 * i));
  return bytes;
}

std::optional<SealHead> ReadSealHead(std::span<const std::byte> file) {
  if (file.size() < kSealHeadSize || !IsSealed(file)) return std::nullopt;
  const auto get = [&](size_t at) { return std::to_integer<uint8_t>(file[at]); };
  const bool isKnown = get(kVersionAt) == kVersion && get(kDerivationAt) == kScrypt && get(kCipherAt) == kAes256Gcm &&
                       get(kReservedAt) == 0 && get(kReservedAt + 1) == 0;
  SealHead head;
  head.log2Rounds = get(kLog2RoundsAt);
  head.blockSize = get(kBlockSizeAt);
  head.parallel = get(kParallelAt);
  std::copy_n(file.begin() + kSaltAt, head.salt.size(), head.salt.begin());
  std::copy_n(file.begin() + kNonceAt, head.nonce.size(), head.nonce.begin());
  for (size_t i = 0; i < 4; ++i) head.contentLength = head.contentLength << 8 | get(kLengthAt + i);
  return isKnown && IsWithinBounds(head) ? std::optional(head) : std::nullopt;
}

}  // namespace zor::cms
