// Bytes and numbers as hexadecimal or decimal text.
#include <zor/charset.h>

namespace {

constexpr char kDigits[] = "0123456789ABCDEF";
constexpr int kNoDigit = -1;

uint32_t RefuseArguments(uint32_t *length) {
  if (length != nullptr) *length = 0;
  return CL_E_ARGUMENT;
}

int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return kNoDigit;
}

unsigned Nibble(char c) {
  const int value = DigitValue(c);
  return value == kNoDigit ? 0 : static_cast<unsigned>(value);
}

}  // namespace

uint32_t cl_bytesToString(const void *bytes, uint32_t count, char *text, uint32_t *length) {
  if (bytes == nullptr || count == 0 || text == nullptr || length == nullptr || *length == 0) {
    return RefuseArguments(length);
  }
  if (*length < uint64_t{count} * 2 + 1) return CL_E_ROOM;
  const auto *from = static_cast<const unsigned char *>(bytes);
  for (uint32_t i = 0; i < count; ++i) {
    *text++ = kDigits[from[i] >> 4];
    *text++ = kDigits[from[i] & 0xfu];
  }
  *text = '\0';
  *length = count * 2;
  return CL_OK;
}

uint32_t cl_stringToBytes(const char *text, uint32_t length, void *bytes, uint32_t *count) {
  if (text == nullptr || length == 0 || bytes == nullptr || count == nullptr || *count == 0) {
    return RefuseArguments(count);
  }
  if (*count < length / 2) return CL_E_ROOM;
  auto *to = static_cast<unsigned char *>(bytes);
  uint32_t written = 0;
  for (uint32_t at = 0; at + 1 < length && text[at] != '\0' && text[at + 1] != '\0'; at += 2) {
    to[written++] = static_cast<unsigned char>(Nibble(text[at]) << 4 | Nibble(text[at + 1]));
  }
  *count = written;
  return CL_OK;
}

uint32_t cl_stringToNumeric(const char *text, uint32_t length, uint32_t base, uint32_t *value) {
  if (text == nullptr || value == nullptr) return CL_E_ARGUMENT;
  if (base != 10 && base != 16) return CL_E_BASE;
  uint32_t status = CL_OK;
  *value = 0;
  for (uint32_t i = 0; i < length; ++i) {
    const int digit = DigitValue(text[i]);
    if (digit == kNoDigit || digit >= static_cast<int>(base)) {
      status = CL_E_ARGUMENT;
      continue;
    }
    *value = *value * base + static_cast<uint32_t>(digit);
    if (base == 16) status = CL_OK;  // callers pass "0x..." and only look at the end
  }
  return status;
}
