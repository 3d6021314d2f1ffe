#include <gtest/gtest.h>
#include <zor/platform/text.h>

#include <cstdlib>
#include <string>

namespace {

TEST(Tables, FindWholeTextsWithoutRegardToCase) {
  const char *const names[] = {"HTTP", "HTTPS", nullptr};
  EXPECT_EQ(ZOR_UTIL_GetIdxFromStr(names, "https"), 1);
  for (const char *text : {"HTT", "", "HTTPSS"}) EXPECT_EQ(ZOR_UTIL_GetIdxFromStr(names, text), -1) << text;
  EXPECT_EQ(ZOR_UTIL_GetIdxFromStr(names, nullptr), -1);
  EXPECT_STREQ(ZOR_UTIL_GetStrFromIdx(names, 1), "HTTPS");
  for (int32_t index : {-1, 2, 3, INT32_MAX}) EXPECT_EQ(ZOR_UTIL_GetStrFromIdx(names, index), nullptr) << index;

  const ZOR_STR_IDX pairs[] = {{"none", 0}, {nullptr, 8}, {"info", 8}};
  EXPECT_EQ(ZOR_UTIL_StrIdxArrayGetIdxByStr(pairs, 3, "INFO"), 8);
  EXPECT_EQ(ZOR_UTIL_StrIdxArrayGetIdxByStr(pairs, 2, "INFO"), -1);
  EXPECT_STREQ(ZOR_UTIL_StrIdxArrayGetStrByIdx(pairs, 3, 0), "none");
  EXPECT_EQ(ZOR_UTIL_StrIdxArrayGetStrByIdx(pairs, 3, 7), nullptr);
}

TEST(Base64, TurnsBytesIntoTextAndBack) {
  const struct {
    std::string bytes;
    const char *text;
  } cases[] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {std::string("\xfb\xff\0\xbf", 4), "+/8Avw=="}};
  for (const auto &each : cases) {
    char *text = ZOR_UTIL_Base64Encode(each.bytes.data(), static_cast<uint32_t>(each.bytes.size()));
    EXPECT_STREQ(text, each.text);
    std::free(text);
    uint32_t length = 99;
    char *bytes = ZOR_UTIL_Base64Decode(each.text, &length);
    EXPECT_EQ(std::string(bytes, length + 1), each.bytes + '\0');
    std::free(bytes);
  }
  const std::string longest(300, 'x');
  char *text = ZOR_UTIL_Base64Encode(longest.data(), 300);
  EXPECT_EQ(std::string(text).find('\n'), std::string::npos);
  std::free(text);
  for (const char *wrong : {"Z", "Zg", "Zg=", "Zg==x", "Z-8=", "=", "Zh=="}) {
    uint32_t length = 99;
    EXPECT_EQ(ZOR_UTIL_Base64Decode(wrong, &length), nullptr) << wrong;
    EXPECT_EQ(length, 0u);
  }
}

TEST(Separators, AreLeftOutAndTheRestIsCutToItsField) {
  char out[7];
  EXPECT_EQ(ZOR_UTIL_Strip_Separator("00:11:22:", ':', out, sizeof out), 0u);
  EXPECT_STREQ(out, "001122");
  EXPECT_EQ(ZOR_UTIL_Strip_Separator("00:11:22:3", ':', out, sizeof out), 1u);
  EXPECT_STREQ(out, "001122");
  EXPECT_EQ(ZOR_UTIL_Strip_Separator(nullptr, ':', out, sizeof out), 1u);
  EXPECT_EQ(ZOR_UTIL_Strip_Separator("x", ':', out, 0), 1u);
}

}  // namespace
