/// @file
/// DNS messages (RFC 1035): <zor/dns.h> as values. A message keeps its bytes; what is read from it is copied.
#ifndef ZOR_CPP_DNS_HPP
#define ZOR_CPP_DNS_HPP

#include <zor/dns.h>
#include <zor/cpp/message.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace zor {
inline namespace face {
namespace dns {

struct Question {
  std::string name;
  std::uint32_t type = 0;
  std::uint32_t qclass = 0;
};

struct Record {
  std::string name;
  std::uint32_t type = 0;
  std::uint32_t qclass = 0;
  /// Seconds.
  std::uint32_t ttl = 0;
  Bytes data = {};
};

/// A message, as it is on the wire.
class Message {
 public:
  /// Of received bytes, whatever they are; the readers check each bound.
  explicit Message(std::string_view bytes)
      : packet_(static_cast<DnsPacket *>(std::malloc(offsetof(DnsPacket, data) + bytes.size() + 1))) {
    if (packet_ == nullptr) NoMemory().raise();
    packet_->length = static_cast<std::uint32_t>(bytes.size());
    std::memcpy(packet_->data, bytes.data(), bytes.size());
  }
  /// A request for the A record of a name; its ID is 0 until set_id().
  static Result<Message> try_request(const std::string &name) {
    return Take(ZOR_DNS_PacketBuildRequest(name.c_str()), "malformed name");
  }

  std::string_view bytes() const noexcept { return {reinterpret_cast<const char *>(packet_->data), packet_->length}; }
  std::uint32_t id() const noexcept {
    return packet_->length < 2 ? 0 : static_cast<std::uint32_t>(packet_->data[0] * 256 + packet_->data[1]);
  }
  void set_id(std::uint16_t id) noexcept {
    if (packet_->length < 2) return;
    packet_->data[0] = static_cast<std::uint8_t>(id >> 8);
    packet_->data[1] = static_cast<std::uint8_t>(id & 0xFF);
  }
  /// Whether it is an error reply, or one without any record.
  bool is_error() const noexcept { return ZOR_DNS_PacketCheckIfErrorRely(packet_.get()) != 0; }

  /// The first question.
  Result<Question> try_question() const {
    DnsQuestionValues values;
    std::uint32_t length = 0;
    if (packet_->length < kHeaderSize ||
        ZOR_DNS_PacketGetValuesOfQuestion(packet_.get(), packet_->data + kHeaderSize, &values, &length) != ZOR_DNS_OK) {
      return Error(ZOR_E_ARGUMENT, "malformed DNS question");
    }
    return Question{values.name, values.type, values.qclass};
  }

  /// The records behind the questions, of all sections, as many as are whole.
  std::vector<Record> records() const {
    std::vector<Record> records;
    const std::uint8_t *place = ZOR_DNS_PacketGetFirstRR(packet_.get());
    const std::uint8_t *const end = packet_->data + packet_->length;
    while (place != nullptr && place < end) {
      DnsRecordValues values;
      std::uint32_t length = 0;
      if (ZOR_DNS_PacketGetValuesOfRR(packet_.get(), place, &values, &length) != ZOR_DNS_OK) break;
      records.push_back(
          {values.name, values.type, values.qclass, values.ttl, Bytes(values.rdata, values.rdata + values.rdlength)});
      place = ZOR_DNS_PacketGetNextRR(packet_.get(), place);
    }
    return records;
  }

  /// The reply to this query with one record.
  Result<Message> try_reply(const Record &record) const {
    DnsRecordValues values = {};
    values.type = record.type;
    values.qclass = record.qclass;
    values.ttl = record.ttl;
    values.rdlength = static_cast<std::uint32_t>(record.data.size());
    values.rdata = record.data.data();
    return Take(ZOR_DNS_PacketBuildResponse(packet_.get(), &values, 0), "no DNS reply can be made");
  }
  /// The error reply to this query.
  Result<Message> try_error_reply(std::uint32_t rcode) const {
    return Take(ZOR_DNS_PacketBuildErrorResponse(packet_.get(), rcode), "no DNS error reply can be made");
  }

 private:
  static constexpr std::uint32_t kHeaderSize = 12;

  explicit Message(DnsPacket *packet) noexcept : packet_(packet) {}
  static Result<Message> Take(DnsPacket *packet, const char *problem) {
    if (packet == nullptr) return Error(ZOR_E_ARGUMENT, problem);
    return Message(packet);
  }

  std::unique_ptr<DnsPacket, detail::FreeBlock> packet_;
};

/// The address in a reverse-lookup name: "4.3.2.1.in-addr.arpa" gives "1.2.3.4".
inline Result<std::string> try_address_of(const std::string &reverseName) {
  char address[64 + 1] = "";
  std::uint32_t isIpv4 = 0;
  if (ZOR_DNS_PacketPTRName2Addr(reverseName.c_str(), address, sizeof address, &isIpv4) != ZOR_DNS_OK) {
    return Error(ZOR_E_ARGUMENT, "not a name of a reverse lookup");
  }
  return std::string(address);
}

}  // namespace dns
}  // namespace face
}  // namespace zor

#endif
