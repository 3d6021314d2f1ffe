/// @file
/// Character sets and the cl_ converters of <zor/charset.h>, with results that own themselves.
#ifndef ZOR_CPP_CHARSET_HPP
#define ZOR_CPP_CHARSET_HPP

#include <zor/charset.h>
#include <zor/cpp/message.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zor {
inline namespace face {
namespace charset {

/// A text from one set to another, leniently; nothing when a set is not known or nothing is left.
inline std::optional<std::string> convert(std::string_view text, const std::string &from, const std::string &to) {
  std::uint32_t length = 0;
  const std::unique_ptr<char, detail::FreeBlock> result(
      ZOR_NLS_ConvertString(from.c_str(), text.data(), static_cast<std::uint32_t>(text.size()), to.c_str(), &length));
  if (result == nullptr) return std::nullopt;
  return std::string(result.get(), length);
}

/// Whether a text is UTF-8 of sequences up to three bytes.
inline bool is_utf8(const std::string &text) {
  return ZOR_NLS_IsStringUtf8(text.c_str()) != 0;
}

/// A text of unknown set in UTF-8; nothing when it cannot be converted.
inline std::optional<std::string> to_utf8(const std::string &text) {
  const std::unique_ptr<char, detail::FreeBlock> result(ZOR_NLS_TryConvertToUtf8(text.c_str()));
  if (result == nullptr) return std::nullopt;
  return std::string(result.get());
}

}  // namespace charset

namespace cl {

inline Result<void> ResultOf(std::uint32_t status) {
  if (status == CL_OK) return {};
  return Error(ZOR_E_ARGUMENT, "malformed text");
}

/// UCS-2 units, up to a zero one, as UTF-8.
inline Result<std::string> to_utf8(std::u16string_view units) {
  const std::vector<std::uint16_t> input(units.begin(), units.end());
  std::string text(3 * units.size() + 1, '\0');
  auto length = static_cast<std::uint32_t>(text.size());
  if (units.empty()) return std::string();
  const auto result =
      ResultOf(cl_ucs2ToUTF8(input.data(), static_cast<std::uint32_t>(input.size()), text.data(), &length));
  if (!result) return result.error();
  text.resize(length);
  return text;
}

/// UTF-8, up to a zero byte, as UCS-2 units; an Argument error where a sequence starts with a byte that cannot.
inline Result<std::u16string> to_ucs2(std::string_view text) {
  std::vector<std::uint16_t> units(text.size() + 1);
  auto count = static_cast<std::uint32_t>(units.size());
  if (text.empty()) return std::u16string();
  const auto result =
      ResultOf(cl_utf8ToUCS2(text.data(), static_cast<std::uint32_t>(text.size()), units.data(), &count));
  if (!result) return result.error();
  return std::u16string(units.begin(), units.begin() + count);
}

/// Bytes as hexadecimal digits in upper case.
inline std::string to_hex(std::string_view bytes) {
  std::string text(2 * bytes.size() + 1, '\0');
  auto length = static_cast<std::uint32_t>(text.size());
  if (bytes.empty()) return {};
  cl_bytesToString(bytes.data(), static_cast<std::uint32_t>(bytes.size()), text.data(), &length);
  text.resize(2 * bytes.size());
  return text;
}

/// The bytes of hexadecimal digits; an odd last one is dropped.
inline Bytes from_hex(std::string_view digits) {
  Bytes bytes(digits.size() / 2);
  auto count = static_cast<std::uint32_t>(bytes.size());
  if (bytes.empty()) return bytes;
  cl_stringToBytes(digits.data(), static_cast<std::uint32_t>(digits.size()), bytes.data(), &count);
  bytes.resize(count);
  return bytes;
}

/// The number in a text of base 10 or 16.
inline Result<std::uint32_t> to_number(std::string_view digits, std::uint32_t base = 10) {
  std::uint32_t value = 0;
  const auto result =
      ResultOf(cl_stringToNumeric(digits.data(), static_cast<std::uint32_t>(digits.size()), base, &value));
  if (!result) return result.error();
  return value;
}

}  // namespace cl
}  // namespace face
}  // namespace zor

#endif
