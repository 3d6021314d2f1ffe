#include <gtest/gtest.h>
#include <zor/charset.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "support/capture.h"

namespace {

struct Free {
  void operator()(char *text) const { std::free(text); }
};
using Text = std::unique_ptr<char, Free>;

constexpr char kHelloGbk[] = "\xc4\xe3\xba\xc3";
constexpr char kHelloUtf8[] = "\xe4\xbd\xa0\xe5\xa5\xbd";

TEST(Charset, TurnsTextsOfUnknownSetsIntoUtf8) {
  EXPECT_STREQ(Text(ZOR_NLS_TryConvertToUtf8(kHelloGbk)).get(), kHelloUtf8);
  EXPECT_STREQ(Text(ZOR_NLS_TryConvertToUtf8(kHelloUtf8)).get(), kHelloUtf8);
  std::array<char, 16> emoji = {};
  uint32_t length = emoji.size();
  const std::array<uint16_t, 2> pair = {0xd83d, 0xde00};
  ASSERT_EQ(cl_ucs2ToUTF8(pair.data(), pair.size(), emoji.data(), &length), CL_OK);
  for (const char *text : std::initializer_list<const char *>{emoji.data(), "\xc1\x81\xe0\x80\x80", "plain", ""}) {
    EXPECT_STREQ(Text(ZOR_NLS_TryConvertToUtf8(text)).get(), text) << "what the test for UTF-8 accepts is copied";
  }
  EXPECT_STREQ(Text(ZOR_NLS_TryConvertToUtf8("\xf0\x9f\x98\x80")).get(), "\xf0\x9f\x98\x80");
  EXPECT_EQ(ZOR_NLS_TryConvertToUtf8(nullptr), nullptr);
  const char *kept = ZOR_NLS_TryConvertToUtf8NoFree(kHelloGbk);
  EXPECT_STREQ(ZOR_NLS_TryConvertToUtf8NoFree(kept), kHelloUtf8) << "the kept text may be the argument";
}

TEST(Charset, MeasuresAndConvertsAlikeAlsoBadInputButNothingAboveTheAllocationLimit) {
  EXPECT_EQ(ZOR_NLS_ConvertGetLength("cp936", kHelloGbk, 4, "utf8", 0), 6);
  EXPECT_EQ(ZOR_NLS_ConvertGetLength("utf8", kHelloGbk, 4, "cp936", 0), -1);
  for (const char *set : {"nonsense", "", "//TRANSLIT", " ", ",", "\t//"}) {
    EXPECT_EQ(ZOR_NLS_ConvertGetLength(set, "a", 1, "utf8", 1), -1) << set;
    EXPECT_EQ(ZOR_NLS_ConvertGetLength("utf8", "a", 1, set, 1), -1) << set;
  }
  const std::string bad = "a\xff" + std::string(5000, 'b') + "\xe4\xbd";
  const int32_t length = ZOR_NLS_ConvertGetLength("utf8", bad.data(), static_cast<uint32_t>(bad.size()), "utf8", 1);
  uint32_t produced = 7;
  const Text converted(ZOR_NLS_ConvertString("utf8", bad.data(), static_cast<uint32_t>(bad.size()), "utf8", &produced));
  EXPECT_EQ(produced, 5001u);
  EXPECT_EQ(length, 5001);
  EXPECT_EQ(std::string(converted.get(), produced), "a" + std::string(5000, 'b'));
  EXPECT_EQ(ZOR_NLS_ConvertString("utf8", "\xff", 1, "utf8", &produced), nullptr);
  EXPECT_EQ(produced, 0u);
  EXPECT_STREQ(Text(ZOR_NLS_ConvertString("utf-16le", "a\0\0\xe0", 4, "cp936", &produced)).get(), "a");
  EXPECT_EQ(produced, 1u) << "refused input behind an output that is full";
  EXPECT_STREQ(Text(ZOR_NLS_ConvertString("utf-16le", "a\0\0\xe0z\0\0", 8, "cp936", nullptr)).get(), "az")
      << "refused characters are left out whole";
  EXPECT_STREQ(Text(ZOR_NLS_IconvConvert(kHelloUtf8, "cp936", "utf8")).get(), kHelloGbk);
  const std::string huge(0x800000 / 2 + 1, '\xe9');
  zor::test::Capture out;
  EXPECT_EQ(ZOR_NLS_ConvertString("iso8859-1", huge.data(), static_cast<uint32_t>(huge.size()), "utf8", nullptr),
            nullptr);
  EXPECT_EQ(out.Text(), "error: not host tool, but malloc 4M, return NULL, malloc len=8388610\n");
}

TEST(Charset, CountsTheShiftBackOfAStatefulSetWhereverThePiecesOfMeasuringEnd) {
  for (int characters = 500; characters < 520; ++characters) {
    std::string text;
    for (int i = 0; i < characters; ++i) text += "\xe3\x81\x82";
    uint32_t produced = 0;
    const Text converted(
        ZOR_NLS_ConvertString("utf8", text.data(), static_cast<uint32_t>(text.size()), "iso-2022-jp", &produced));
    EXPECT_EQ(produced, 3u + 2u * static_cast<uint32_t>(characters) + 3u);
  }
}

TEST(Charset, TellsUtf8OfUpToThreeBytes) {
  for (const char *text : {"", "plain", "\xc3\xa9", kHelloUtf8, "\xc0\x80", "\xed\xa0\x80"}) {
    EXPECT_EQ(ZOR_NLS_IsStringUtf8(text), 1u) << text;
  }
  EXPECT_EQ(ZOR_NLS_IsStringUtf8(nullptr), 1u);
  for (const char *text : {"\xf0\x9f\x98\x80", "\x80", "\xe4", "\xe4\xbd", "a\xc3", "\xc3z", kHelloGbk}) {
    EXPECT_EQ(ZOR_NLS_IsStringUtf8(std::string(text).c_str()), 0u) << text;
  }
}

TEST(Ucs2, EncodesUnitsOneByOne) {
  const uint16_t units[] = {'a', 0xe9, 0x4f60, 0xd83d, 0, 'z'};
  char out[32];
  uint32_t length = 6;
  EXPECT_EQ(cl_ucs2ToUTF8(units, 6, out, &length), CL_OK);
  EXPECT_EQ(std::string(out), "a\xc3\xa9\xe4\xbd\xa0\xed\xa0\xbd");
  EXPECT_EQ(length, 9u);
  length = 1;
  EXPECT_EQ(cl_ucs2ToUTF8(units + 2, 1, out, &length), CL_OK) << "the room is compared with the units";
  EXPECT_EQ(length, 3u);
  length = 1;
  EXPECT_EQ(cl_ucs2ToUTF8(units, 2, out, &length), CL_E_ROOM);
}

TEST(Ucs2, StopsBeforeTheFirstCharacterThatDoesNotFit) {
  const uint16_t units[] = {'a', 0x4f60, '!'};
  for (uint32_t size = 1; size <= 5; ++size) {
    const std::string whole = "a\xe4\xbd\xa0!";
    std::vector<char> out(size + 1, 'x');
    EXPECT_EQ(cl_ucs2ToUTF8ByLen(units, 3, out.data(), size), CL_OK);
    EXPECT_EQ(out.data(), whole.substr(0, size < 4 ? 1 : size));
  }
}

TEST(Ucs2, DecodesUtf8WithoutCheckingFollowingBytes) {
  const struct {
    std::string bytes;
    uint32_t status;
    std::vector<uint16_t> units;
  } cases[] = {
      {"\xe4\xbd\xa0", CL_OK, {0x4f60}},
      {"a" + std::string(1, '\0') + "b", CL_OK, {'a'}},
      {std::string("\xe4\x00\xa0", 3), CL_OK, {0x4020}},
      {"\xf0\x9f\x98\x80", CL_OK, {0xf600}},
      {"\xfd\xbf\xbf\xbf\xbf\xbf", CL_OK, {0xffff}},
      {"\xe4\xbd", CL_OK, {0x4f40}},
      {"a\x80", CL_E_LEAD_BYTE, {}},
  };
  for (const auto &c : cases) {
    std::vector<uint16_t> units(c.bytes.size() + 1, 7);
    uint32_t count = 1;
    EXPECT_EQ(cl_utf8ToUCS2(c.bytes.data(), static_cast<uint32_t>(c.bytes.size()), units.data(), &count), c.status);
    if (c.status != CL_OK) continue;
    EXPECT_EQ(std::vector<uint16_t>(units.begin(), units.begin() + count), c.units);
    EXPECT_EQ(units[count], 0);
  }
  uint16_t unit;
  uint32_t count = 0;
  EXPECT_EQ(cl_utf8ToUCS2("a", 1, &unit, &count), CL_E_ROOM);
}

TEST(ByteOrder, SwapsBothWaysInPlace) {
  uint16_t units[4] = {0x1234, 0x00ff, 0, 9};
  uint32_t length = 4;
  EXPECT_EQ(cl_widecharToByteOrder(units, 2, units, &length), CL_OK);
  EXPECT_EQ(length, 4u);
  EXPECT_EQ(std::memcmp(units, "\x12\x34\x00\xff", 4), 0);
  uint32_t count = 3;
  EXPECT_EQ(cl_byteOrderToWideChar(units, 5, units, &count), CL_OK);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(std::vector<uint16_t>(units, units + 3), (std::vector<uint16_t>{0x1234, 0x00ff, 0}));
  EXPECT_EQ(cl_byteOrderToWideChar(units, 4, units, &count), CL_E_ROOM);
  length = 3;
  EXPECT_EQ(cl_widecharToByteOrder(units, 2, units, &length), CL_E_ROOM);
  length = UINT32_MAX;
  EXPECT_EQ(cl_widecharToByteOrder(units, 0x80000000u, units, &length), CL_E_ROOM) << "twice the count wraps";
}

TEST(HexText, RoundTripsAndChecksTheRoom) {
  const unsigned char bytes[] = {0x0a, 0xff};
  char text[5];
  uint32_t length = sizeof text;
  EXPECT_EQ(cl_bytesToString(bytes, 2, text, &length), CL_OK);
  EXPECT_STREQ(text, "0AFF");
  EXPECT_EQ(length, 4u);
  EXPECT_EQ(cl_bytesToString(bytes, 2, text, &length), CL_E_ROOM);
  unsigned char back[3] = {};
  uint32_t count = 2;
  EXPECT_EQ(cl_stringToBytes("0aff7", 5, back, &count), CL_OK);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(std::memcmp(bytes, back, 2), 0);
  EXPECT_EQ(cl_stringToBytes("0a\0ff0", 6, back, &(count = 3)), CL_OK);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(cl_stringToBytes("0aff77", 6, back, &(count = 2)), CL_E_ROOM);
}

TEST(Number, ReportsBadCharactersByBase) {
  uint32_t value = 7;
  EXPECT_EQ(cl_stringToNumeric("1x2", 3, 10, &value), CL_E_ARGUMENT);
  EXPECT_EQ(value, 12u);
  EXPECT_EQ(cl_stringToNumeric("1x2", 3, 16, &value), CL_OK);
  EXPECT_EQ(value, 0x12u);
  EXPECT_EQ(cl_stringToNumeric("12x", 3, 16, &value), CL_E_ARGUMENT);
  EXPECT_EQ(cl_stringToNumeric("4294967297", 10, 10, &value), CL_OK);
  EXPECT_EQ(value, 1u);
  EXPECT_EQ(cl_stringToNumeric("1", 1, 8, &value), CL_E_BASE);
}

}  // namespace
