#include <gtest/gtest.h>
#include <zor/platform/text.h>

#include <cstdlib>
#include <string>

namespace {

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
  for (const char *wrong : {"Z", "Zg", "Zg=", "Zg==x", "Z-8=", "=", "Zh=="}) {
    uint32_t length = 99;
    EXPECT_EQ(ZOR_UTIL_Base64Decode(wrong, &length), nullptr) << wrong;
    EXPECT_EQ(length, 0u);
  }
}

}  // namespace
