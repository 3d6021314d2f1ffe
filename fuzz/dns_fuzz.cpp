// The DNS codec: the input is a message, and a name.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <resolv.h>
#include <zor/dns.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/pieces.h"
#include "fuzz.h"

namespace {

using zor::fuzz::Require;

struct Release {
  void operator()(DnsPacket *packet) const { std::free(packet); }
};
using Packet = std::unique_ptr<DnsPacket, Release>;

const uint8_t *BytesOf(const Packet &packet) {
  return &packet->data[0];
}

bool IsPlain(std::string_view name) {
  return std::all_of(name.begin(), name.end(),
                     [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.'; });
}

// The resolver of the C library writes plain names in the same way.
void CompareWithResolver(const Packet &packet, const uint8_t *at, const std::string &name) {
  char expanded[1024];
  const uint8_t *end = BytesOf(packet) + packet->length;
  const bool hasLastDot = !name.empty() && name.back() == '.';
  if (hasLastDot || ::dn_expand(BytesOf(packet), end, at, expanded, sizeof expanded) < 0) return;
  Require(!IsPlain(expanded) || name == expanded, "a name expands as elsewhere");
}

void CheckName(const Packet &packet, const uint8_t *at) {
  const std::size_t rest = packet->length - static_cast<std::size_t>(at - BytesOf(packet));
  const uint32_t length = ZOR_DNS_PacketGetNameLen(packet.get(), at);
  Require(length <= rest + 1, "a name ends inside the message, or its pointer one byte behind");
  for (const uint32_t capacity : {1024u, 16u, 1u}) {
    std::vector<char> name(capacity, 'x');
    uint32_t consumed = 1;
    if (ZOR_DNS_PacketGetName(packet.get(), at, name.data(), capacity, &consumed) != ZOR_DNS_OK) {
      Require(name[0] == '\0' && consumed == 0, "a failure leaves the name empty and the length 0");
      continue;
    }
    Require(std::find(name.begin(), name.end(), '\0') != name.end(), "a name is terminated");
    Require(length > 0 && (consumed == length || consumed == 0), "what is consumed is what is occupied, or 0");
    CompareWithResolver(packet, at, name.data());
  }
}

void CheckRecord(const Packet &packet, const uint8_t *at) {
  const uint8_t *end = BytesOf(packet) + packet->length;
  const uint8_t *next = ZOR_DNS_PacketGetNextRR(packet.get(), at);
  Require(next == nullptr || (next > at && next <= end), "a walk goes forward and stays inside");
  DnsRecordValues values;
  uint32_t length = 0;
  if (ZOR_DNS_PacketGetValuesOfRR(packet.get(), at, &values, &length) != ZOR_DNS_OK) return;
  Require(values.rdata >= BytesOf(packet) && values.rdlength <= static_cast<std::size_t>(end - values.rdata),
          "data lies inside the message");
  const bool isSteppedBy0 = length == 10 + values.rdlength;
  Require(isSteppedBy0 || values.rdlength >= 65534 || next == at + length, "reading and walking step alike");

  const Packet response(ZOR_DNS_PacketBuildResponse(packet.get(), &values, 0));
  Require(response != nullptr && response->length == packet->length + 12 + values.rdlength, "an answer is appended");
  const uint8_t *answer = BytesOf(response) + packet->length;
  Require(std::memcmp(answer + 12, values.rdata, values.rdlength) == 0, "an answer carries the record's data");
}

void CheckMessage(const uint8_t *data, std::size_t size) {
  const Packet packet(static_cast<DnsPacket *>(std::malloc(offsetof(DnsPacket, data) + size)));
  packet->length = static_cast<uint32_t>(size);
  if (size > 0) std::memcpy(&packet->data[0], data, size);
  for (std::size_t offset = 0; offset <= size; ++offset) {
    CheckName(packet, BytesOf(packet) + offset);
    CheckRecord(packet, BytesOf(packet) + offset);
    DnsQuestionValues question;
    uint32_t length;
    ZOR_DNS_PacketGetValuesOfQuestion(packet.get(), BytesOf(packet) + offset, &question, &length);
  }
  for (const auto first :
       {ZOR_DNS_PacketGetFirstRR, ZOR_DNS_PacketGetFirstAuthorityRecord, ZOR_DNS_PacketGetFirstAddtionalRecord}) {
    const uint8_t *at = first(packet.get());
    Require(at == nullptr || at <= BytesOf(packet) + size + 5, "a section starts inside the message, or just behind");
    while (at != nullptr) at = ZOR_DNS_PacketGetNextRR(packet.get(), at);
  }
  const Packet error(ZOR_DNS_PacketBuildErrorResponse(packet.get(), 2));
  Require((error != nullptr) == (size >= 12), "any message with a header gets its error");
  Require(ZOR_DNS_PacketCheckIfErrorRely(error == nullptr ? packet.get() : error.get()) == 1, "an error is one");
}

void CheckRequest(const std::string &name) {
  std::string joined;
  std::size_t longest = 0;
  const std::string cut = name.substr(0, 259);
  std::string_view rest = cut;
  for (std::string_view piece; !(piece = zor::NextPiece(rest, '.')).empty();) {
    if (!joined.empty()) joined += '.';
    joined += piece;
    longest = std::max(longest, piece.size());
  }
  const Packet request(ZOR_DNS_PacketBuildRequest(name.c_str()));
  Require((request == nullptr) == joined.empty(), "a name with a piece makes a request");
  if (request == nullptr || longest > 63 || joined.size() > 255) return;
  char expanded[ZOR_DNS_NAME_SIZE];
  uint32_t consumed;
  Require(ZOR_DNS_PacketGetName(request.get(), BytesOf(request) + 12, expanded, sizeof expanded, &consumed) == 0 &&
              joined == expanded && consumed == joined.size() + 2,
          "a request carries its name");
}

void CheckReverseName(const std::string &name) {
  for (const uint32_t capacity : {64u, 16u}) {
    std::vector<char> address(capacity, '\0');
    uint32_t isIpv4 = 2;
    if (ZOR_DNS_PacketPTRName2Addr(name.c_str(), address.data(), capacity, &isIpv4) != ZOR_DNS_OK) continue;
    in6_addr binary;
    Require(::inet_pton(isIpv4 == 1 ? AF_INET : AF_INET6, address.data(), &binary) == 1, "an address is one");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  CheckMessage(data, size);
  const std::string name(data, data + size);
  CheckRequest(name.c_str());
  CheckReverseName(name.c_str());
  return 0;
}
