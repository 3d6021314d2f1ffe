#include <gmock/gmock.h>
#include <zor/msg.h>
#include <zor/trace.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "support/capture.h"
#include "support/scripted_server.h"

namespace zor::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr uint32_t kType = 0x1234;
constexpr uint32_t kOther = 0x4321;

ZOR_MSG_HEAD Request(const char *destination = "server", uint32_t type = kType) {
  return MakeMessage(type, "", destination, 0, "", 77).header;
}

// Calls a request function and keeps its result.
struct Outcome {
  template <class Function, class Subject>
  Outcome(Function function, Subject subject, uint32_t timeoutMs) {
    ZOR_MSG_HEAD *received = &marker;
    status = function(subject, &received, timeoutMs);
    reply.reset(received);
  }
  ZOR_MSG_HEAD marker;  // a reply address that is not cleared would hold this
  uint32_t status;
  Block reply;
};

class Requests : public testing::Test {
 protected:
  ~Requests() override { ZOR_MSG_QueueDestroy(&g_stMsgCtx.pending); }

  void Send(uint32_t type, uint32_t data = 0, const char *source = "server") {
    bus_.peer.Send(MakeMessage(type, source, "tester", data));
  }
  std::vector<uint32_t> SetAside() {
    std::vector<uint32_t> words;
    for (const ZOR_MSG_QUEUE_NODE *node = g_stMsgCtx.pending; node != nullptr; node = node->next) {
      words.push_back(node->msg->data);
    }
    return words;
  }

  TempRoot root_;
  LoopbackBus bus_;
};

TEST_F(Requests, TakeTheFirstReplyOfTheirTypeAndSetEverythingElseAsideInOrder) {
  for (uint32_t i = 1; i <= 5; ++i) Send(kOther, i);
  Send(kType, 42, "anyone");  // its number is not that of the request
  ZOR_MSG_HEAD request = Request("server", kType | 0x07600000);
  const Outcome outcome(ZOR_MSG_SendAndRecv, &request, 60000);
  ASSERT_EQ(outcome.status, ZOR_OK);
  EXPECT_EQ(outcome.reply->data, 42u);
  EXPECT_THAT(SetAside(), ElementsAre(1, 2, 3, 4, 5));
  EXPECT_EQ(bus_.peer.ReceiveMessage()->header.sequence, g_stMsgCtx.sequence);
}

TEST_F(Requests, EndWithATimeoutWhenTimeIsUpOrWithoutOneAtTheFirstOtherMessage) {
  for (const uint32_t timeoutMs : {60u, 0u}) {
    Send(kOther, timeoutMs);
    ZOR_MSG_HEAD request = Request();
    const Outcome outcome(ZOR_MSG_SendAndRecv, &request, timeoutMs);
    EXPECT_EQ(outcome.status, ZOR_E_TIMEOUT);
    EXPECT_EQ(outcome.reply, nullptr);
  }
  EXPECT_THAT(SetAside(), ElementsAre(60, 0));
}

TEST_F(Requests, EndAtTheThousandthUnrelatedMessage) {
  std::string flood;
  for (uint32_t i = 0; i < 1000; ++i) flood += MakeMessage(kOther, "peer", "tester", i).Bytes();
  bus_.peer.Send(flood + MakeMessage(kType, "server", "tester").Bytes());
  EXPECT_EQ(Outcome(ZOR_MSG_RecvWithType, kType, 60000).status, ZOR_E_TIMEOUT);
  EXPECT_EQ(SetAside().size(), 1000u);
  EXPECT_EQ(Outcome(ZOR_MSG_RecvWithType, kType, 60000).status, ZOR_OK);
}

TEST_F(Requests, EndWhenTheServerReportsThatTheirDestinationIsAbsentOrIsGoneItself) {
  Send(ZOR_MSG_SEND_FAILED_NOTICE, kOther);
  Send(ZOR_MSG_SEND_FAILED_NOTICE, kType, "anyone");
  uint32_t word = 5;
  EXPECT_EQ(ZOR_MSG_SendAndRecvMsgData("absent", kType, 1, 60000, &word), ZOR_E_PEER_GONE);
  EXPECT_EQ(word, 5u);
  EXPECT_THAT(SetAside(), ElementsAre(kOther));
  Send(kType, 6);
  EXPECT_EQ(ZOR_MSG_SendAndRecvMsgData("there", kType, 1, 60000, &word), ZOR_OK);
  EXPECT_EQ(word, 6u);
  for (int each = 0; each < 2; ++each) EXPECT_EQ(bus_.peer.ReceiveMessage()->header.data, 1u);
  bus_.peer.Close();
  EXPECT_EQ(Outcome(ZOR_MSG_RecvWithType, kType, 60000).status, ZOR_E_PEER_GONE);
}

