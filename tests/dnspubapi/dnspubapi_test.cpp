#include <gtest/gtest.h>
#include <zor/dns.h>
#include <zor/systime.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

using namespace std::string_literals;

struct Release {
  void operator()(DnsPacket *packet) const { std::free(packet); }
};
using Packet = std::unique_ptr<DnsPacket, Release>;

// A block of exactly the message's size, so that the sanitizer catches a read past the end.
Packet MakePacket(const std::string &bytes) {
  Packet packet(static_cast<DnsPacket *>(std::malloc(offsetof(DnsPacket, data) + bytes.size())));
  packet->length = static_cast<uint32_t>(bytes.size());
  std::memcpy(&packet->data[0], bytes.data(), bytes.size());
  return packet;
}

const uint8_t *At(const Packet &packet, size_t offset) {
  return &packet->data[0] + offset;
}

std::string BytesOf(DnsPacket *owned) {
  const Packet packet(owned);
  return packet == nullptr ? "null" : std::string(At(packet, 0), At(packet, packet->length));
}

std::string Label(size_t length) {
  return std::string(1, static_cast<char>(length)) + std::string(length, 'x');
}

std::string Pointer(size_t target) {
  return {static_cast<char>(0xc0 | target >> 8), static_cast<char>(target)};
}

std::string Header(char questions, char answers, char authorities, char additional) {
  return {0x12, 0x34, '\x81', 0, 0, questions, 0, answers, 0, authorities, 0, additional};
}

// One question, two answers, one authority and one additional record; the second answer's name is labels and a pointer.
const std::string kQuestion = "\3www\1x\0\0\1\0\1"s;
const std::string kFixed = "\0\1\0\1\1\2\3\4\0\4"s;
const std::string kSample = Header(1, 2, 1, 1) + kQuestion + Pointer(12) + kFixed + "AAAA" + "\1y" + Pointer(12) +
                            kFixed + "BBBB" + Pointer(16) + kFixed + "CCCC" + "\1z\0"s + kFixed + "DDDD";

TEST(DnsName, IsMeasuredAndExpandedByTwoDifferentRules) {
  std::string chain = "\1a\0"s;  // then ten names, each a label and a pointer to the one before
  for (size_t i = 0, previous = 0; i < 10; ++i) {
    const size_t next = chain.size();
    chain += "\1b" + Pointer(previous);
    previous = next;
  }
  const struct {
    const char *what;
    std::string bytes;
    size_t at;
    uint32_t length;   // bytes to skip
    const char *name;  // null: malformed
    uint32_t consumed = 0;
    uint32_t capacity = ZOR_DNS_NAME_SIZE;
  } cases[] = {
      {"root", "\0"s, 0, 1, "", 1},
      {"pointer alone in the last two bytes", "\1a\0"s + Pointer(0), 3, 0, nullptr},
      {"labels, then a pointer: stepped over by 0", "\1a\0\1b"s + Pointer(0), 3, 4, "b.a", 0},
      {"pointer cut behind labels", "\1a\xc0"s, 0, 4, nullptr},
      {"pointer to a pointer", "\1a\0"s + Pointer(0) + Pointer(3) + "x", 5, 2, nullptr},
      {"names that point at each other", "\1a"s + Pointer(4) + "\1b" + Pointer(0), 0, 4, nullptr},
      {"pointer to the end", "\1a"s + Pointer(4), 0, 4, nullptr},
      {"ten segments", chain, 3 + 8 * 4, 4, "b.b.b.b.b.b.b.b.b.a", 0},
      {"eleven segments", chain, 3 + 9 * 4, 4, nullptr},
      {"label of 64", Label(64) + "\0"s, 0, 0, nullptr},
      {"dot in a label", "\3a.b\0"s, 0, 5, nullptr},
      {"past the end", "\0"s, 2, 0, nullptr},
      {"field that just fits", "\3abc\0\2de"s + Pointer(0), 5, 5, "de.abc", 0, 7},
      {"field one short", "\3abc\0\2de"s + Pointer(0), 5, 5, nullptr, 0, 6},
      {"field full before the pointer", "\0\2de"s + Pointer(0), 1, 5, nullptr, 0, 3},
  };
  for (const auto &c : cases) {
    const Packet packet = MakePacket(c.bytes);
    const auto name = std::make_unique<char[]>(c.capacity);
    uint32_t consumed = 99;
    EXPECT_EQ(ZOR_DNS_PacketGetNameLen(packet.get(), At(packet, c.at)), c.length) << c.what;
    EXPECT_EQ(ZOR_DNS_PacketGetName(packet.get(), At(packet, c.at), name.get(), c.capacity, &consumed),
              c.name == nullptr ? ZOR_DNS_E_MALFORMED : ZOR_DNS_OK)
        << c.what;
    EXPECT_STREQ(name.get(), c.name == nullptr ? "" : c.name) << c.what;
    EXPECT_EQ(consumed, c.consumed) << c.what;
  }
}

