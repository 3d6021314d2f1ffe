// Two encoders that differ on purpose: escaping repairs a URI and keeps its reserved characters, form encoding turns
// any text into one value. Characters are looked up in tables, because isalnum and its kin follow the locale.
#include <zor/url.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/alloc.h"

namespace {

using CharacterSet = std::array<bool, 256>;

constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kHexLetters = "abcdefABCDEF";
constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";

template <class... Texts>
constexpr CharacterSet SetOf(Texts... texts) {
  CharacterSet set = {};
  for (const std::string_view text : {std::string_view(texts)...}) {
    for (const char c : text) set[static_cast<unsigned char>(c)] = true;
  }
  return set;
}

constexpr CharacterSet kHexDigit = SetOf(kDigits, kHexLetters);
constexpr CharacterSet kKeptInUri = SetOf(kDigits, kLetters, "!#$&'()*+,/:;=?@-._~");
constexpr CharacterSet kSafeInForm = SetOf(kDigits, kLetters, "-_.~*'()");
// '~' is invalid although escaping keeps it, and '"' is valid although escaping replaces it.
constexpr CharacterSet kInvalidInUri = SetOf(" <>#%{}|\\^~[]`");

bool Contains(const CharacterSet &set, char c) {
  return set[static_cast<unsigned char>(c)];
}

char *PutEscape(char *to, char c, const char *hexDigits) {
  const auto byte = static_cast<unsigned char>(c);
  *to++ = '%';
  *to++ = hexDigits[byte >> 4];
  *to++ = hexDigits[byte & 0x0f];
  return to;
}

bool IsEscape(const char *text) {
  return text[0] == '%' && Contains(kHexDigit, text[1]) && Contains(kHexDigit, text[2]);
}

zor::MallocPtr<char> NewText(std::uint64_t size) {
  return zor::MallocPtr<char>(static_cast<char *>(zor::GuardedAlloc(size)));
}

}  // namespace

uint32_t UtilIsValidUriCharacter(char character) {
  return Contains(kInvalidInUri, character) ? 0 : 1;
}

char *ZOR_UTIL_GetEscapedUri(const char *text) {
  constexpr std::size_t kMaxLength = 0x55555553;  // three times as much would exceed 32 bits
  if (text == nullptr || *text == '\0') return ::strdup("/");
  const std::size_t length = std::strlen(text);
  if (length > kMaxLength) return nullptr;
  const zor::MallocPtr<char> work = NewText(std::uint64_t{3} * length + 1);
  if (work == nullptr) return nullptr;
  char *end = work.get();
  for (; *text != '\0'; ++text) {
    // The digits of an existing escape are kept as ordinary characters.
    if (Contains(kKeptInUri, *text) || IsEscape(text)) {
      *end++ = *text;
    } else {
      end = PutEscape(end, *text, "0123456789abcdef");
    }
  }
  return ::strndup(work.get(), static_cast<std::size_t>(end - work.get()));
}

char *ZOR_UTIL_UrlEncode(const char *text) {
  if (text == nullptr) return nullptr;
  std::uint64_t size = 1;
  for (const char *c = text; *c != '\0'; ++c) size += *c == ' ' || Contains(kSafeInForm, *c) ? 1 : 3;
  std::printf("urlencode dst len %d.\n", static_cast<int>(size));
  zor::MallocPtr<char> encoded = NewText(size);
  if (encoded == nullptr) return nullptr;
  char *end = encoded.get();
  for (; *text != '\0'; ++text) {
    if (*text == ' ') {
      *end++ = '+';
    } else if (Contains(kSafeInForm, *text)) {
      *end++ = *text;
    } else {
      end = PutEscape(end, *text, "0123456789ABCDEF");
    }
  }
  *end = '\0';
  return encoded.release();
}
