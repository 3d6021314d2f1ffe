#include <zor/config_wire.h>
#include <zor/event.h>
#include <zor/kiva.h>
#include <zor/log_wire.h>
#include <zor/msg.h>
#include <zor/platform/config.h>
#include <zor/status.h>
#include <zor/trace.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "board_member.h"
#include "records.h"

namespace zor::test {
namespace {

constexpr uint32_t kWaitMs = 60000;

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
    AskRestful(sameOrder);
    AskServer();
    AskServersOfRecords();
    Receive();
    CheckSettings();
    Word(kEnd);
  }

 private:
  static Block Ask(const Block &request, uint32_t *status = nullptr) {
    ZOR_MSG_HEAD *reply = nullptr;
    const uint32_t result = ZOR_MSG_SendAndRecv(request.get(), &reply, kWaitMs);
    if (status != nullptr) *status = result;
    if (status == nullptr && reply == nullptr) Check(false, "a reply");
    return Block(reply);
  }
  Block Ask(uint32_t type, uint32_t data, const std::string &body, uint32_t *status = nullptr) {
    return Ask(MakeMessage(peer_, type, data, body), status);
  }
  // Whether the reply has the data word.
  static bool AnswersWith(uint32_t expected, const char *name, uint32_t type, uint32_t data, const std::string &body) {
    const Block reply = Ask(MakeMessage(name, type, data, body));
    return reply && reply->data == expected;
  }
  static void Tell(const char *name, uint32_t type, const std::string &body) {
    const Block message = MakeMessage(name, type, 0, body);
    Check(ZOR_MSG_Send(message.get()) == ZOR_OK, "a message");
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
    Check(BodyOf(*Ask(kQuery, 0, query)) == refused, "a DNS packet");
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

  void AskRestful(bool sameOrder) {
    const auto theirs = [=](uint32_t word) { return sameOrder ? word : __builtin_bswap32(word); };
    std::array<char, 64> expected{};
    std::snprintf(expected.data(), expected.size(), "%08x %08x text", theirs(kWord), theirs(kWord + 1));
    const Block reply = Ask(Block(ZOR_MSG_BuildRestfulReqMsg(kWord, kWord + 1, kPath, kName, "text", 4)));
    Check(reply && BodyOf(*reply) == std::string(expected.data()) + '\0', "a restful request");
  }

  // Servers that take records, on the machine of the message server, whose order those have to have. mixed_bus.sh
  // checks what they have understood.
  void AskServersOfRecords() {
    const bool isReversed = (g_stMsgCtx.flags & ZOR_MSG_FLAG_SWAP) != 0;
    if (isReversed) std::puts("the records for the servers are converted");
    if (isReversed) Tell(ZOR_LOG_DAEMON_NAME, ZOR_LOG_MSG_RECORD, MakeLogRecord("raw", false));
    Check(AnswersWith(0, ZOR_LOG_DAEMON_NAME, ZOR_LOG_MSG_RECORD, 0, MakeLogRecord("worker", isReversed)),
          "a log record");
    AskForConfigurations(isReversed);
    constexpr char kMac[] = "0123456789AB";
    Check(AnswersWith(0, ZOR_KIVA_DAEMON_NAME, ZOR_MSG_KIVA_ADD_SYNC, 0, MakeDevice(kMac, 7, kWord, isReversed)),
          "a device");
    dev_kiva_info *const device = ZOR_UPG_GetKivaInfoByMac(kMac);
    Check(device != nullptr && device->status.state == 7 && device->status.dlSize == kWord, "the list of devices");
    ZOR_UPG_DestroyKivaInfo(device);
    std::free(device);
  }

  static void AskForConfigurations(bool isReversed) {
    constexpr uint32_t kSaver = 3, kNobody = 4;
    const std::string path("/exported\0", 10);
    Check(AnswersWith(0, "", ZOR_MSG_DB_SAVE_SYNC, kSaver, ""), "a saved configuration");
    if (isReversed) Tell("", ZOR_MSG_RESTORE_DEFAULT, MakeRestoration(kSaver, false));
    Tell("", ZOR_MSG_RESTORE_DEFAULT, MakeRestoration(kSaver, isReversed));
    Tell("", ZOR_MSG_RESTORE_DEFAULT, MakeRestoration(kNobody, isReversed));
    Check(AnswersWith(0, "", ZOR_MSG_EXPORT_CFG_FILE, kSaver, path), "its export");
    Check(AnswersWith(ZOR_STORE_E_NOT_FOUND, "", ZOR_MSG_EXPORT_CFG_FILE, kNobody, path), "an export of nothing");
  }

  // Messages as they arrive, converted by the library and not.
  void Receive() {
    ZOR_MSG_SendSimpleMsg(nullptr, ZOR_MSG_SUBSCRIBE_EVENT, kEvent);
    const Block request = MakeMessage(peer_, kPublish, 0, "");
    ZOR_MSG_Send(request.get());
    ZOR_MSG_HEAD *received = nullptr;
    ZOR_MSG_RecvWithType(kEvent, &received, kWaitMs);
    const Block event(received);
    Check(event && event->data == kWord && BodyOf(*event) == kEventText, "an event");
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

int AskAll(const char *peer) {
  Asker(peer).AskAll();
  return failures == 0 ? 0 : 1;
}

}  // namespace zor::test
