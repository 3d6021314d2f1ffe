// Builds messages. Every block comes zeroed from the guarded allocator, so no stale memory reaches the wire.
#include <zor/dns.h>
#include <zor/limits.h>
#include <zor/systime.h>

#include <cstring>
#include <string_view>

#include "base/alloc.h"
#include "base/pieces.h"
#include "ntwk/dnspubapi/dns_message.h"

namespace {

using zor::MallocPtr;
using zor::dns::kHeaderSize;
using zor::dns::StoreBig16;
using zor::dns::StoreBig32;

constexpr uint32_t kMaxPartLength = 0x7ffffff6;
constexpr uint32_t kResponseFlags = 0x8100;  // a response, recursion desired
constexpr uint32_t kQuestionName = 0xc00c;   // a pointer to offset 12
constexpr std::size_t kNamePointerSize = 2;
constexpr uint32_t kTypeA = 1;
constexpr uint32_t kClassIn = 1;

MallocPtr<DnsPacket> NewPacket(std::uint64_t length) {
  MallocPtr<DnsPacket> packet(static_cast<DnsPacket *>(zor::GuardedCalloc(offsetof(DnsPacket, data) + length)));
  if (packet != nullptr) packet->length = static_cast<uint32_t>(length);
  return packet;
}

uint8_t *MessageBytes(DnsPacket *packet) {
  return &packet->data[0];
}

// Copies length bytes; from may be null when there are none.
uint8_t *Put(uint8_t *to, const void *from, std::size_t count) {
  if (count > 0) std::memcpy(to, from, count);
  return to + count;
}

// Writes the pieces of a name as labels; the length byte of an overlong one is cut. Returns where they end.
uint8_t *PutLabels(uint8_t *to, std::string_view name) {
  std::size_t length = 0;
  const auto endLabel = [&] {
    if (length == 0) return;
    to[0] = static_cast<uint8_t>(length);
    to += length + 1;
    length = 0;
  };
  for (const char c : name) {
    if (c == '.') {
      endLabel();
    } else {
      to[++length] = static_cast<uint8_t>(c);
    }
  }
  endLabel();
  return to;
}

// How long the record has been stored. A time in the future wraps, so that any record has expired.
uint32_t ElapsedSince(uint32_t storedAt) {
  return storedAt == 0 ? 0 : ZOR_UTIL_GetSysUpTime() - storedAt;
}

}  // namespace

DnsPacket *ZOR_DNS_PacketCopy(const DnsPacket *packet, uint32_t maxLength) {
  if (packet == nullptr) return nullptr;
  const uint32_t length = maxLength != 0 && maxLength < packet->length ? maxLength : packet->length;
  MallocPtr<DnsPacket> copy = NewPacket(length);
  if (copy != nullptr) Put(MessageBytes(copy.get()), &packet->data[0], length);
  return copy.release();
}

DnsPacket *ZOR_DNS_PacketBuildRequest(const char *name) {
  // ID 0, recursion desired. The question count is sent in swapped order, as the gateway's daemons have always done.
  constexpr uint8_t kHeader[kHeaderSize] = {0, 0, 1, 0, 1, 0};
  if (name == nullptr) return nullptr;
  const std::string_view text(name, strnlen(name, ZOR_DNS_REQUEST_NAME_MAX));
  // A label's length takes the place of its dot, so the name takes two bytes more than its text.
  MallocPtr<DnsPacket> packet = NewPacket(kHeaderSize + text.size() + 2 + zor::dns::kQuestionFixedSize);
  if (packet == nullptr) return nullptr;
  uint8_t *labels = Put(MessageBytes(packet.get()), kHeader, sizeof kHeader);
  uint8_t *end = PutLabels(labels, text);
  if (end == labels) return nullptr;
  *end++ = 0;
  StoreBig16(end, kTypeA);
  StoreBig16(end + zor::dns::kClassAt, kClassIn);
  return packet.release();
}

DnsPacket *ZOR_DNS_PacketBuildResponse(const DnsPacket *query, const DnsRecordValues *record, uint32_t storedAt) {
  if (query == nullptr || record == nullptr) return nullptr;
  if (query->length > kMaxPartLength || record->rdlength > kMaxPartLength) return nullptr;
  if (record->rdata == nullptr && record->rdlength > 0) return nullptr;
  constexpr std::size_t kAnswerSize = kNamePointerSize + zor::dns::kRecordFixedSize;
  MallocPtr<DnsPacket> packet = NewPacket(std::uint64_t{query->length} + kAnswerSize + record->rdlength);
  const uint32_t elapsed = ElapsedSince(storedAt);
  if (packet == nullptr || record->ttl < elapsed) return nullptr;
  uint8_t *header = MessageBytes(packet.get());
  uint8_t *answer = Put(header, &query->data[0], query->length);
  StoreBig16(header + zor::dns::kFlagsAt, kResponseFlags);
  StoreBig16(header + zor::dns::kAnswerCountAt, 1);
  StoreBig16(header + zor::dns::kAdditionalCountAt, 0);
  StoreBig16(answer, kQuestionName);
  uint8_t *fixed = answer + kNamePointerSize;
  StoreBig16(fixed, record->type);
  StoreBig16(fixed + zor::dns::kClassAt, record->qclass);
  StoreBig32(fixed + zor::dns::kTtlAt, record->ttl - elapsed);
  StoreBig16(fixed + zor::dns::kDataLengthAt, record->rdlength);
  Put(fixed + zor::dns::kRecordFixedSize, record->rdata, record->rdlength);
  return packet.release();
}

DnsPacket *ZOR_DNS_PacketBuildErrorResponse(const DnsPacket *query, uint32_t rcode) {
  if (query == nullptr || query->length < kHeaderSize) return nullptr;
  DnsPacket *packet = ZOR_DNS_PacketCopy(query, 0);
  if (packet == nullptr) return nullptr;
  StoreBig16(MessageBytes(packet) + zor::dns::kFlagsAt, rcode + kResponseFlags);
  for (const std::size_t count :
       {zor::dns::kAnswerCountAt, zor::dns::kAuthorityCountAt, zor::dns::kAdditionalCountAt}) {
    StoreBig16(MessageBytes(packet) + count, 0);
  }
  return packet;
}
