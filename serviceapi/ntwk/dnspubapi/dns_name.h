// Names: labels, each preceded by its length, up to a zero byte or a pointer to the rest of the name.
#ifndef DNSPUBAPI_DNS_NAME_H
#define DNSPUBAPI_DNS_NAME_H

#include <span>

#include "ntwk/dnspubapi/dns_message.h"

namespace zor::dns {

// The bytes that the name at the front of rest occupies; 0 when it is malformed.
std::uint32_t NameLength(Bytes rest) noexcept;

// Expands the name at the front of rest, which ends where the message ends; *consumed becomes the bytes that it
// occupies, 0 when it ends in a pointer behind labels. False when it is malformed or does not fit; text and
// *consumed are invalid then.
bool ExpandName(Bytes message, Bytes rest, std::span<char> text, std::uint32_t *consumed) noexcept;

}  // namespace zor::dns

#endif
