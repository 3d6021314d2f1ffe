#include <gtest/gtest.h>
#include <zor/status.h>
#include <zor/url.h>

#include <memory>
#include <string>

namespace {

using Codec = uint32_t (*)(const char *, char *, uint32_t);

// Each in a field of exactly its size, and in one that is a byte short.
TEST(PathCodec, TurnsPathsIntoTokensAndBack) {
  const struct {
    Codec codec;
    const char *input, *output;  // output null: refused
  } cases[] = {
      {ZOR_UTIL_EncodePath, "/mnt/usb1/a", "-dXNiMQ==-YQ=="},
      {ZOR_UTIL_EncodePath, "usb1//a/", "-dXNiMQ==-YQ=="},
      {ZOR_UTIL_EncodePath, "/usb/mnt/x", "-bW50-eA=="},
      {ZOR_UTIL_EncodePath, "/mntx", "-eA=="},
      {ZOR_UTIL_EncodePath, "/mnt/", "/mnt"},
      {ZOR_UTIL_EncodePath, "/mnt/\xfb\xef\xbe", "-++++"},
      {ZOR_UTIL_DecodePath, "-dXNiMQ==-YQ==", "/mnt/usb1/a"},
      {ZOR_UTIL_DecodePath, "-+ + ", "/mnt/\xfb\xef\xbe"},
      {ZOR_UTIL_DecodePath, "-Li4=", "/mnt/.."},
      {ZOR_UTIL_DecodePath, "-", "/mnt"},
      {ZOR_UTIL_DecodePath, "/mnt", nullptr},
      {ZOR_UTIL_DecodePath, "-YQ==-?", nullptr},
      {ZOR_UTIL_DecodePath, "-AGE=", nullptr},
  };
  for (const auto &c : cases) {
    const std::string expected = c.output == nullptr ? std::string(64, ' ') : c.output;
    for (const size_t shortage : {0u, 1u}) {
      const size_t size = expected.size() + 1 - shortage;
      const auto field = std::make_unique<char[]>(size);
      const bool succeeds = c.output != nullptr && shortage == 0;
      const uint32_t status = c.codec(c.input, field.get(), static_cast<uint32_t>(size));
      EXPECT_EQ(status, succeeds ? ZOR_OK : ZOR_E_ARGUMENT) << c.input;
      EXPECT_EQ(std::string(field.get()) == expected, succeeds) << c.input << ": " << field.get();
    }
  }
}

}  // namespace
