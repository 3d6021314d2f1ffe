// Reads messages: questions, records, and the walk over the sections.
#include <zor/dns.h>

#include "ntwk/dnspubapi/dns_message.h"
#include "ntwk/dnspubapi/dns_name.h"

namespace {

using zor::dns::Bytes;

using LengthAt = uint32_t (*)(const DnsPacket *packet, const uint8_t *position);

// Expands the name at a position. Returns what follows its consumed length, and nothing, with the name empty,
// when it is malformed or fewer than fixedSize bytes are left.
Bytes ReadName(const DnsPacket *packet, const uint8_t *position, char (&name)[ZOR_DNS_NAME_SIZE], std::size_t fixedSize,
               uint32_t *consumed) {
  const Bytes rest = zor::dns::RestAt(*packet, position);
  const bool isRead = zor::dns::ExpandName(zor::dns::MessageOf(*packet), rest, name, consumed);
  if (isRead && rest.size() - *consumed >= fixedSize) return rest.subspan(*consumed);
  name[0] = '\0';
  return {};
}

template <class Values>
bool PrepareRead(const DnsPacket *packet, const uint8_t *position, Values *values, uint32_t *length) {
  if (length != nullptr) *length = 0;
  if (values != nullptr) values->name[0] = '\0';
  return packet != nullptr && position != nullptr && values != nullptr && length != nullptr;
}

// Skips count questions or records; null when one of them is malformed.
const uint8_t *Skip(const DnsPacket *packet, const uint8_t *position, uint32_t count, LengthAt lengthAt) {
  for (; count > 0 && position != nullptr; --count) {
    const uint32_t length = lengthAt(packet, position);
    position = length == 0 ? nullptr : position + length;
  }
  return position;
}

bool HasHeader(const DnsPacket *packet) {
  return packet != nullptr && packet->length >= zor::dns::kHeaderSize;
}

uint16_t HeaderWord(const DnsPacket *packet, std::size_t at) {
  return zor::dns::LoadBig16(zor::dns::MessageOf(*packet).data() + at);
}

const uint8_t *RecordBehind(const DnsPacket *packet, uint16_t count) {
  return Skip(packet, ZOR_DNS_PacketGetFirstRR(packet), count, ZOR_DNS_PacketGetRRLen);
}

}  // namespace

uint32_t ZOR_DNS_PacketGetQuestionLen(const DnsPacket *packet, const uint8_t *position) {
  const uint32_t nameLength = ZOR_DNS_PacketGetNameLen(packet, position);
  return nameLength == 0 ? 0 : nameLength + static_cast<uint32_t>(zor::dns::kQuestionFixedSize);
}

uint32_t ZOR_DNS_PacketGetValuesOfQuestion(const DnsPacket *packet, const uint8_t *position, DnsQuestionValues *values,
                                           uint32_t *length) {
  if (!PrepareRead(packet, position, values, length)) return ZOR_DNS_E_ARGUMENT;
  uint32_t consumed = 0;
  const Bytes fixed = ReadName(packet, position, values->name, zor::dns::kQuestionFixedSize, &consumed);
  if (fixed.empty()) return ZOR_DNS_E_MALFORMED;
  values->type = zor::dns::LoadBig16(fixed.data());
  values->qclass = zor::dns::LoadBig16(fixed.data() + zor::dns::kClassAt);
  *length = consumed + static_cast<uint32_t>(zor::dns::kQuestionFixedSize);
  return ZOR_DNS_OK;
}

uint32_t ZOR_DNS_PacketGetRRLen(const DnsPacket *packet, const uint8_t *position) {
  const std::uint64_t nameLength = ZOR_DNS_PacketGetNameLen(packet, position);
  if (nameLength == 0) return 0;
  const Bytes rest = zor::dns::RestAt(*packet, position);
  if (nameLength + zor::dns::kRecordFixedSize > rest.size()) return 0;
  const std::uint64_t dataLengthAt = nameLength + zor::dns::kDataLengthAt;
  // The length of the data and of its own length field are one 16-bit number, which wraps for the two greatest.
  const auto tailLength = static_cast<uint16_t>(zor::dns::LoadBig16(rest.data() + dataLengthAt) + 2);
  const std::uint64_t length = dataLengthAt + tailLength;
  return length <= rest.size() ? static_cast<uint32_t>(length) : 0;
}

uint32_t ZOR_DNS_PacketGetValuesOfRR(const DnsPacket *packet, const uint8_t *position, DnsRecordValues *values,
                                     uint32_t *length) {
  if (!PrepareRead(packet, position, values, length)) return ZOR_DNS_E_ARGUMENT;
  uint32_t consumed = 0;
  const Bytes fixed = ReadName(packet, position, values->name, zor::dns::kRecordFixedSize, &consumed);
  if (fixed.empty()) return ZOR_DNS_E_MALFORMED;
  const Bytes data = fixed.subspan(zor::dns::kRecordFixedSize);
  const uint32_t dataLength = zor::dns::LoadBig16(fixed.data() + zor::dns::kDataLengthAt);
  if (dataLength > data.size()) {
    values->name[0] = '\0';
    return ZOR_DNS_E_MALFORMED;
  }
  values->type = zor::dns::LoadBig16(fixed.data());
  values->qclass = zor::dns::LoadBig16(fixed.data() + zor::dns::kClassAt);
  values->ttl = zor::dns::LoadBig32(fixed.data() + zor::dns::kTtlAt);
  values->rdlength = dataLength;
  values->rdata = data.data();
  *length = consumed + static_cast<uint32_t>(zor::dns::kRecordFixedSize) + dataLength;
  return ZOR_DNS_OK;
}

const uint8_t *ZOR_DNS_PacketGetFirstRR(const DnsPacket *packet) {
  if (!HasHeader(packet)) return nullptr;
  const uint8_t *questions = zor::dns::MessageOf(*packet).data() + zor::dns::kHeaderSize;
  return Skip(packet, questions, HeaderWord(packet, zor::dns::kQuestionCountAt), ZOR_DNS_PacketGetQuestionLen);
}

const uint8_t *ZOR_DNS_PacketGetNextRR(const DnsPacket *packet, const uint8_t *record) {
  return Skip(packet, record, 1, ZOR_DNS_PacketGetRRLen);
}

const uint8_t *ZOR_DNS_PacketGetFirstAuthorityRecord(const DnsPacket *packet) {
  if (!HasHeader(packet)) return nullptr;
  return RecordBehind(packet, HeaderWord(packet, zor::dns::kAnswerCountAt));
}

// The two counts are added in 16 bits, the width of the header's fields.
const uint8_t *ZOR_DNS_PacketGetFirstAddtionalRecord(const DnsPacket *packet) {
  if (!HasHeader(packet)) return nullptr;
  const int count = HeaderWord(packet, zor::dns::kAnswerCountAt) + HeaderWord(packet, zor::dns::kAuthorityCountAt);
  return RecordBehind(packet, static_cast<uint16_t>(count));
}

uint32_t ZOR_DNS_PacketCheckIfErrorRely(const DnsPacket *packet) {
  constexpr uint16_t kRcodeMask = 0x0f;
  if (packet == nullptr) return 0;
  if (!HasHeader(packet) || (HeaderWord(packet, zor::dns::kFlagsAt) & kRcodeMask) != 0) return 1;
  const bool isEmpty = HeaderWord(packet, zor::dns::kAnswerCountAt) == 0 &&
                       HeaderWord(packet, zor::dns::kAuthorityCountAt) == 0 &&
                       HeaderWord(packet, zor::dns::kAdditionalCountAt) == 0;
  return isEmpty ? 1 : 0;
}
