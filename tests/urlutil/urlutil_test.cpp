#include <gtest/gtest.h>
#include <zor/url.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "support/capture.h"

namespace {

// Takes a text that is returned, and frees it.
std::string Take(char *text) {
  const std::string copy = text == nullptr ? "null" : text;
  std::free(text);
  return copy;
}

TEST(Protocols, AreFoundWholeWithoutRegardToCase) {
  static const char *const names[] = {"RTSP", "WS", "", nullptr};
  static const uint32_t ports[] = {8000, 0, 9};
  for (const bool extended : {false, true}) {
    g_apcExtendProtocols = extended ? names : nullptr;
    g_aulExtendPorts = extended ? ports : nullptr;
    const struct {
      const char *name;
      int32_t index;
      uint32_t port;
    } cases[] = {{"HTTP", 0, 80},
                 {"HTTPS", 1, 443},
                 {"FTP", 2, 21},
                 {"TFTP", 3, 63},
                 {"RTSP", extended ? 4 : -1, extended ? 8000u : 0},
                 {"WS", extended ? 5 : -1, 0}};
    for (const auto &c : cases) {
      EXPECT_EQ(ZOR_UTIL_GetProtocolTypeIdxFromStr(c.name), c.index) << c.name;
      EXPECT_EQ(ZOR_UTIL_GetDftPortByProtocolIdx(c.index), c.port) << c.name;
      EXPECT_STREQ(ZOR_UTIL_GetProtocolTypeStrFromIdx(c.index), c.index < 0 ? nullptr : c.name);
    }
    EXPECT_EQ(ZOR_UTIL_GetProtocolTypeIdxFromStr("https"), 1);
    EXPECT_EQ(ZOR_UTIL_GetProtocolTypeIdxFromStr("HTT"), -1);
    EXPECT_EQ(ZOR_UTIL_GetProtocolTypeIdxFromStr(nullptr), -1);
    EXPECT_EQ(ZOR_UTIL_GetProtocolTypeStrFromIdx(99), nullptr);
    EXPECT_EQ(ZOR_UTIL_GetDftPortByProtocolIdx(6), 0u) << "behind the zero that ends the ports";
  }
}

struct UrlCase {
  const char *url;
  uint32_t loose;
  uint32_t port;  // 0: refused
  const char *host;
  const char *path;
};

TEST(Url, IsTakenApart) {
  const UrlCase cases[] = {
      {"HTTP://host", 0, 80, "host", "null"},
      {" \t\r\nhttps://host/", 0, 443, "host", "/"},
      {"TFTP://h", 0, 63, "h", "null"},
      {"HTTP://[::1]:8080/a b", 0, 8080, "::1", "/a%20b"},
      {"HTTP://h/p?q=1#f%2f\xc3%", 0, 80, "h", "/p?q=1#f%2f%c3%25"},
      {"HTTP:///p", 0, 80, "", "/p"},
      {"HTTP://", 0, 80, "", "null"},
      {"HTTP://h: +80abc/x", 0, 80, "h", "/x"},
      {"HTTP://h:65535", 0, 65535, "h", "null"},
      {"HTTP://h/a:8080/b", 0, 8080, "h", "/a:8080/b"},
      {"HTTP://[::1]/a:b", 0, 0, "", ""},
      {"HTTP://host/a:b", 0, 0, "", ""},
      {"FTP://host:0/x", 0, 0, "", ""},
      {"FTP://host:65536/x", 0, 0, "", ""},
      {"HTTP://h:4294967376/", 0, 0, "", ""},
      {"HTTP://h:-1/", 0, 0, "", ""},
      {"HTTP://h:", 0, 0, "", ""},
      {"HTTP:/h", 0, 0, "", ""},
      {"GOPHER://h", 0, 0, "", ""},
      {"://h", 0, 0, "", ""},
      {"", 0, 0, "", ""},
      {"HTTP://[::1/x", 0, 0, "", ""},
      {"HTTP://[::1/x", 1, 0, "", ""},  // an ordinary host now, and ":1/x" its port
      {"HTTP://[h:8/x", 1, 8, "[h", "/x"},
      {"HTTP://[abc]junk:8/x", 0, 8, "abc", "/x"},
      {"HTTP://[abc]junk:8/x", 1, 8, "[abc]", "/x"},
      {"HTTP://[fe80::1]", 1, 80, "fe80::1", "null"},
      {"HTTP://[a/b]/c", 0, 80, "a/b", "/c"},
  };
  for (const UrlCase &c : cases) {
    uint32_t port = 0;
    char *host = nullptr, *path = nullptr;
    const uint32_t result = ZOR_UTIL_ParseUrlEx(c.url, nullptr, &host, &port, &path, c.loose);
    ASSERT_EQ(result, c.port == 0 ? 0u : 1u) << c.url;
    EXPECT_EQ(ZOR_UTIL_ParseUrlEx(c.url, nullptr, nullptr, nullptr, nullptr, c.loose), result);
    if (result == 0) continue;
    EXPECT_EQ(port, c.port) << c.url;
    EXPECT_EQ(Take(host), c.host) << c.url;
    EXPECT_EQ(Take(path), c.path) << c.url;
  }
}

TEST(Url, StoresProtocolAndPortBeforeALaterStepFails) {
  int32_t protocol = -1;
  uint32_t port = 0;
  char untouched, *host = &untouched, *path = &untouched;
  EXPECT_EQ(ZOR_UTIL_ParseUrl("FTP://h:0", &protocol, &host, &port, &path), 0u);
  EXPECT_EQ(protocol, ZOR_URL_FTP);
  EXPECT_EQ(host, &untouched);
  zor::test::Capture out;
  const std::string tooLong = "HTTPS://h:7/" + std::string(0x800000 / 3, 'p');
  EXPECT_EQ(ZOR_UTIL_ParseUrl(tooLong.c_str(), nullptr, nullptr, &port, &path), 0u);
  EXPECT_EQ(port, 7u);
  EXPECT_EQ(ZOR_UTIL_ParseUrl(tooLong.c_str(), &protocol, &host, nullptr, &path), 0u);
  EXPECT_EQ(protocol, ZOR_URL_HTTPS);
  EXPECT_EQ(host, nullptr);
  EXPECT_EQ(path, nullptr);
}

TEST(Escaping, KeepsReservedCharactersAndExistingEscapes) {
  const struct {
    const char *text, *escaped, *form;
  } cases[] = {
      {"", "/", ""},
      {"a b&c", "a%20b&c", "a+b%26c"},
      {"%2F%af%a", "%2F%af%25a", "%252F%25af%25a"},
      {"%%41%4", "%25%41%254", "%25%2541%254"},
      {"!#$&'()*+,/:;=?@-._~", "!#$&'()*+,/:;=?@-._~", "%21%23%24%26'()*%2B%2C%2F%3A%3B%3D%3F%40-._~"},
      {"\"<>[]\\^`{|}", "%22%3c%3e%5b%5d%5c%5e%60%7b%7c%7d", "%22%3C%3E%5B%5D%5C%5E%60%7B%7C%7D"},
      {"\x01\x7f\x80\xff", "%01%7f%80%ff", "%01%7F%80%FF"},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(Take(ZOR_UTIL_GetEscapedUri(c.text)), c.escaped);
    zor::test::Capture out;
    EXPECT_EQ(Take(ZOR_UTIL_UrlEncode(c.text)), c.form);
    EXPECT_EQ(out.Text(), "urlencode dst len " + std::to_string(std::strlen(c.form) + 1) + ".\n");
  }
  EXPECT_EQ(Take(ZOR_UTIL_GetEscapedUri(nullptr)), "/");
  EXPECT_EQ(ZOR_UTIL_UrlEncode(nullptr), nullptr);

  std::string invalid;
  for (int c = 0; c < 256; ++c) {
    if (UtilIsValidUriCharacter(static_cast<char>(c)) == 0) invalid += static_cast<char>(c);
  }
  EXPECT_EQ(invalid, " #%<>[\\]^`{|}~");
}

TEST(Escaping, RefusesWhatCouldPassEightMebibytes) {
  const std::string refused = "error: not host tool, but malloc 4M, return NULL, malloc len=";
  zor::test::Capture out;
  const std::string text(2796203, 'a');
  EXPECT_EQ(ZOR_UTIL_GetEscapedUri(text.c_str()), nullptr);
  EXPECT_EQ(Take(ZOR_UTIL_GetEscapedUri(text.c_str() + 1)).size(), 2796202u);
  EXPECT_EQ(out.Text(), refused + "8388610\n");
  const std::string blanks(0x800000, ' ');
  EXPECT_EQ(ZOR_UTIL_UrlEncode(blanks.c_str()), nullptr);
  EXPECT_EQ(Take(ZOR_UTIL_UrlEncode(blanks.c_str() + 1)).size(), 0x7fffffu);
  EXPECT_EQ(out.Text(),
            refused + "8388610\nurlencode dst len 8388609.\n" + refused + "8388609\nurlencode dst len 8388608.\n");
}

}  // namespace
