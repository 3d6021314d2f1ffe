/// @file
/// Hiding personal data before it reaches a log or a page: <zor/blur.h> with texts that own themselves.
#ifndef ZOR_CPP_BLUR_HPP
#define ZOR_CPP_BLUR_HPP

#include <zor/blur.h>

#include <zor/cpp/error.hpp>

#include <string>

namespace zor {
inline namespace face {
namespace blur {

/// From the first MAC address on, every character but ':'.
inline std::string mac(const std::string &text) {
  return ZOR_Blur_Mac(text.c_str());
}
/// From the first IPv4 address on, every character but '.'; IPv6 addresses as a whole.
inline std::string ip(const std::string &text) {
  return ZOR_Blur_Ip(text.c_str());
}
/// IPv6 addresses as a whole.
inline std::string ipv6(const std::string &text) {
  return ZOR_Blur_Ipv6(text.c_str());
}
/// The last group of every UUID.
inline std::string uuid(const std::string &text) {
  return ZOR_Blur_Uuid(text.c_str());
}
/// A name but for its first and last character.
inline std::string account(const std::string &name) {
  return ZOR_Blur_Usb_Account(name.c_str());
}
/// An SSID but for its first and last character.
inline std::string ssid(const std::string &ssid) {
  return ZOR_Blur_SSID(ssid.c_str());
}
/// The addresses in a text file, in place.
inline Result<void> file(const std::string &path) {
  const std::uint32_t status = ZOR_Blur_File(path.c_str());
  if (status == ZOR_BLUR_OK) return {};
  return Error(status, "cannot mask " + path);
}

}  // namespace blur
}  // namespace face
}  // namespace zor

#endif
