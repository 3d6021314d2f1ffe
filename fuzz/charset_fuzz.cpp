// Character sets: two bytes that choose the sets, then the text to convert.
#include <zor/charset.h>

#include <cstring>

#include "base/alloc.h"
#include "fuzz.h"

namespace {

using zor::fuzz::Require;
using Text = zor::MallocPtr<char>;
using Units = std::vector<uint16_t>;

constexpr std::array<const char *, 8> kSets = {"utf8",  "cp936", "cp950",       "iso8859-1",
                                               "ucs-2", "utf-7", "iso-2022-jp", "no such set"};

void CheckNamedSets(const char *source, const char *target, const std::string &input) {
  const auto size = static_cast<uint32_t>(input.size());
  const int32_t measured = ZOR_NLS_ConvertGetLength(source, input.data(), size, target, 1);
  const int32_t strict = ZOR_NLS_ConvertGetLength(source, input.data(), size, target, 0);
  Require(strict == -1 || strict == measured, "what converts whole has one length");
  uint32_t length = 1;
  const Text converted(ZOR_NLS_ConvertString(source, input.data(), size, target, &length));
  Require((converted != nullptr) == (measured > 0), "what can be measured can be converted");
  Require(length == (measured > 0 ? static_cast<uint32_t>(measured) : 0), "measuring and converting agree");
}

void CheckGuess(const std::string &text) {
  const Text converted(ZOR_NLS_TryConvertToUtf8(text.c_str()));
  Require(converted != nullptr, "every text is one of the last set");
  if (ZOR_NLS_IsStringUtf8(text.c_str()) != 0) {
    Require(text == converted.get(), "what the test for UTF-8 accepts is copied");
  } else {
    const auto length = static_cast<uint32_t>(std::strlen(converted.get()) + 1);
    Require(ZOR_NLS_ConvertGetLength("utf8", converted.get(), length, "utf8", 0) == static_cast<int32_t>(length),
            "a guess gives UTF-8");
  }
  const char *kept = ZOR_NLS_TryConvertToUtf8NoFree(text.c_str());
  Require(std::strcmp(ZOR_NLS_TryConvertToUtf8NoFree(kept), converted.get()) == 0, "a converted text stays");
}

std::string Encoded(const Units &units) {
  std::vector<char> output(3 * units.size() + 1);
  auto length = static_cast<uint32_t>(output.size());
  const auto count = static_cast<uint32_t>(units.size());
  Require(cl_ucs2ToUTF8(units.data(), count, output.data(), &length) == CL_OK, "units can be encoded");
  Require(length < output.size() && output[length] == '\0', "an encoded text is terminated");
  std::vector<char> cut(length / 2 + 2);
  Require(cl_ucs2ToUTF8ByLen(units.data(), count, cut.data(), length / 2 + 1) == CL_OK, "a part can be encoded");
  Require(std::strncmp(cut.data(), output.data(), std::strlen(cut.data())) == 0, "a part is the beginning");
  return {output.data(), length};
}

// The units up to the first zero one; at least one.
Units Decoded(const std::string &bytes) {
  Units units(bytes.size() + 1);
  uint32_t count = 1;
  if (cl_utf8ToUCS2(bytes.data(), static_cast<uint32_t>(bytes.size()), units.data(), &count) != CL_OK) return {0};
  Require(count <= bytes.size() && units[count] == 0, "there are no more units than bytes");
  units.erase(std::find(units.begin(), units.end(), 0) + 1, units.end());
  return units;
}

void CheckBytes(const std::string &bytes) {
  const auto size = static_cast<uint32_t>(bytes.size());
  std::vector<char> hex(2 * bytes.size() + 1), back(bytes.size());
  uint32_t length = 2 * size + 1, count = size, value;
  Require(cl_bytesToString(bytes.data(), size, hex.data(), &length) == CL_OK, "bytes have digits");
  Require(cl_stringToBytes(hex.data(), length, back.data(), &count) == CL_OK && count == size, "digits have bytes");
  Require(std::equal(back.begin(), back.end(), bytes.begin()), "bytes come back from digits");
  cl_stringToBytes(bytes.data(), size, back.data(), &count);
  for (const uint32_t base : {10u, 16u}) cl_stringToNumeric(bytes.data(), size, base, &value);
  Units units(bytes.size() / 2 + 1);
  count = static_cast<uint32_t>(units.size());
  Require(cl_byteOrderToWideChar(bytes.data(), size, units.data(), &count) == CL_OK, "bytes make units");
  length = 2 * count;
  if (count == 0) return;
  Require(cl_widecharToByteOrder(units.data(), count, units.data(), &length) == CL_OK, "units make bytes");
  Require(std::memcmp(units.data(), bytes.data(), length) == 0, "bytes come back from units");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 3) return 0;
  const std::string input(data + 2, data + size);
  CheckNamedSets(kSets[data[0] % kSets.size()], kSets[data[1] % kSets.size()], input);
  CheckGuess(input.c_str());
  const Units units = Decoded(input);
  Require(units.front() == 0 || Decoded(Encoded(units)) == units, "units come back from UTF-8");
  CheckBytes(input);
  return 0;
}
