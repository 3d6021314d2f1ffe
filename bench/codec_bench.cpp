// The codecs beside what a user would call instead, at equal work.
#include <ares.h>
#include <arpa/nameser.h>
#include <curl/curl.h>
#include <iconv.h>
#include <regex.h>
#include <resolv.h>
#include <zor/blur.h>
#include <zor/caltime.h>
#include <zor/charset.h>
#include <zor/dns.h>
#include <zor/url.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "harness.h"

namespace {

using namespace zor::bench;

constexpr std::size_t kCalls = 20000;

template <class Ours, class Theirs>
void Compare(const char *what, const Ours &ours, const Theirs &theirs) {
  std::vector<double> cost, ratio;
  for (int round = 0; round < kRounds; ++round) {
    const double other = TimeAll(kCalls, theirs);
    const double own = TimeAll(kCalls, ours);
    cost.push_back(own);
    ratio.push_back(own / other);
  }
  std::printf("%-44s %9.0f ns %7.2f\n", what, Median(cost), Median(ratio));
}

// A response of about 200 bytes: a question with a long name, five records whose names are pointers to it.
std::vector<unsigned char> Response() {
  std::vector<unsigned char> bytes = {0x12, 0x34, 0x81, 0x80, 0, 1, 0, 5, 0, 0, 0, 0};
  for (const int length : {30, 30, 30, 7, 4}) {
    bytes.push_back(static_cast<unsigned char>(length));
    bytes.insert(bytes.end(), static_cast<std::size_t>(length), 'a');
  }
  for (const int byte : {0, 0, 1, 0, 1}) bytes.push_back(static_cast<unsigned char>(byte));
  for (unsigned char i = 0; i < 5; ++i) {
    for (const int byte : {0xc0, 12, 0, 1, 0, 1, 0, 0, 0, 60, 0, 4, 192, 168, 8, int{i}}) {
      bytes.push_back(static_cast<unsigned char>(byte));
    }
  }
  return bytes;
}

DnsPacket *PacketOf(const std::vector<unsigned char> &bytes) {
  auto *packet = static_cast<DnsPacket *>(std::malloc(offsetof(DnsPacket, data) + bytes.size()));
  Require(packet != nullptr, "memory");
  packet->length = static_cast<std::uint32_t>(bytes.size());
  std::memcpy(packet->data, bytes.data(), bytes.size());
  return packet;
}

void Dns() {
  const std::vector<unsigned char> bytes = Response();
  const auto length = static_cast<int>(bytes.size());
  DnsPacket *packet = PacketOf(bytes);
  const auto walk = [&] {
    DnsRecordValues values;
    std::uint32_t used = 0;
    int records = 0;
    for (const std::uint8_t *at = ZOR_DNS_PacketGetFirstRR(packet); records < 5; ++records) {
      Require(ZOR_DNS_PacketGetValuesOfRR(packet, at, &values, &used) == ZOR_DNS_OK, "a record");
      at += used;
    }
  };
  Compare("DNS: walk 5 records, beside c-ares", walk, [&] {
    std::array<ares_addrttl, 5> addresses;
    int count = 5;
    Require(ares_parse_a_reply(bytes.data(), length, nullptr, addresses.data(), &count) == ARES_SUCCESS, "c-ares");
  });
  Compare("DNS: walk 5 records, beside ns_parserr", walk, [&] {
    ns_msg message;
    ns_rr record;
    Require(ns_initparse(bytes.data(), length, &message) == 0, "ns_initparse");
    for (int i = 0; i < 5; ++i) Require(ns_parserr(&message, ns_s_an, i, &record) == 0, "ns_parserr");
  });
  char name[ZOR_DNS_NAME_SIZE];
  Compare(
      "DNS: expand a name, beside dn_expand",
      [&] {
        std::uint32_t used;
        Require(ZOR_DNS_PacketGetName(packet, packet->data + 12, name, sizeof name, &used) == ZOR_DNS_OK, "a name");
      },
      [&] {
        Require(dn_expand(bytes.data(), bytes.data() + length, bytes.data() + 12, name, sizeof name) > 0, "dn_expand");
      });
  Compare(
      "DNS: build a query, beside c-ares", [] { std::free(ZOR_DNS_PacketBuildRequest("www.gateway.home")); },
      [] {
        unsigned char *query = nullptr;
        int size = 0;
        ares_create_query("www.gateway.home", 1, 1, 0, 1, &query, &size, 0);
        ares_free_string(query);
      });
  std::free(packet);
}

void Urls() {
  static constexpr char kUrl[] = "http://gateway.home:8080/lamp/state?room=cellar";
  Compare(
      "URL: parse with all parts, beside libcurl",
      [] {
        std::int32_t protocol;
        std::uint32_t port;
        char *host;
        char *path;
        Require(ZOR_UTIL_ParseUrl(kUrl, &protocol, &host, &port, &path) == 1, "a URL");
        std::free(host);
        std::free(path);
      },
      [] {
        CURLU *url = curl_url();
        Require(curl_url_set(url, CURLUPART_URL, kUrl, 0) == CURLUE_OK, "curl_url_set");
        for (const CURLUPart part : {CURLUPART_SCHEME, CURLUPART_HOST, CURLUPART_PORT, CURLUPART_PATH}) {
          char *text = nullptr;
          curl_url_get(url, part, &text, 0);
          curl_free(text);
        }
        curl_url_cleanup(url);
      });
  static constexpr char kText[] = "lamp in the cellar <on> & lamp in the kitchen {off} 100% ~ [end]";
  static_assert(sizeof kText == 65);
  CURL *curl = curl_easy_init();
  Compare(
      "URL: escape 64 bytes, beside curl_easy_escape", [] { std::free(ZOR_UTIL_GetEscapedUri(kText)); },
      [&] { curl_free(curl_easy_escape(curl, kText, 64)); });
  curl_easy_cleanup(curl);
}

void Charsets() {
  std::array<std::uint16_t, 200> units;
  for (std::size_t i = 0; i < units.size(); ++i)
    units[i] = static_cast<std::uint16_t>(i % 4 == 0 ? 0x4f60 : 'a' + i % 26);
  std::array<char, 601> utf8;
  std::uint32_t length = utf8.size();
  cl_ucs2ToUTF8(units.data(), units.size(), utf8.data(), &length);
  const iconv_t encode = ::iconv_open("UTF-8", "UCS-2LE");
  const iconv_t decode = ::iconv_open("UCS-2LE", "UTF-8");
  std::array<char, 1024> out;
  const auto convert = [&](iconv_t handle, void *from, std::size_t size) {
    auto *input = static_cast<char *>(from);
    char *output = out.data();
    std::size_t room = out.size();
    Require(::iconv(handle, &input, &size, &output, &room) == 0, "iconv");
  };
  Compare(
      "UCS-2 to UTF-8, 200 units, beside iconv",
      [&] {
        std::uint32_t room = utf8.size();
        cl_ucs2ToUTF8(units.data(), units.size(), utf8.data(), &room);
      },
      [&] { convert(encode, units.data(), sizeof units); });
  std::array<std::uint16_t, 601> decoded;
  Compare(
      "UTF-8 to UCS-2, the same, beside iconv",
      [&] {
        std::uint32_t count = decoded.size();
        cl_utf8ToUCS2(utf8.data(), length, decoded.data(), &count);
      },
      [&] { convert(decode, utf8.data(), length); });
  ::iconv_close(encode);
  ::iconv_close(decode);
}

void Texts() {
  const std::string line = std::string(90, 'x') + " 00:11:22:33:44:55 " + std::string(91, 'y');
  regex_t mac;
  Require(::regcomp(&mac, "([0-9A-Fa-f]{2}[:-]){5}([0-9A-Fa-f]{2})", REG_EXTENDED) == 0, "regcomp");
  Compare(
      "mask 200 characters with a MAC, beside regexec", [&] { ZOR_Blur_Mac(line.c_str()); },
      [&] {
        regmatch_t match;
        Require(::regexec(&mac, line.c_str(), 1, &match, 0) == 0, "regexec");
      });
  ::regfree(&mac);
  Compare(
      "parse a time text, beside strptime",
      [] {
        ZOR_CAL_TIME time;
        ZOR_UTIL_UCTTimeFormatCheck("2020-01-31T08:05:00Z", &time);
      },
      [] {
        struct tm time = {};
        ::strptime("2020-01-31T08:05:00Z", "%Y-%m-%dT%H:%M:%SZ", &time);
      });
}

}  // namespace

int main() {
  PinToOneProcessor();
  std::printf("codecs (median of %d rounds)\n", kRounds);
  Dns();
  Urls();
  Charsets();
  Texts();
  return 0;
}
