// The head of an encrypted export: how its key is made from the passphrase. Byte-level description: docs/protocol.md.
//
// It is read before anything is known to be authentic, so a hostile one must not cost much: memory and time of the key
// derivation are bounded here.
#ifndef CMS_SEAL_HEAD_H
#define CMS_SEAL_HEAD_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "programs/limits.h"

namespace zor::cms {

constexpr size_t kSealHeadSize = 48;
constexpr size_t kSealTagSize = 16;

struct SealHead {
  // The parameters of scrypt.
  uint8_t log2Rounds = limits::cms::kKeyCost;
  uint8_t blockSize = 8;
  uint8_t parallel = 5;
  std::array<std::byte, 16> salt{};
  std::array<std::byte, 12> nonce{};
  uint32_t contentLength = 0;

  // What the key derivation needs.
  uint64_t memory() const { return uint64_t{128} * blockSize * ((uint64_t{1} << log2Rounds) + parallel + 2); }
  uint64_t work() const { return (uint64_t{1} << log2Rounds) * blockSize * parallel; }
};

// Whether a file that begins like this is an encrypted export, of whatever version.
bool IsSealed(std::span<const std::byte> start);

std::array<std::byte, kSealHeadSize> WriteSealHead(const SealHead &head);
// None if it is not of this version, or its parameters are out of bounds.
std::optional<SealHead> ReadSealHead(std::span<const std::byte> file);

}  // namespace zor::cms

#endif
