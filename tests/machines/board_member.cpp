// A member of a bus whose machines differ in their byte order; mixed_bus.sh starts it.
// Usage: board_member NAME local|PORT serve          serves until it is asked to end
//        board_member NAME local|PORT ask PEER       asks PEER, which serves, and checks the replies
#include <rpc/xdr.h>
#include <zor/dmmsg.h>
#include <zor/dns.h>
#include <zor/event.h>
#include <zor/kiva.h>
#include <zor/msg.h>
#include <zor/status.h>
#include <zor/trace.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "records.h"

namespace {

using namespace zor::test;

constexpr uint32_t kWaitMs = 60000;
constexpr uint32_t kWord = 0x01020304;
constexpr uint32_t kEvent = 0x2DA65;
// Requests: the order of the server's machine; its body back; a word of the body as the server reads it; a record of
// XDR with its state and size increased; a list of XDR with each state increased; a query of names as an error; a
// record and JSON with each number increased; an event; the end. A management message comes back with each kind
// increased.
enum Request : uint32_t { kOrder = 0x4001, kEcho, kRead, kXdr, kList, kName, kRecord, kJson, kPublish, kEnd };

using Block = std::unique_ptr<ZOR_MSG_HEAD, decltype([](ZOR_MSG_HEAD *msg) { std::free(msg); })>;

std::string BodyOf(ZOR_MSG_HEAD &msg) {
  const auto *body = static_cast<const char *>(ZOR_MSG_GetMsgByHead(&msg));
  return body == nullptr ? std::string() : std::string(body, msg.bodyLength);
}

Block MakeMessage(const char *to, uint32_t type, uint32_t data, const std::string &body) {
  void *block = ZOR_MSG_GetMsgBlock(static_cast<uint32_t>(body.size()));
  ZOR_MSG_SetMsgProfile(block, to, type, static_cast<uint32_t>(body.size()));
  Block msg(ZOR_MSG_GetMsgHead(block));
  if (!body.empty()) std::memcpy(block, body.data(), body.size());
  msg->data = data;
  return msg;
}

template <typename Record>
std::string Encode(Record &record, int32_t (*convert)(XDR *, Record *)) {
  std::array<char, 512> bytes{};
  XDR xdr;
  xdrmem_create(&xdr, bytes.data(), bytes.size(), XDR_ENCODE);
  if (convert(&xdr, &record) == 0) std::abort();
  return {bytes.data(), xdr_getpos(&xdr)};
}

template <typename Record>
Record Decode(std::string bytes, int32_t (*convert)(XDR *, Record *)) {
  Record record{};
  XDR xdr;
  xdrmem_create(&xdr, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
  if (convert(&xdr, &record) == 0) std::abort();
  return record;
}

std::string RaiseRecord(const std::string &bytes) {
  dev_kiva_info record = Decode(bytes, xdr_dev_kiva_info);
  ++record.status.state;
  ++record.status.dlSize;
  std::string raised = Encode(record, xdr_dev_kiva_info);
  ZOR_UPG_DestroyKivaInfo(&record);
  return raised;
}

// The first record is the caller's, the others are the list's.
void Destroy(dev_crashinfo_list &list) {
  ZOR_Crash_DestroyDevInfo(&list.info);
  ZOR_Crash_DestroyDevInfoList(list.next);
}

std::string RaiseList(const std::string &bytes) {
  dev_crashinfo_list list = Decode(bytes, xdr_dev_crashinfo_list);
  for (dev_crashinfo_list *each = &list; each != nullptr; each = each->next) ++each->info.ResultState;
  std::string raised = Encode(list, xdr_dev_crashinfo_list);
  Destroy(list);
  return raised;
}

std::string RefuseName(const std::string &query) {
  const auto length = static_cast<uint32_t>(query.size());
  std::string block(reinterpret_cast<const char *>(&length), sizeof length);
  block += query;
  DnsPacket *reply = ZOR_DNS_PacketBuildErrorResponse(reinterpret_cast<const DnsPacket *>(block.data()), 3);
  if (reply == nullptr) std::abort();
  std::string bytes(reinterpret_cast<const char *>(reply->data), reply->length);
  std::free(reply);
  return bytes;
}

uint32_t WordIn(const std::string &body) {
  uint32_t word = 0;
  if (body.size() >= sizeof word) std::memcpy(&word, body.data(), sizeof word);
  return word;
}

void Publish() {
  const std::string text = "{\"word\":16909060}";
  const Block event = MakeMessage("", kEvent, kWord, text);
  ZOR_MSG_Send(event.get());
}

// The data word and the body of the reply.
std::pair<uint32_t, std::string> Serve(ZOR_MSG_HEAD &msg) {
  const std::string body = BodyOf(msg);
  const bool isReversed = msg.data != kByteOrder;
  switch (msg.type) {
    case kOrder:
      return {kByteOrder, ""};
    case kEcho:
      return {msg.data + 1, body};
    case kRead:
      return {WordIn(body), ""};
    case kXdr:
      return {0, RaiseRecord(body)};
    case kList:
      return {0, RaiseList(body)};
    case kName:
      return {0, RefuseName(body)};
    case kRecord:
      return {0, AnswerRecord(body, isReversed)};
    case kJson:
      return {0, AnswerJson(body)};
    case ZOR_MSG_DM:
      return {0, AnswerManagement(body, isReversed)};
    default:
      return {0, ""};
  }
}

int RunServer() {
  std::puts("ready");
  std::fflush(stdout);
  ZOR_MSG_HEAD *received = nullptr;
  while (ZOR_MSG_Recv(g_stMsgCtx.socketFd, &received, 0) == ZOR_OK) {
    const Block msg(received);
    const auto [data, body] = Serve(*msg);
    const Block reply = MakeMessage(msg->source, msg->type, data, body);
    reply->sequence = msg->sequence;
    if (msg->type == kPublish) Publish();
    if (ZOR_MSG_Send(reply.get()) != ZOR_OK) return 1;
    if (msg->type == kEnd) return 0;
  }
  return 1;
}

int failures = 0;

void Check(bool holds, const char *what) {
  std::printf("%s %s\n", holds ? "ok" : "FAILED", what);
  if (!holds) ++failures;
}

class Asker {
 public:
  // The peer is on another board.
  explicit Asker(const char *peer) : peer_(peer) {}

  void AskAll() {
    const bool sameOrder = Word(kOrder) == kByteOrder;
    std::printf("the two machines have %s byte order\n", sameOrder ? "the same" : "different");
    AskBodies(sameOrder);
    AskFormats();
    AskServer();
    Receive();
    CheckSettings();
    Word(kEnd);
  }

 private:
  Block Ask(uint32_t type, uint32_t data, const std::string &body, uint32_t *status = nullptr) {
    const Block request = MakeMessage(peer_, type, data, body);
    ZOR_MSG_HEAD *reply = nullptr;
    const uint32_t result = ZOR_MSG_SendAndRecv(request.get(), &reply, kWaitMs);
    if (status != nullptr) *status = result;
    if (status == nullptr && reply == nullptr) Check(false, "a reply");
    return Block(reply);
  }
  uint32_t Word(uint32_t type) {
    const Block reply = Ask(type, 0, "");
    return reply ? reply->data : 0;
  }

  void AskBodies(bool sameOrder) {
    for (const size_t size : {0u, 1u, 5u, 40u, 2047u, 2048u}) {
      std::string body(size, '\0');
      for (size_t i = 0; i < size; ++i) body[i] = static_cast<char>(i * 7);
      const Block reply = Ask(kEcho, kWord, body);
      Check(reply && reply->data == kWord + 1 && BodyOf(*reply) == body && reply->bodyLength == size,
            ("a body of " + std::to_string(size) + " bytes").c_str());
    }
    uint32_t status = 0;
    const Block tooLong = Ask(kEcho, 0, std::string(2049, 'x'), &status);
    Check(status == ZOR_E_PEER_GONE && !tooLong, "no body in a file leaves the board");
    std::string word(sizeof kWord, '\0');
    std::memcpy(word.data(), &kWord, sizeof kWord);
    const Block read = Ask(kRead, 0, word);
    Check(read && read->data == (sameOrder ? kWord : __builtin_bswap32(kWord)), "no body is converted");
  }

  void AskFormats() {
    std::string mac = "0123456789AB", detail = "free text", path = "/x.xml";
    dev_kiva_info record{};
    record.status.state = 7;
    record.status.dlSize = kWord;
    record.mac = mac.data();
    record.detail = detail.data();
    record.xmlPath = path.data();
    const Block reply = Ask(kXdr, 0, Encode(record, xdr_dev_kiva_info));
    dev_kiva_info raised = Decode(BodyOf(*reply), xdr_dev_kiva_info);
    Check(raised.status.state == 8 && raised.status.dlSize == kWord + 1 && raised.mac == mac &&
              raised.detail == detail && raised.xmlPath == path,
          "a record of XDR");
    ZOR_UPG_DestroyKivaInfo(&raised);
    AskList();
    const std::string query("\x12\x34\x01\x00\x00\x01\x00\x00\x00\x00\x00\x00\x03www\x00\x00\x1c\x00\x01", 21);
    std::string refused = query;
    refused[2] = '\x81';
    refused[3] = '\x03';
    Check(BodyOf(*Ask(kName, 0, query)) == refused, "a DNS packet");
    Check(IsRecordAnswered(BodyOf(*Ask(kRecord, kByteOrder, MakeRecord()))), "a generated record");
    Check(IsJsonAnswered(BodyOf(*Ask(kJson, 0, MakeJson()))), "generated JSON");
    Check(IsManagementAnswered(peer_, kWaitMs), "a management message");
  }

  void AskList() {
    std::string first = "0123456789AB", second = "BA9876543210", none;
    dev_crashinfo_list last{nullptr, {second.data(), none.data(), none.data(), none.data(), none.data(), kWord}};
    dev_crashinfo_list list{&last, {first.data(), none.data(), none.data(), none.data(), none.data(), 1}};
    const Block reply = Ask(kList, 0, Encode(list, xdr_dev_crashinfo_list));
    dev_crashinfo_list raised = Decode(BodyOf(*reply), xdr_dev_crashinfo_list);
    Check(raised.info.DevMac == first && raised.info.ResultState == 2 && raised.next != nullptr &&
              raised.next->info.DevMac == second && raised.next->info.ResultState == kWord + 1,
          "a list of XDR");
    Destroy(raised);
  }

  void AskServer() {
    Check(ZOR_MSG_GetNumOfProcesses(peer_) == 1, "the server counts");
    ZOR_MSG_HEAD *reply = nullptr;
    const Block lost = MakeMessage("nobody", kEcho, 0, "");
    Check(ZOR_MSG_SendAndRecv(lost.get(), &reply, kWaitMs) == ZOR_E_PEER_GONE, "the notice of an absent daemon");
    const Block restful(ZOR_MSG_BuildRestfulReqMsg(1, 2, "/none", "/at/all", "text", 4));
    Check(restful && ZOR_MSG_SendAndRecv(restful.get(), &reply, kWaitMs) == ZOR_E_PEER_GONE, "an unserved path");
  }

  // Messages as they arrive, converted by the library and not.
  void Receive() {
    ZOR_MSG_SendSimpleMsg(nullptr, ZOR_MSG_SUBSCRIBE_EVENT, kEvent);
    const Block request = MakeMessage(peer_, kPublish, 0, "");
    ZOR_MSG_Send(request.get());
    ZOR_MSG_HEAD *received = nullptr;
    ZOR_MSG_RecvWithType(kEvent, &received, kWaitMs);
    const Block event(received);
    Check(event && event->data == kWord && BodyOf(*event) == "{\"word\":16909060}", "an event");
    ZOR_MSG_RecvWithType(kPublish, &received, kWaitMs);
    const Block published(received);
    if ((g_stMsgCtx.flags & ZOR_MSG_FLAG_SWAP) == 0) return;
    const Block echo = MakeMessage(peer_, kEcho, kWord, "");
    ZOR_MSG_Send(echo.get());
    ZOR_MSG_RecvWithEndian(g_stMsgCtx.socketFd, &received, kWaitMs, 0);
    const Block raw(received);
    Check(raw && raw->type == __builtin_bswap32(kEcho) && raw->data == __builtin_bswap32(kWord + 1),
          "a header that is not converted");
    if (raw) ZOR_MSG_HeaderEndianSwap(raw.get());
    Check(raw && raw->type == kEcho && raw->data == kWord + 1 && raw->sequence == echo->sequence, "its conversion");
  }

  void CheckSettings() {
    Check(ZOR_TRACE_GetFileMaxSize() == 3000 && ZOR_TRACE_GetOutput() == 1, "the trace output of the registration");
    Check(ZOR_TRACE_IsModuleEnabled("mixed", ZOR_TRACE_INFO) == 1 &&
              ZOR_TRACE_IsModuleEnabled("mixed", ZOR_TRACE_DEBUG) == 0,
          "the trace level of the registration");
  }

  const char *peer_;
};

}  // namespace

int main(int argc, char **argv) {
  if (argc < 4) return 2;
  const std::string way = argv[2];
  const bool remote = way != "local";
  const uint32_t status = remote ? ZOR_MSG_InitSlaveApp(argv[1], "127.0.0.1", static_cast<uint16_t>(std::stoi(way)))
                                 : ZOR_MSG_Init(argv[1]);
  if (g_stMsgCtx.socketFd < 0) {
    std::fprintf(stderr, "board_member: cannot join the bus: 0x%x\n", status);
    return 1;
  }
  if (std::string(argv[3]) == "serve") return RunServer();
  Asker(argv[4]).AskAll();
  return failures == 0 ? 0 : 1;
}
