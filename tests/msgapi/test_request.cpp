#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zor/mlog.h>
#include <zor/msg.h>
#include <zor/trace.h>
#include <zor/uv.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/capture.h"
#include "support/child.h"
#include "support/scripted_server.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using zor::test::MakeMessage;
using Reply = std::unique_ptr<ZOR_MSG_HEAD, decltype(&std::free)>;

constexpr uint32_t kType = 0x1234;
constexpr uint32_t kOther = 0x4321;

ZOR_MSG_HEAD Request(const char *destination = "server", uint32_t type = kType) {
  ZOR_MSG_HEAD header;
  ZOR_MSG_SimpleBuilder(&header, destination, type, 0);
  return header;
}

// Calls a request function and keeps what it returned.
struct Outcome {
  template <class Function, class Subject>
  Outcome(Function function, Subject subject, uint32_t timeoutMs) : reply(nullptr, &std::free) {
    ZOR_MSG_HEAD *received = &marker;
    status = function(subject, &received, timeoutMs);
    reply.reset(received);
  }
  ZOR_MSG_HEAD marker;  // a reply address that is not cleared would hold this
  uint32_t status;
  Reply reply;
};

class Requests : public testing::Test {
 protected:
  ~Requests() override { ZOR_MSG_QueueDestroy(&g_stMsgCtx.pending); }

  void Send(uint32_t type, uint32_t data = 0, const char *source = "server", uint32_t sequence = 0) {
    bus_.peer.Send(MakeMessage(type, source, "tester", data, "", sequence));
  }
  std::vector<uint32_t> SetAside() {
    std::vector<uint32_t> words;
    for (const ZOR_MSG_QUEUE_NODE *node = g_stMsgCtx.pending; node != nullptr; node = node->next) {
      words.push_back(node->msg->data);
    }
    return words;
  }

  zor::test::TempRoot root_;
  zor::test::LoopbackBus bus_;
};

TEST_F(Requests, TakeTheFirstReplyOfTheirTypeAndSetEverythingElseAsideInOrder) {
  for (uint32_t i = 1; i <= 5; ++i) Send(kOther, i);
  Send(kType, 42, "anyone", 999);  // belongs to an earlier request, as its number says
  ZOR_MSG_HEAD request = Request("server", kType | 0x07600000);
  const Outcome outcome(ZOR_MSG_SendAndRecv, &request, 3000);
  ASSERT_EQ(outcome.status, ZOR_OK);
  EXPECT_EQ(outcome.reply->data, 42u);
  EXPECT_THAT(SetAside(), ElementsAre(1, 2, 3, 4, 5));
  EXPECT_EQ(bus_.peer.ReceiveMessage()->header.sequence, g_stMsgCtx.sequence);
}

TEST_F(Requests, WithAnApplicationNameTakeRepliesFromItAloneAndTraceTheirWait) {
  zor::test::Capture output;
  for (const char *module : {"track", "msg"}) ZOR_TRACE_SetPackageLevel(module, ZOR_TRACE_INFO);
  Send(kType, 1, "impostor");
  Send(kType, 2, "twelve-chars");  // fills the field, without a terminator
  Send(kType, 3, "server");
  ZOR_MSG_HEAD request = Request();
  request.sequence = 77;
  const Outcome outcome(ZOR_MSG_RecvResponseWithAppName, &request, 3000);
  ASSERT_EQ(outcome.status, ZOR_OK);
  EXPECT_EQ(outcome.reply->data, 3u);
  EXPECT_THAT(SetAside(), ElementsAre(1, 2));
  EXPECT_THAT(output.Text(),
              AllOf(HasSubstr("[start sync 77:0x1234] recv resp msg from [server] now ..."),
                    HasSubstr("Backup not matched msg type:[0x1234] app:[tester] data:[2] len:[0] dst:[tester] "
                              "src:[twelve-chars] return 0."),
                    HasSubstr("[end sync 77:0x1234] finish resp msg with 0x0, 2 msg queued.")));
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
  EXPECT_EQ(ZOR_MSG_SendAndRecvMsgData("absent", kType, 1, 3000, &word), ZOR_E_PEER_GONE);
  EXPECT_EQ(word, 5u);
  EXPECT_THAT(SetAside(), ElementsAre(kOther));
  EXPECT_EQ(bus_.peer.ReceiveMessage()->header.data, 1u);
  bus_.peer.Close();
  EXPECT_EQ(Outcome(ZOR_MSG_RecvWithType, kType, 3000).status, ZOR_E_PEER_GONE);
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
  EXPECT_EQ(ZOR_MSG_RecvWithType(kType, nullptr, 10), ZOR_E_ARGUMENT);
  EXPECT_EQ(ZOR_MSG_AsyncSendAndRecv(nullptr, nullptr, 10, nullptr), ZOR_E_ARGUMENT);
  EXPECT_EQ(ZOR_MSG_SendAndRecvMsgData("server", kType, 0, 10, nullptr), ZOR_E_ARGUMENT);
  EXPECT_TRUE(bus_.peer.NothingArrived());
}

TEST_F(Requests, WithoutAConnectionAreRefusedByTheirFirstStep) {
  const zor::test::BusPeer kept(std::exchange(g_stMsgCtx.socketFd, -1));
  ZOR_MSG_HEAD request = Request();
  EXPECT_EQ(Outcome(ZOR_MSG_SendAndRecv, &request, 10).status, ZOR_E_NOT_CONNECTED);
  EXPECT_EQ(Outcome(ZOR_MSG_RecvResponse, &request, 10).status, ZOR_E_ARGUMENT);
  request = Request("tester");
  EXPECT_EQ(Outcome(ZOR_MSG_SendAndRecv, &request, 10).status, ZOR_E_ARGUMENT);
}

