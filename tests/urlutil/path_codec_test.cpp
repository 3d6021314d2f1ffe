#include <gtest/gtest.h>
#include <zor/status.h>
#include <zor/url.h>

#include <string>

namespace {

using Codec = uint32_t (*)(const char *, char *, uint32_t);

TEST(PathCodec, TurnsPathsIntoTokensAndBack) {
  const struct {
    Codec codec;
    const char *input, *output;  // output null: refused
  } cases[] = {
      {ZOR_UTIL_EncodePath, "usb1//a/", "-dXNiMQ==-YQ=="},
      {ZOR_UTIL_EncodePath, "/usb/mnt/x", "-bW50-eA=="},
      {ZOR_UTIL_EncodePath, "/mntx", "-eA=="},
      {ZOR_UTIL_EncodePath, "/mnt/", "/mnt"},
      {ZOR_UTIL_EncodePath, "/mnt/\xfb\xef\xbe", "-++++"},
      {ZOR_UTIL_DecodePath, "-dXNiMQ==-YQ==", "/mnt/usb1/a"},
      {ZOR_UTIL_DecodePath, "-+ + ", "/mnt/\xfb\xef\xbe"},
      {ZOR_UTIL_DecodePath, "-Li4=", "/mnt/.."},
      {ZOR_UTIL_DecodePath, "/mnt", nullptr},
      {ZOR_UTIL_DecodePath, "-YQ==-?", nullptr},
      {ZOR_UTIL_DecodePath, "-AGE=", nullptr},
  };
  for (const auto &c : cases) {
    char field[32];
    EXPECT_EQ(c.codec(c.input, field, sizeof field), c.output == nullptr ? ZOR_E_ARGUMENT : ZOR_OK) << c.input;
    EXPECT_TRUE(c.output == nullptr || std::string(field) == c.output) << c.input;
  }
}

}  // namespace
