#include <gtest/gtest.h>
#include <zor/url.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "support/capture.h"

// As in a Turkish locale, where 'I' is not the capital of 'i'.
extern "C" __attribute__((visibility("default"))) int strcasecmp(const char *a, const char *b) noexcept {
  return std::strcmp(a, b);
}

namespace {

// Copies a returned text and frees it.
std::string Take(char *text) {
  const std::string copy = text == nullptr ? "null" : text;
  std::free(text);
  return copy;
}

TEST(Url, IsTakenApart) {
  const struct {
    const char *url;
    uint32_t loose, port;
    const char *host, *path;
  } cases[] = {
      {" \t\r\nhttps://host/", 0, 443, "host", "/"},
      {"HTTP://[::1]:8080/a b", 1, 8080, "::1", "/a%20b"},
      {"HTTP://h/p?q=1#f%2f\xc3%", 0, 80, "h", "/p?q=1#f%2f%c3%25"},
      {"HTTP:///p", 0, 80, "", "/p"},
      {"HTTP://h: +80abc/x", 0, 80, "h", "/x"},
      {"HTTP://h/a:8080/b", 0, 8080, "h", "/a:8080/b"},
      {"HTTP://[abc]junk:8/x", 0, 8, "abc", "/x"},
      {"HTTP://[abc]junk:8/x", 1, 8, "[abc]", "/x"},
      {"HTTP://[a/b]/c", 0, 80, "a/b", "/c"},
  };
  for (const auto &c : cases) {
    uint32_t port = 0;
    char *host = nullptr, *path = nullptr;
    ASSERT_EQ(ZOR_UTIL_ParseUrlEx(c.url, nullptr, &host, &port, &path, c.loose), 1u) << c.url;
    EXPECT_EQ(port, c.port) << c.url;
    EXPECT_EQ(Take(host), c.host) << c.url;
    EXPECT_EQ(Take(path), c.path) << c.url;
  }
  for (const char *refused : {"HTTP://[::1]/a:b", "HTTP://host/a:b", "FTP://host:0/x", "FTP://host:65536/x",
                              "HTTP://h:4294967376/", "HTTP://h:", "GOPHER://h", "://h", "HTTP:/", "HTTP://[::1/x"}) {
    EXPECT_EQ(ZOR_UTIL_ParseUrl(refused, nullptr, nullptr, nullptr, nullptr), 0u) << refused;
  }
}

TEST(Url, StoresTheProtocolBeforeALaterStepFails) {
  int32_t protocol = -1;
  char untouched, *host = &untouched;
  EXPECT_EQ(ZOR_UTIL_ParseUrl("FTP://h:0", &protocol, &host, nullptr, nullptr), 0u);
  EXPECT_EQ(protocol, ZOR_URL_FTP);
  EXPECT_EQ(host, &untouched);
}

TEST(Url, KnowsTheDefaultPortsOfItsOwnAndOfAddedProtocols) {
  static constexpr const char *kNames[] = {"GOPHER", "IRC", nullptr};
  static constexpr uint32_t kPorts[] = {8000, 0};
  g_apcExtendProtocols = kNames;
  g_aulExtendPorts = kPorts;
  constexpr uint32_t kExpected[] = {0, 80, 443, 21, 63, 8000, 0, 0};  // from index -1 on
  for (int32_t i = 0; i < 8; ++i) EXPECT_EQ(ZOR_UTIL_GetDftPortByProtocolIdx(i - 1), kExpected[i]) << i - 1;
  uint32_t port = 0;
  EXPECT_EQ(ZOR_UTIL_ParseUrl("gopher://h", nullptr, nullptr, &port, nullptr), 1u);
  EXPECT_EQ(port, 8000u);
  EXPECT_EQ(ZOR_UTIL_ParseUrl("IRC://h", nullptr, nullptr, nullptr, nullptr), 0u) << "has no port of its own";
  EXPECT_EQ(ZOR_UTIL_GetProtocolTypeIdxFromStr("irc"), 5) << "in every locale";
}

TEST(Url, RefusesFourteenPrintableCharacters) {
  std::string refused;
  for (int c = -128; c < 128; ++c) {
    if (UtilIsValidUriCharacter(static_cast<char>(c)) == 0) refused += static_cast<char>(c);
  }
  EXPECT_EQ(refused, " #%<>[\\]^`{|}~");
}

TEST(Escaping, KeepsReservedCharactersAndExistingEscapes) {
  const struct {
    const char *text, *escaped, *form;
  } cases[] = {
      {"a b&c", "a%20b&c", "a+b%26c"},
      {"%2F%af%a", "%2F%af%25a", "%252F%25af%25a"},
      {"%%41%4", "%25%41%254", "%25%2541%254"},
      {"!#$&'()*+,/:;=?@-._~", "!#$&'()*+,/:;=?@-._~", "%21%23%24%26'()*%2B%2C%2F%3A%3B%3D%3F%40-._~"},
      {"\"<>[]\\^`{|}", "%22%3c%3e%5b%5d%5c%5e%60%7b%7c%7d", "%22%3C%3E%5B%5D%5C%5E%60%7B%7C%7D"},
      {"\x01\x7f\x80\xff", "%01%7f%80%ff", "%01%7F%80%FF"},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(Take(ZOR_UTIL_GetEscapedUri(c.text)), c.escaped);
    EXPECT_EQ(Take(ZOR_UTIL_UrlEncode(c.text)), c.form);
  }
}

TEST(Escaping, RefusesWhatCouldPassEightMebibytes) {
  const zor::test::Capture out;
  EXPECT_EQ(ZOR_UTIL_GetEscapedUri(std::string(2796203, 'a').c_str()), nullptr);
  const std::string blanks(0x800000, ' ');
  EXPECT_EQ(ZOR_UTIL_UrlEncode(blanks.c_str()), nullptr);
  EXPECT_EQ(Take(ZOR_UTIL_UrlEncode(blanks.c_str() + 1)).size(), 0x7fffffu) << "blanks do not grow";
}

}  // namespace
