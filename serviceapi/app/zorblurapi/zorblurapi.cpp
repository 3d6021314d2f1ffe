#include <zor/blur.h>
#include <zor/limits.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "app/zorblurapi/mask_rules.h"

namespace {

constexpr char kHidden[] = "******";
constexpr char kHiddenMac[] = "**:**:**:**:**:**";
constexpr std::size_t kMacLength = sizeof kHiddenMac - 1;
constexpr char kNothing[] = "";

// Copies a text that may already be in the buffer, cut to its room. Returns the length of the copy.
template <std::size_t kSize>
std::size_t Take(std::array<char, kSize> &buffer, const char *text) {
  const std::size_t length = strnlen(text, kSize - 1);
  std::memmove(buffer.data(), text, length);
  buffer[length] = '\0';
  return length;
}

const char *Mask(std::uint32_t masks, std::array<char, ZOR_BLUR_TEXT_SIZE> &buffer, const char *text) {
  if (text == nullptr) return kNothing;
  Take(buffer, text);
  zor::ApplyMasks(masks, buffer.data());
  return buffer.data();
}

}  // namespace

const char *ZOR_Blur_Mac(const char *text) {
  static std::array<char, ZOR_BLUR_TEXT_SIZE> buffer;
  return Mask(zor::kMaskFullMac, buffer, text);
}

const char *ZOR_Blur_Ip(const char *text) {
  static std::array<char, ZOR_BLUR_TEXT_SIZE> buffer;
  return Mask(zor::kMaskFullIpv4 | zor::kMaskIpv6, buffer, text);
}

const char *ZOR_Blur_Ipv6(const char *text) {
  static std::array<char, ZOR_BLUR_TEXT_SIZE> buffer;
  return Mask(zor::kMaskIpv6, buffer, text);
}

const char *ZOR_Blur_Uuid(const char *text) {
  static std::array<char, ZOR_BLUR_TEXT_SIZE> buffer;
  return Mask(zor::kMaskUuid, buffer, text);
}

const char *ZOR_Blur_Usb_Account(const char *name) {
  static std::array<char, 10> buffer;
  if (name == nullptr || *name == '\0') return kNothing;
  const std::size_t length = std::strlen(name);
  const char last = length > 1 ? name[length - 1] : '\0';
  buffer[0] = name[0];
  std::memcpy(&buffer[1], kHidden, sizeof kHidden);
  buffer[sizeof kHidden] = last;
  buffer[sizeof kHidden + 1] = '\0';
  return buffer.data();
}

const char *ZOR_Blur_SSID(const char *ssid) {
  static std::array<char, ZOR_BLUR_SSID_SIZE> buffer;
  if (ssid == nullptr) return kNothing;
  const std::size_t whole = strnlen(ssid, ZOR_BLUR_SSID_SIZE);
  const std::size_t length = Take(buffer, ssid);
  const std::size_t from = length < 3 ? 0 : 1;
  const std::size_t to = length < 3 ? length : std::min(whole - 1, length);
  std::fill(buffer.begin() + from, buffer.begin() + to, '*');
  return buffer.data();
}

uint32_t ZOR_UTIL_Disguise_MacAddress(uint32_t fullMask, const char *mac, char *out, uint32_t size) {
  if (out == nullptr || size <= kMacLength) return ZOR_BLUR_E_ARGUMENT;
  if (fullMask != 0) {
    std::memcpy(out, kHiddenMac, sizeof kHiddenMac);
    return ZOR_BLUR_OK;
  }
  if (mac == nullptr) return ZOR_BLUR_E_ARGUMENT;
  const std::size_t length = std::strlen(mac);
  if (length != kMacLength) return static_cast<uint32_t>(length);
  std::memmove(out, mac, length + 1);
  for (std::size_t octet = 0; octet < kMacLength; octet += 3) std::memset(out + octet, '*', 2);
  return ZOR_BLUR_OK;
}
