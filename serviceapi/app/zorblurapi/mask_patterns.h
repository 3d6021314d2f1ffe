// What the mask rules look for. Each function returns the length of the longest match at the front of a zero-terminated
// text, 0 when there is none, as the extended regular expression beside it would. They are written by hand because a
// regular-expression library takes memory while it matches, and without memory an address would be shown.
#ifndef APP_ZORBLURAPI_MASK_PATTERNS_H
#define APP_ZORBLURAPI_MASK_PATTERNS_H

#include <cstddef>

namespace zor {

// ([0-9A-Fa-f]{2}[:-]){5}([0-9A-Fa-f]{2})
std::size_t MatchMac(const char *text) noexcept;

// (([0-9A-Fa-f]{4}[-]){3})([0-9A-Fa-f]{12})
std::size_t MatchUuid(const char *text) noexcept;

// ([0-9]{1,3}[.]){3}[0-9]{1,3}
std::size_t MatchIpv4(const char *text) noexcept;

// Every textual form of an IPv6 address: eight groups, or at most seven beside one "::"; an IPv4 suffix counts as two.
std::size_t MatchIpv6(const char *text) noexcept;

}  // namespace zor

#endif