// Which way a request takes: past the hook, through it, or to the process itself.
struct Way {
  const char *ownName;
  const char *destination;
  uint32_t type;
  const char *taken;
  bool warned;
};

std::string way;

uint32_t NoteHook(ZOR_MSG_HEAD *, int *, int *) {
  way += "hook ";
  return 0;
}

void NoteLocal(ZOR_MSG_HEAD *msg, uint32_t) {
  way += "local from " + std::string(msg->source);
}

TEST_F(Requests, TakeTheWayThatTheirNamesPrescribe) {
  const Way ways[] = {
      {"tester", "server", kType, "hook sent", false},
      {"tester", "tester", kType, "local from tester", false},
      {"tester", "tester", ZOR_MSG_REGISTER_APP, "hook sent", false},
      {"", "server", kType, "sent", true},
      {"", "", kType, "sent", true},
      {"", "", ZOR_MSG_REGISTER_APP, "hook sent", false},
      {"mic", "server", kType, "sent", true},
      {"mic", "mic", kType, "local from mic", true},
  };
  ZOR_MSG_RegisterMsgProc(NoteLocal);
  g_pfMsgSendHook = NoteHook;
  for (const Way &expected : ways) {
    SCOPED_TRACE(std::string(expected.ownName) + " to " + expected.destination);
    zor::test::Capture output;
    std::snprintf(g_stMsgCtx.appName, sizeof g_stMsgCtx.appName, "%s", expected.ownName);
    way.clear();
    Send(expected.type);
    ZOR_MSG_HEAD request = Request(expected.destination, expected.type);
    EXPECT_EQ(Outcome(ZOR_MSG_SendAndRecv, &request, 3000).status, ZOR_OK);
    if (bus_.peer.ReceiveMessage(std::chrono::milliseconds(0))) way += "sent";
    EXPECT_EQ(way, expected.taken);
    EXPECT_EQ(output.Text().find("in mic not allowed.\n") != std::string::npos, expected.warned);
    EXPECT_EQ(g_pfMsgSendHook, NoteHook);
  }
}

TEST_F(Requests, AtABarrierCarryTheCutNameAndPostTheWholeOne) {
  Send(ZOR_MSG_SYNC_WAIT, 99);
  EXPECT_EQ(ZOR_MSG_ZorSyncWait("a-very-long-name", 3000), 0u);
  const auto wait = bus_.peer.ReceiveMessage();
  ASSERT_TRUE(wait.has_value());
  EXPECT_EQ(wait->header.type, ZOR_MSG_SYNC_WAIT);
  EXPECT_EQ(wait->body, std::string("a-very-long\0", 12));
  EXPECT_STREQ(wait->header.destination, "");

  EXPECT_EQ(ZOR_MSG_ZorSyncPost("a-very-long-name"), ZOR_OK);
  const auto post = bus_.peer.ReceiveMessage();
  ASSERT_TRUE(post.has_value());
  EXPECT_EQ(post->header.type, ZOR_MSG_SYNC_POST);
  EXPECT_EQ(post->header.sequence, 0u);
  EXPECT_EQ(post->body, std::string("a-very-long-name\0", 17));

  EXPECT_EQ(ZOR_MSG_ZorSyncWait(nullptr, 10), ZOR_E_TIMEOUT);
  EXPECT_EQ(bus_.peer.ReceiveMessage()->body, std::string(1, '\0'));
  EXPECT_EQ(ZOR_MSG_ZorSyncPost(nullptr), 1u);
  EXPECT_EQ(ZOR_MSG_ZorSyncPost(""), 1u);
  EXPECT_TRUE(bus_.peer.NothingArrived());
}

struct Answer {
  uint32_t status = 99;
  uint32_t data = 0;
};

void Note(ZOR_MSG_HEAD *reply, uint32_t status, void *answer) {
  *static_cast<Answer *>(answer) = {status, reply == nullptr ? 0 : reply->data};
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

TEST(AsyncRequests, AreAnsweredByTypeAndSequenceNumberOrTimeOut) {
  const zor::test::TempRoot root;
  zor::test::ScriptedServer server(root, zor::test::AnswerRegistration(zor::test::MakeRegistrationReply("tester")));
  ASSERT_EQ(ZOR_MSG_Init("tester"), ZOR_OK);
  const zor::test::BusPeer peer = server.TakeOver();
  Answer answered;
  Answer unanswered;
  ZOR_MSG_HEAD request = Request();
  ASSERT_EQ(ZOR_MSG_AsyncSendAndRecv(&request, Note, 60000, &answered), ZOR_OK);
  peer.Send(MakeMessage(kType, "server", "tester", 1, "", request.sequence + 1));
  peer.Send(MakeMessage(kType, "server", "tester", 2, "", request.sequence));
  EXPECT_EQ(ZOR_UV_LoopRun(nullptr, 0), ZOR_OK);
  EXPECT_EQ(answered.status, 0u);
  EXPECT_EQ(answered.data, 2u);

  ASSERT_EQ(ZOR_MSG_AsyncSendAndRecv(&request, Note, 20, &unanswered), ZOR_OK);
  EXPECT_EQ(ZOR_UV_LoopRun(nullptr, 0), ZOR_OK);
  EXPECT_EQ(unanswered.status, 1u);
  EXPECT_EQ(ZOR_MSG_AsyncSendAndRecv(&request, nullptr, 20, &unanswered), ZOR_E_IO);
  for (int sent = 0; sent < 3; ++sent) EXPECT_TRUE(peer.ReceiveMessage().has_value());
  ZOR_MSG_Destroy();
  ZOR_UV_LoopDestroy(ZOR_UV_LoopGetDefault());
}

}  // namespace