TEST(DnsWalk, FindsEverySectionAndEndsAtTheEnd) {
  const Packet packet = MakePacket(kSample);
  const uint8_t *record = ZOR_DNS_PacketGetFirstRR(packet.get());
  for (const size_t offset : {size_t{23}, size_t{39}, size_t{57}, size_t{73}, kSample.size()}) {
    ASSERT_EQ(record, At(packet, offset));
    record = ZOR_DNS_PacketGetNextRR(packet.get(), record);
  }
  EXPECT_EQ(record, nullptr);
  EXPECT_EQ(ZOR_DNS_PacketGetFirstAuthorityRecord(packet.get()), At(packet, 57));
  EXPECT_EQ(ZOR_DNS_PacketGetFirstAddtionalRecord(packet.get()), At(packet, 73));
  // 65535 answers and one authority record are counted as none.
  const Packet wrapped = MakePacket("\0\0\0\0\0\0\xff\xff\0\1\0\0"s);
  EXPECT_EQ(ZOR_DNS_PacketGetFirstAddtionalRecord(wrapped.get()), At(wrapped, 12));
  EXPECT_EQ(ZOR_DNS_PacketGetFirstAuthorityRecord(wrapped.get()), nullptr);
}

TEST(DnsQuestion, IsReadBehindItsNameUnlessThatEndsInAPointer) {
  const struct {
    std::string bytes;
    uint32_t at, walked, length, type, qclass;  // length 0: malformed
  } cases[] = {
      {"\3www\1x\0\1\2\3\4"s, 0, 11, 11, 0x0102, 0x0304},
      {"\3www\1x\0\1\2\3"s, 0, 11, 0, 0, 0},
      {"\1a\0"s + Pointer(0) + "\0\1\0\2"s, 3, 6, 6, 1, 2},
      {"\1a\0\1b"s + Pointer(0) + "\0\1\0\2"s, 3, 8, 4, 0x0100 + 'b', 0xc000},
  };
  for (const auto &c : cases) {
    const Packet packet = MakePacket(c.bytes);
    DnsQuestionValues values = {};
    uint32_t length = 99;
    EXPECT_EQ(ZOR_DNS_PacketGetQuestionLen(packet.get(), At(packet, c.at)), c.walked);
    EXPECT_EQ(ZOR_DNS_PacketGetValuesOfQuestion(packet.get(), At(packet, c.at), &values, &length),
              c.length == 0 ? ZOR_DNS_E_MALFORMED : ZOR_DNS_OK);
    EXPECT_EQ(length, c.length);
    EXPECT_EQ(values.type, c.type);
    EXPECT_EQ(values.qclass, c.qclass);
  }
}

TEST(DnsRecord, IsReadFromTheStartOfItsNameWhenThatEndsInAPointer) {
  const Packet packet = MakePacket(kSample);
  DnsRecordValues values;
  uint32_t length = 0;
  ASSERT_EQ(ZOR_DNS_PacketGetValuesOfRR(packet.get(), At(packet, 23), &values, &length), ZOR_DNS_OK);
  EXPECT_STREQ(values.name, "www.x");
  EXPECT_EQ(values.ttl, 0x01020304u);
  EXPECT_EQ(std::string(values.rdata, values.rdata + values.rdlength), "AAAA");
  EXPECT_EQ(length, 16u);
  // 01 'y' C0 0C 00 01 00 01 01 02: RDLENGTH is 0x0102, and the message is not that long.
  EXPECT_EQ(ZOR_DNS_PacketGetValuesOfRR(packet.get(), At(packet, 39), &values, &length), ZOR_DNS_E_MALFORMED);
  EXPECT_STREQ(values.name, "");
  EXPECT_EQ(length, 0u);
}

TEST(DnsRecord, TheLengthWrapsForTheTwoGreatestDataLengths) {
  for (const auto &[dataLength, walked] : {std::pair{65533u, 65546u}, {65534u, 11u}, {65535u, 12u}}) {
    const std::string fixed = "\1a\0\0\1\0\1\0\0\0\0\xff"s + static_cast<char>(dataLength);
    const Packet packet = MakePacket(fixed + std::string(dataLength, 'd'));
    DnsRecordValues values;
    uint32_t length;
    EXPECT_EQ(ZOR_DNS_PacketGetRRLen(packet.get(), At(packet, 0)), walked);
    EXPECT_EQ(ZOR_DNS_PacketGetValuesOfRR(packet.get(), At(packet, 0), &values, &length), ZOR_DNS_OK);
    EXPECT_EQ(length, 13 + dataLength);
  }
}

