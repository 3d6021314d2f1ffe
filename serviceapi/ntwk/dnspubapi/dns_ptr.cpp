// Reverse-lookup names: the labels of an address in reverse order, in front of a suffix that names its family.
#include <arpa/inet.h>
#include <zor/dns.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "base/pieces.h"

namespace {

constexpr std::size_t kMaxName = 255;
constexpr std::size_t kMaxCounted = 63;
constexpr std::size_t kNibbles = 32;
constexpr std::size_t kNibbleTextSize = 2 * kNibbles - 1;
constexpr std::size_t kIpv6TextSize = 39;

// The labels in front of a suffix.
struct Form {
  std::string_view suffix;
  std::size_t minLength;
  std::size_t maxLength;
  uint32_t labels;
};
constexpr Form kIpv4Form = {".in-addr.arpa", 7, 15, 4};
constexpr Form kIpv6Form = {".ip6.arpa", kNibbleTextSize, kNibbleTextSize, kNibbles};

uint32_t CountDots(std::string_view text) {
  return static_cast<uint32_t>(std::count(text.begin(), text.end(), '.'));
}

bool HasForm(std::string_view labels, const Form &form) {
  return labels.size() >= form.minLength && labels.size() <= form.maxLength && CountDots(labels) + 1 == form.labels;
}

// Writes the labels in reverse order and returns their count; the characters of a label keep their order.
uint32_t ReverseLabels(std::string_view labels, char *output) {
  std::memset(output, '.', labels.size());
  char *end = output + labels.size();
  uint32_t count = 0;
  for (std::string_view label; !(label = zor::NextPiece(labels, '.')).empty(); ++count) {
    if (count > 0) --end;
    end -= label.size();
    std::memcpy(end, label.data(), label.size());
  }
  return count;
}

// The field's text must end inside its room: the bytes behind the address belong to the caller.
bool IsAddress(int family, const char *address, std::size_t capacity) {
  std::array<unsigned char, sizeof(in6_addr)> binary;
  return strnlen(address, capacity) < capacity && ::inet_pton(family, address, binary.data()) == 1;
}

// Turns nibbles that are joined by dots into groups of four that are joined by colons.
void GroupNibbles(char *address, std::size_t capacity) {
  std::array<char, kNibbleTextSize> nibbles;
  std::memcpy(nibbles.data(), address, nibbles.size());
  std::memset(address, 0, strnlen(address, capacity));
  std::memset(address, ':', kIpv6TextSize);
  for (std::size_t i = 0; i < kNibbles; ++i) address[i + i / 4] = nibbles[2 * i];
}

}  // namespace

uint32_t ZOR_DNS_PacketPTRName2Addr(const char *name, char *address, uint32_t capacity, uint32_t *isIpv4) {
  if (name == nullptr || address == nullptr) return ZOR_DNS_E_ARGUMENT;
  const std::string_view text(name, strnlen(name, kMaxName));
  const std::size_t ipv4At = text.find(kIpv4Form.suffix);
  const std::size_t ipv6At = text.find(kIpv6Form.suffix);
  const bool isFour = ipv4At != std::string_view::npos;
  if (isFour == (ipv6At != std::string_view::npos)) return ZOR_DNS_E_ARGUMENT;
  const Form &form = isFour ? kIpv4Form : kIpv6Form;
  const std::string_view labels = text.substr(0, isFour ? ipv4At : ipv6At);
  if (!HasForm(labels, form) || labels.size() >= capacity) return ZOR_DNS_E_ARGUMENT;

  if (ReverseLabels(labels, address) < form.labels) return ZOR_DNS_E_TOO_FEW_LABELS;
  // Not the byte behind the address but the one after it: callers pass a zeroed field.
  if (labels.size() + 1 < capacity) address[labels.size() + 1] = '\0';
  if (isFour) {
    if (!IsAddress(AF_INET, address, capacity)) return ZOR_DNS_E_ARGUMENT;
    if (isIpv4 != nullptr) *isIpv4 = 1;
    return ZOR_DNS_OK;
  }
  if (isIpv4 != nullptr) *isIpv4 = 0;
  GroupNibbles(address, capacity);
  return IsAddress(AF_INET6, address, capacity) ? ZOR_DNS_OK : ZOR_DNS_E_ARGUMENT;
}

uint32_t ZOR_DNS_CountAddrPoints(const char *text) {
  if (text == nullptr || *text == '\0') return ZOR_DNS_E_ARGUMENT;
  return CountDots({text, strnlen(text, kMaxCounted)});
}
