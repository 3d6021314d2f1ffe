// UCS-2 units to and from UTF-8 and big-endian bytes. Rooms are checked as the callers know them, in units or bytes,
// though some outputs may be longer: they provide the worst case.
#include <zor/charset.h>

#include <algorithm>
#include <cstring>

#include "common/utf8.h"

namespace {

// Cleared when a call is refused for its arguments.
uint32_t RefuseArguments(uint32_t *length) {
  if (length != nullptr) *length = 0;
  return CL_E_ARGUMENT;
}

std::size_t EncodedLength(uint16_t unit) {
  return unit < 0x80 ? 1 : unit < 0x800 ? 2 : 3;
}

char *Encode(uint16_t unit, char *to) {
  const auto last = [](unsigned bits) { return static_cast<char>(0x80u | (bits & 0x3fu)); };
  if (unit < 0x80) {
    *to++ = static_cast<char>(unit);
  } else if (unit < 0x800) {
    *to++ = static_cast<char>(0xc0u | unit >> 6);
    *to++ = last(unit);
  } else {
    *to++ = static_cast<char>(0xe0u | unit >> 12);
    *to++ = last(unit >> 6u);
    *to++ = last(unit);
  }
  return to;
}

// The unit of one sequence, cut to 16 bits; continuation bytes are not checked, and missing ones count as zero bits.
uint16_t Decode(zor::Utf8Sequence lead, const char *bytes, uint32_t left) {
  char32_t value = lead.value;
  for (uint32_t i = 1; i < lead.length; ++i) value = zor::AppendUtf8Bits(value, i < left ? bytes[i] : '\0');
  return static_cast<uint16_t>(value);
}

}  // namespace

uint32_t cl_ucs2ToUTF8(const uint16_t *units, uint32_t count, char *output, uint32_t *length) {
  if (units == nullptr || count == 0 || output == nullptr || length == nullptr || *length == 0) {
    return RefuseArguments(length);
  }
  if (*length < count) return CL_E_ROOM;
  char *end = output;
  for (uint32_t i = 0; i < count && units[i] != 0; ++i) end = Encode(units[i], end);
  *end = '\0';
  *length = static_cast<uint32_t>(end - output);
  return CL_OK;
}

uint32_t cl_ucs2ToUTF8ByLen(const uint16_t *units, uint32_t count, char *output, uint32_t size) {
  if (units == nullptr || count == 0 || output == nullptr || size == 0) return CL_E_ARGUMENT;
  std::size_t left = size;
  char *end = output;
  for (uint32_t i = 0; i < count && units[i] != 0 && EncodedLength(units[i]) <= left; ++i) {
    left -= EncodedLength(units[i]);
    end = Encode(units[i], end);
  }
  *end = '\0';
  return CL_OK;
}

uint32_t cl_utf8ToUCS2(const char *bytes, uint32_t length, uint16_t *units, uint32_t *count) {
  if (bytes == nullptr || length == 0 || units == nullptr || count == nullptr) return RefuseArguments(count);
  if (*count == 0) return CL_E_ROOM;
  uint32_t written = 0;
  for (uint32_t at = 0; at < length && bytes[at] != '\0';) {
    const zor::Utf8Sequence lead = zor::Utf8Lead(bytes[at]);
    if (lead.length == 0) return CL_E_LEAD_BYTE;
    units[written++] = Decode(lead, bytes + at, length - at);
    at += std::min(static_cast<uint32_t>(lead.length), length - at);
  }
  units[written] = 0;
  *count = written;
  return CL_OK;
}

uint32_t cl_widecharToByteOrder(const void *units, uint32_t count, void *output, uint32_t *length) {
  if (units == nullptr || count == 0 || output == nullptr || length == nullptr || *length == 0) {
    return RefuseArguments(length);
  }
  if (*length < uint64_t{count} * 2) return CL_E_ROOM;
  const auto *from = static_cast<const unsigned char *>(units);
  auto *to = static_cast<unsigned char *>(output);
  for (std::size_t i = 0; i < std::size_t{count} * 2; i += 2) {
    uint16_t unit;
    std::memcpy(&unit, from + i, sizeof unit);
    to[i] = static_cast<unsigned char>(unit >> 8);
    to[i + 1] = static_cast<unsigned char>(unit);
  }
  *length = count * 2;
  return CL_OK;
}

uint32_t cl_byteOrderToWideChar(const void *bytes, uint32_t length, uint16_t *units, uint32_t *count) {
  if (bytes == nullptr || length == 0 || units == nullptr || count == nullptr || *count == 0) {
    return RefuseArguments(count);
  }
  const uint32_t unitCount = length / 2;
  if (*count < uint64_t{unitCount} + 1) return CL_E_ROOM;
  const auto *from = static_cast<const unsigned char *>(bytes);
  for (std::size_t i = 0; i < unitCount; ++i) {
    units[i] = static_cast<uint16_t>(from[2 * i] << 8 | from[2 * i + 1]);
  }
  units[unitCount] = 0;
  *count = unitCount;
  return CL_OK;
}