TEST_F(Requests, ClearTheReplyBeforeTheyRefuseTheirArguments) {
  ZOR_MSG_HEAD *const none = nullptr;
  ZOR_MSG_HEAD request = Request();
  for (const auto function :
       {ZOR_MSG_SendAndRecv, ZOR_MSG_SendAndRecvWithAppName, ZOR_MSG_RecvResponse, ZOR_MSG_RecvResponseWithAppName}) {
    const Outcome outcome(function, none, 10);
    EXPECT_EQ(outcome.status, ZOR_E_ARGUMENT);
    EXPECT_EQ(outcome.reply, nullptr);
    EXPECT_EQ(function(&request, nullptr, 10), ZOR_E_ARGUMENT);
  }
  EXPECT_TRUE(bus_.peer.NothingArrived());
  const BusPeer kept(std::exchange(g_stMsgCtx.socketFd, -1));
  EXPECT_EQ(Outcome(ZOR_MSG_SendAndRecv, &request, 10).status, ZOR_E_NOT_CONNECTED);
  EXPECT_EQ(Outcome(ZOR_MSG_RecvResponse, &request, 10).status, ZOR_E_ARGUMENT);
}

std::string way;  // of a request: past the hook, through it, or to the process itself

uint32_t NoteHook(ZOR_MSG_HEAD *, int *, int *) {
  way += "hook ";
  return 0;
}

void NoteLocal(ZOR_MSG_HEAD *msg, uint32_t) {
  way += "local from " + std::string(msg->source);
}

TEST_F(Requests, TakeTheWayThatTheirNamesPrescribe) {
  const struct {
    const char *ownName;
    const char *destination;
    uint32_t type;
    const char *taken;
    bool warned;
  } ways[] = {
      {"tester", "server", kType, "hook sent", false},
      {"tester", "tester", kType, "local from tester", false},
      {"tester", "tester", ZOR_MSG_REGISTER_APP, "hook sent", false},
      {"", "", kType, "sent", true},
      {"", "", ZOR_MSG_REGISTER_APP, "hook sent", false},
      {"mic", "server", kType, "sent", true},
      {"mic", "mic", kType, "local from mic", true},
  };
  ZOR_MSG_RegisterMsgProc(NoteLocal);
  g_pfMsgSendHook = NoteHook;
  for (const auto &expected : ways) {
    SCOPED_TRACE(std::string(expected.ownName) + " to " + expected.destination);
    Capture output;
    std::snprintf(g_stMsgCtx.appName, sizeof g_stMsgCtx.appName, "%s", expected.ownName);
    way.clear();
    Send(expected.type);
    ZOR_MSG_HEAD request = Request(expected.destination, expected.type);
    EXPECT_EQ(Outcome(ZOR_MSG_SendAndRecv, &request, 60000).status, ZOR_OK);
    if (bus_.peer.ReceiveMessage(std::chrono::milliseconds(0))) way += "sent";
    EXPECT_EQ(way, expected.taken);
    EXPECT_EQ(output.Text().find("in mic not allowed.\n") != std::string::npos, expected.warned);
    EXPECT_EQ(g_pfMsgSendHook, NoteHook);
  }
}

TEST_F(Requests, AtABarrierCarryTheCutNameAndPostTheWholeOne) {
  Send(ZOR_MSG_SYNC_WAIT, 99);
  EXPECT_EQ(ZOR_MSG_ZorSyncWait("a-very-long-name", 60000), 0u) << "the request's own data word";
  EXPECT_EQ(ZOR_MSG_ZorSyncWait(nullptr, 10), ZOR_E_TIMEOUT);
  EXPECT_EQ(ZOR_MSG_ZorSyncPost("a-very-long-name"), ZOR_OK);
  EXPECT_EQ(ZOR_MSG_ZorSyncPost(nullptr), 1u);
  EXPECT_EQ(ZOR_MSG_ZorSyncPost(""), 1u);
  const struct {
    uint32_t type;
    std::string body;
  } sent[] = {{ZOR_MSG_SYNC_WAIT, std::string("a-very-long\0", 12)},
              {ZOR_MSG_SYNC_WAIT, std::string(1, '\0')},
              {ZOR_MSG_SYNC_POST, std::string("a-very-long-name\0", 17)}};
  for (const auto &expected : sent) {
    const auto message = bus_.peer.ReceiveMessage();
    const uint32_t number = expected.type == ZOR_MSG_SYNC_POST ? 0 : message->header.sequence;
    EXPECT_EQ(message->Bytes(), MakeMessage(expected.type, "tester", "", 0, expected.body, number).Bytes());
  }
  EXPECT_TRUE(bus_.peer.NothingArrived());
}

}  // namespace
}  // namespace zor::test