TEST(DnsBuild, ARequestHasItsExactBytes) {
  const std::string head = "\0\0\1\0\1\0\0\0\0\0\0\0"s, tail = "\0\0\1\0\1"s;
  EXPECT_EQ(BytesOf(ZOR_DNS_PacketBuildRequest("..a..b.")), head + "\1a\1b" + tail + "\0\0\0\0"s);
  EXPECT_EQ(BytesOf(ZOR_DNS_PacketBuildRequest(std::string(300, 'x').c_str())),
            head + "\3" + std::string(259, 'x') + tail);
}

TEST(DnsBuild, AResponseHasItsExactBytesUnlessTheRecordHasExpired) {
  const Packet query = MakePacket(Header(1, 7, 2, 3) + kQuestion);
  DnsRecordValues record = {"", 0x10005, 0x20001, 300, 3, At(query, 13)};
  std::string expected = Header(1, 1, 2, 0) + kQuestion + Pointer(12) + "\0\5\0\1\0\0\1\x2c\0\3www"s;
  EXPECT_EQ(BytesOf(ZOR_DNS_PacketBuildResponse(query.get(), &record, 0)), expected);
  const uint32_t stored = ZOR_UTIL_GetSysUpTime() - 100;
  record.ttl = 60;
  EXPECT_EQ(ZOR_DNS_PacketBuildResponse(query.get(), &record, stored), nullptr) << "expired";
  EXPECT_EQ(ZOR_DNS_PacketBuildResponse(query.get(), &record, stored + 200), nullptr) << "stored in the future";
}

TEST(DnsBuild, AnErrorKeepsIdAndQuestionAndCountsNoRecords) {
  const Packet query = MakePacket(Header(1, 7, 2, 3) + kQuestion);
  std::string expected = Header(1, 0, 0, 0) + kQuestion;
  expected[3] = 3;
  EXPECT_EQ(BytesOf(ZOR_DNS_PacketBuildErrorResponse(query.get(), 3)), expected);
}

TEST(DnsReply, IsAnErrorByItsCodeOrForWantOfRecords) {
  const std::pair<std::string, uint32_t> cases[] = {{Header(1, 0, 0, 0), 1},
                                                    {Header(1, 1, 0, 0), 0},
                                                    {Header(1, 0, 1, 0), 0},
                                                    {Header(1, 0, 0, 1), 0},
                                                    {"\0\0\x81\xf0\0\1\1\0\0\0\0\0"s, 0},
                                                    {"\0\0\x81\3\0\1\0\1\0\0\0\0"s, 1},
                                                    {Header(1, 1, 0, 1).substr(0, 11), 1}};
  for (const auto &[bytes, isError] : cases) {
    EXPECT_EQ(ZOR_DNS_PacketCheckIfErrorRely(MakePacket(bytes).get()), isError) << testing::PrintToString(bytes);
  }
}

TEST(DnsReverseName, BecomesAnAddress) {
  std::string nibbles;
  for (int i = 31; i >= 0; --i) nibbles += std::string(1, "0123456789abcdef"[i % 16]) + ".";
  const std::string address = "0123:4567:89ab:cdef:0123:4567:89ab:cdef";
  const struct {
    std::string name;
    uint32_t capacity, status;
    std::string address;
    uint32_t flag;
  } cases[] = {
      {"40.30.2.1.in-addr.arpa.junk", 10, 0, "1.2.30.40", 1},
      {"4.3.2.1.in-addr.arpa", 7, ZOR_DNS_E_ARGUMENT, "", 9},
      {"256.3.2.1.in-addr.arpa", 16, ZOR_DNS_E_ARGUMENT, "1.2.3.256", 9},
      {nibbles + "ip6.arpa", 64, 0, address, 0},
      {nibbles + "ip6.arpa.in-addr.arpa", 64, ZOR_DNS_E_ARGUMENT, "", 9},
      {"g" + nibbles.substr(1) + "ip6.arpa", 64, ZOR_DNS_E_ARGUMENT, address.substr(0, 38) + "g", 0},
  };
  for (const auto &c : cases) {
    const auto field = std::make_unique<char[]>(c.capacity);
    uint32_t flag = 9;
    EXPECT_EQ(ZOR_DNS_PacketPTRName2Addr(c.name.c_str(), field.get(), c.capacity, &flag), c.status) << c.name;
    EXPECT_EQ(std::string(field.get()), c.address) << c.name;
    EXPECT_EQ(flag, c.flag) << c.name;
  }
  char stale[] = "xxxxxxxxxxxxxxx";
  EXPECT_EQ(ZOR_DNS_PacketPTRName2Addr("4.3.2.1.in-addr.arpa", stale, sizeof stale, nullptr), ZOR_DNS_E_ARGUMENT);
  EXPECT_STREQ(stale, "1.2.3.4x") << "the byte behind the address is the caller's, the one after it is cleared";
  EXPECT_EQ(ZOR_DNS_CountAddrPoints(""), 0x360000u);
}

}  // namespace
