#include <zor/charset.h>

#include <array>
#include <cstring>
#include <optional>
#include <string_view>

#include "base/alloc.h"
#include "common/utf8.h"
#include "sdk/iconvconvert/convert_engine.h"

namespace {

using Text = zor::MallocPtr<char>;

constexpr int32_t kNoLength = -1;
constexpr std::array<const char *, 4> kLikelySets = {"utf8", "cp936", "cp950", "iso8859-1"};

std::string_view WithNul(const char *text) {
  return {text, std::strlen(text) + 1};
}

char *CopyOf(std::string_view text) {
  auto *copy = static_cast<char *>(zor::GuardedAlloc(text.size()));
  if (copy != nullptr) text.copy(copy, text.size());
  return copy;
}

}  // namespace

int32_t ZOR_NLS_ConvertGetLength(const char *sourceSet, const void *input, uint32_t length, const char *targetSet,
                                 uint32_t lenient) {
  if (sourceSet == nullptr || input == nullptr || targetSet == nullptr) return kNoLength;
  const auto measured = zor::MeasureConversion(sourceSet, targetSet, {static_cast<const char *>(input), length});
  if (!measured || (lenient == 0 && measured->incomplete) || measured->length > INT32_MAX) return kNoLength;
  return static_cast<int32_t>(measured->length);
}

char *ZOR_NLS_ConvertString(const char *sourceSet, const void *input, uint32_t length, const char *targetSet,
                            uint32_t *outLength) {
  if (outLength != nullptr) *outLength = 0;
  const int32_t needed = ZOR_NLS_ConvertGetLength(sourceSet, input, length, targetSet, 1);
  if (needed <= 0) return nullptr;
  const auto size = static_cast<uint32_t>(needed);
  Text output(static_cast<char *>(zor::GuardedCalloc(size)));
  if (output == nullptr) return nullptr;
  const auto converted =
      zor::Convert(sourceSet, targetSet, {static_cast<const char *>(input), length}, output.get(), size);
  if (!converted) return nullptr;
  if (outLength != nullptr) *outLength = static_cast<uint32_t>(converted->length);
  return output.release();
}

char *ZOR_NLS_IconvConvert(const char *text, const char *targetSet, const char *sourceSet) {
  if (text == nullptr) return nullptr;
  const std::string_view input = WithNul(text);
  return ZOR_NLS_ConvertString(sourceSet, input.data(), static_cast<uint32_t>(input.size()), targetSet, nullptr);
}

char *ZOR_NLS_GB2312Convert(const char *text, const char *targetSet, const char *sourceSet) {
  return ZOR_NLS_IconvConvert(text, targetSet, sourceSet);
}

uint32_t ZOR_NLS_IsStringUtf8(const char *text) {
  constexpr std::size_t kLongest = 3;
  for (std::string_view left = text == nullptr ? "" : text; !left.empty();) {
    const std::size_t length = zor::FirstUtf8Sequence(left).length;
    if (length == 0 || length > kLongest) return 0;
    left.remove_prefix(length);
  }
  return 1;
}

char *ZOR_NLS_TryConvertToUtf8(const char *text) {
  if (text == nullptr) return nullptr;
  const std::string_view input = WithNul(text);
  // The C library refuses surrogates and overlong forms; in another set they would be read as Chinese.
  if (ZOR_NLS_IsStringUtf8(text) != 0) return CopyOf(input);
  for (const char *set : kLikelySets) {
    // Strictly: a lenient conversion from the first set would always succeed.
    if (ZOR_NLS_ConvertGetLength(set, input.data(), static_cast<uint32_t>(input.size()), "utf8", 0) <= 0) continue;
    char *converted = ZOR_NLS_IconvConvert(text, "utf8", set);
    if (converted != nullptr) return converted;
  }
  return nullptr;
}

const char *ZOR_NLS_TryConvertToUtf8NoFree(const char *text) {
  static Text kept;
  Text converted(ZOR_NLS_TryConvertToUtf8(text));  // first: the text may be the kept one
  if (converted == nullptr) return text;
  kept = std::move(converted);
  return kept.get();
}
