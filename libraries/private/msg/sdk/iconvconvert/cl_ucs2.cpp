// UCS-2 units to and from UTF-8 and big-endian bytes. Rooms are checked as the callers know them, in units or bytes,
// though some outputs may be longer: they provide the worst case.
#include <zor/charset.h>

#include <algorithm>
#include <array>
#include <cstring>

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

struct Lead {
  unsigned char first;
  unsigned char last;
  uint32_t length;
  unsigned char mask;
};

constexpr std::array<Lead, 6> kLeads = {{{0x01, 0x7f, 1, 0x7f},
                                         {0xc0, 0xdf, 2, 0x1f},
                                         {0xe0, 0xef, 3, 0x0f},
                                         {0xf0, 0xf7, 4, 0x07},
                                         {0xf8, 0xfb, 5, 0x03},
                                         {0xfc, 0xfd, 6, 0x01}}};

const Lead *FindLead(unsigned char byte) {
  const auto *found = std::find_if(kLeads.begin(), kLeads.end(),
                                   [byte](const Lead &lead) { return byte >= lead.first && byte <= lead.last; });
  return found == kLeads.end() ? nullptr : found;
}

// The value of one sequence, kept to 16 bits at each step; bytes behind the end count as zero bits.
uint16_t Decode(const Lead &lead, const unsigned char *bytes, uint32_t left) {
  unsigned value = bytes[0] & lead.mask;
  for (uint32_t i = 1; i < lead.length; ++i) value = (value << 6 | (i < left ? bytes[i] & 0x3fu : 0u)) & 0xffffu;
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
  const auto *from = static_cast<const unsigned char *>(static_cast<const void *>(bytes));
  uint32_t written = 0;
  for (uint32_t at = 0; at < length && from[at] != 0;) {
    // Most text is plain: it needs no table.
    if (from[at] < 0x80) {
      units[written++] = from[at++];
      continue;
    }
    const Lead *lead = FindLead(from[at]);
    if (lead == nullptr) return CL_E_LEAD_BYTE;
    units[written++] = Decode(*lead, from + at, length - at);
    at += std::min(lead->length, length - at);
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
    const unsigned char first = from[i];
    to[i] = from[i + 1];
    to[i + 1] = first;
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
