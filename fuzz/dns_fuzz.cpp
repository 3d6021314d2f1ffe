// The DNS codec: the input is a message, and a name.
#include <zor/dns.h>

#include <algorithm>
#include <cstring>

#include "base/alloc.h"
#include "fuzz.h"

namespace {

using zor::fuzz::Require;
using Packet = zor::MallocPtr<DnsPacket>;

const uint8_t *BytesOf(const Packet &packet) {
  return &packet->data[0];
}

void CheckName(const Packet &packet, std::size_t offset) {
  const uint8_t *at = BytesOf(packet) + offset;
  const uint32_t length = ZOR_DNS_PacketGetNameLen(packet.get(), at);
  Require(length <= packet->length - offset + 1, "a name ends inside, or its pointer one byte behind the message");
  for (const uint32_t capacity : {256u, 16u, 1u}) {
    std::vector<char> name(capacity, 'x');
    uint32_t consumed = 1;
    if (ZOR_DNS_PacketGetName(packet.get(), at, name.data(), capacity, &consumed) != ZOR_DNS_OK) {
      Require(name[0] == '\0' && consumed == 0, "a failure leaves the name empty and the length 0");
      continue;
    }
    Require(std::find(name.begin(), name.end(), '\0') != name.end(), "a name is terminated");
    Require(length > 0 && (consumed == length || consumed == 0), "what is consumed is what is occupied, or 0");
  }
}

void CheckRecord(const Packet &packet, const uint8_t *at) {
  const uint8_t *end = BytesOf(packet) + packet->length;
  const uint8_t *next = ZOR_DNS_PacketGetNextRR(packet.get(), at);
  Require(next == nullptr || (next > at && next <= end), "a walk goes forward and stays inside");
  DnsRecordValues values;
  uint32_t length = 0;
  if (ZOR_DNS_PacketGetValuesOfRR(packet.get(), at, &values, &length) != ZOR_DNS_OK) return;
  Require(values.rdata >= BytesOf(packet) && values.rdata + values.rdlength <= end, "data is inside");
  const bool isSteppedBy0 = length == 10 + values.rdlength;
  Require(isSteppedBy0 || values.rdlength >= 65534 || next == at + length, "reading and walking step alike");
  const Packet response(ZOR_DNS_PacketBuildResponse(packet.get(), &values, 0));
  const uint8_t *answer = BytesOf(response) + packet->length;
  Require(std::memcmp(answer + 12, values.rdata, values.rdlength) == 0, "an answer carries the record's data");
}

void CheckMessage(const uint8_t *data, std::size_t size) {
  const Packet packet(static_cast<DnsPacket *>(std::malloc(offsetof(DnsPacket, data) + size)));
  packet->length = static_cast<uint32_t>(size);
  std::copy(data, data + size, &packet->data[0]);
  for (std::size_t offset = 0; offset <= size; ++offset) {
    CheckName(packet, offset);
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
  const Packet request(ZOR_DNS_PacketBuildRequest(name.c_str()));
  char expanded[ZOR_DNS_NAME_SIZE];
  if (request == nullptr || name.size() > 63) return;
  ZOR_DNS_PacketGetName(request.get(), BytesOf(request) + 12, expanded, sizeof expanded, nullptr);
  std::string asked = name, carried = expanded;
  std::erase(asked, '.');
  std::erase(carried, '.');
  Require(asked == carried, "a request carries its name");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  CheckMessage(data, size);
  CheckRequest(zor::fuzz::TextOf(data, size));
  return 0;
}
