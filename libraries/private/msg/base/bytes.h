// Loads, stores and swaps of 32-bit words that may be unaligned.
#ifndef BASE_BYTES_H
#define BASE_BYTES_H

#include <cstdint>
#include <cstring>

namespace zor {

inline std::uint32_t LoadU32(const void *from) noexcept {
  std::uint32_t word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

inline void StoreU32(void *to, std::uint32_t word) noexcept {
  std::memcpy(to, &word, sizeof word);
}

inline std::uint32_t SwapU32(std::uint32_t word) noexcept {
  return __builtin_bswap32(word);
}

}  // namespace zor

#endif
