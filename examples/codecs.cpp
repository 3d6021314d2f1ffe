// A tour of the codecs, which need neither bus nor loop. The exit status is 0 when every one gave what it should.
#include <zor/blur.h>
#include <zor/charset.h>
#include <zor/dns.h>
#include <zor/url.h>
#include <zor/wlan.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

namespace {

struct FreeBlock {
  void operator()(void *block) const { std::free(block); }
};
template <class T>
using Owned = std::unique_ptr<T, FreeBlock>;

int failures = 0;

void Check(bool good, const std::string &what) {
  std::printf("%s %s\n", good ? "ok" : "FAILED", what.c_str());
  if (!good) ++failures;
}

Owned<DnsPacket> PacketOf(std::string_view message) {
  Owned<DnsPacket> packet(static_cast<DnsPacket *>(std::malloc(offsetof(DnsPacket, data) + message.size())));
  if (packet == nullptr) std::abort();
  packet->length = static_cast<uint32_t>(message.size());
  std::memcpy(packet->data, message.data(), message.size());
  return packet;
}

// A query is answered from a stored record, and the answer taken apart again.
void Dns() {
  using namespace std::string_view_literals;
  const Owned<DnsPacket> query = PacketOf("\x12\x34\1\0\0\1\0\0\0\0\0\0\4lamp\4home\0\0\1\0\1"sv);
  const std::array<uint8_t, 4> address = {192, 168, 8, 7};
  DnsRecordValues stored = {};
  std::strcpy(stored.name, "lamp.home");
  stored.type = 1;
  stored.qclass = 1;
  stored.ttl = 60;
  stored.rdlength = address.size();
  stored.rdata = address.data();
  const Owned<DnsPacket> answer(ZOR_DNS_PacketBuildResponse(query.get(), &stored, 0));
  DnsRecordValues read = {};
  uint32_t length = 0;
  const uint8_t *record = ZOR_DNS_PacketGetFirstRR(answer.get());
  const bool good = ZOR_DNS_PacketGetValuesOfRR(answer.get(), record, &read, &length) == ZOR_DNS_OK &&
                    read.rdlength == address.size() && std::memcmp(read.rdata, address.data(), address.size()) == 0;
  Check(good,
        "DNS answer: " + std::to_string(read.ttl) + " s for " + std::to_string(read.rdlength) + " bytes of address");
}

void Url() {
  int32_t protocol = 0;
  uint32_t port = 0;
  char *host = nullptr;
  char *path = nullptr;
  const uint32_t parsed = ZOR_UTIL_ParseUrl("http://gateway.home:8080/lamp state", &protocol, &host, &port, &path);
  const Owned<char> hostOwner(host);
  const Owned<char> pathOwner(path);
  Check(parsed == 1 && port == 8080 && std::string_view(path) == "/lamp%20state",
        std::string("URL: ") + ZOR_UTIL_GetProtocolTypeStrFromIdx(protocol) + ' ' + host + ' ' + std::to_string(port) +
            ' ' + path);
}

void Charset() {
  const Owned<char> text(ZOR_NLS_TryConvertToUtf8("\xc4\xe3\xba\xc3"));
  Check(text != nullptr && std::string_view(text.get()) == "\xe4\xbd\xa0\xe5\xa5\xbd",
        std::string("a GBK text as UTF-8: ") + text.get());
}

void Masking() {
  char name[] = "/tmp/zor-codecs.XXXXXX";
  const int fd = ::mkstemp(name);
  if (fd < 0) std::abort();
  std::ofstream(name) << "lease 192.168.8.7 for 00:11:22:33:44:55";
  ZOR_Blur_File(name);
  std::stringstream masked;
  masked << std::ifstream(name).rdbuf();
  std::remove(name);
  Check(masked.str() == "lease 192.***.*.7 for 00:**:**:33:**:55", "a log file masked in place: " + masked.str());
}

void InterfaceMacs() {
  const std::array<uint8_t, 6> base = {0, 0x11, 0x22, 0x33, 0x44, 0x55};
  std::array<uint8_t, 6> wlan = {};
  std::array<uint8_t, 6> wlan5g = {};
  ZOR_WLAN_GetWlanMacFromBaseMac(base.data(), wlan.data(), wlan.size());
  ZOR_WLAN_GetWlan5gMacFromBaseMac(base.data(), wlan5g.data(), wlan5g.size());
  char text[64];
  std::snprintf(text, sizeof text, "base ..:%02x, WLAN ..:%02x, 5 GHz ..:%02x", base[5], wlan[5], wlan5g[5]);
  Check(wlan[5] == 0x5c && wlan5g[5] == 0x60, std::string("interface addresses: ") + text);
}

}  // namespace

int main() {
  Dns();
  Url();
  Charset();
  Masking();
  InterfaceMacs();
  return failures == 0 ? 0 : 1;
}
