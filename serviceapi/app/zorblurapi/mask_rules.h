// The mask rules: an ordered table of patterns, each with the mask for its matches. A mask set is a word in which
// bit i selects row i. Rows run one after the other on the same text, so a later row sees the stars of an earlier one.
#ifndef APP_ZORBLURAPI_MASK_RULES_H
#define APP_ZORBLURAPI_MASK_RULES_H

#include <cstdint>

namespace zor {

constexpr std::uint32_t kMaskUuid = 1u << 2;
constexpr std::uint32_t kMaskFullMac = 1u << 3;
constexpr std::uint32_t kMaskFullIpv4 = 1u << 4;
constexpr std::uint32_t kMaskIpv6 = 1u << 5;
constexpr std::uint32_t kMaskAll = 0xffffffffu;

// Masks a zero-terminated text in place. Takes no memory, so it cannot fail and leave an address readable.
void ApplyMasks(std::uint32_t masks, char *text) noexcept;

}  // namespace zor

#endif
