#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>
#include <zor/msg.h>
#include <zor/trace.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "sdk/msgapi/queue.h"
#include "support/capture.h"
#include "support/child.h"
#include "support/scripted_server.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using zor::test::Capture;
using zor::test::Child;
using zor::test::LoopbackBus;

constexpr uint32_t kType = 0x6001;

std::vector<std::string> calls;

ZOR_MSG_HEAD Header(uint32_t type, const char *source = "asker", const char *destination = "tester") {
  return zor::test::MakeMessage(type, source, destination, 7, {}, 42).header;
}

ZOR_MSG_HEAD *QueuedMessage(uint32_t type) {
  auto *msg = static_cast<ZOR_MSG_HEAD *>(std::malloc(sizeof(ZOR_MSG_HEAD)));
  *msg = Header(type);
  return msg;
}

void Dispatch(uint32_t type) {
  ZOR_MSG_HEAD msg = Header(type);
  ZOR_MSG_DefaultMsgProc(&msg, 0);
}

template <char Name>
void Note(ZOR_MSG_HEAD *) {
  calls.emplace_back(1, Name);
}

ZOR_MSG_HEAD *Answer(ZOR_MSG_HEAD *msg) {
  calls.emplace_back("answer");
  ZOR_MSG_HEAD *reply = ZOR_MSG_MsgResponseBuilder(msg, 99, "body", 4);
  reply->type = 1;  // the bus puts type and destination right
  std::memcpy(reply->destination, "nobody", 7);
  return reply;
}

TEST(HandlerTable, RunsHandlersOfATypeInAscendingOrderAndEqualOrdersAsRegistered) {
  ZOR_MSG_RegMsgProc(kType, Note<'a'>, 5, nullptr);
  ZOR_MSG_RegMsgProc(kType + 1, Note<'x'>, 0, nullptr);
  ZOR_MSG_RegMsgProc(kType, Note<'b'>, 1, nullptr);
  ZOR_MSG_RegMsgProc(kType, Note<'c'>, 5, nullptr);
  ZOR_MSG_RegMsgProc(kType, Note<'d'>, 3, nullptr);
  Dispatch(kType | 0x100000);
  Dispatch(kType);
  EXPECT_THAT(calls, ElementsAre("b", "d", "a", "c"));
}

ZOR_MSG_PROC_ENTRY *first = nullptr;
ZOR_MSG_PROC_ENTRY *second = nullptr;

TEST(HandlerTable, AHandlerUnregisteredDuringDispatchIsNotCalledAnyMore) {
  const auto nest = [](ZOR_MSG_HEAD *) { Dispatch(kType + 1); };
  const auto unregisterOuter = [](ZOR_MSG_HEAD *) {
    ZOR_MSG_UnRegMsgProc(first);
    ZOR_MSG_UnRegMsgProc(second);
  };
  ZOR_MSG_RegMsgProcEx(kType, nest, Answer, 0, &first);
  ZOR_MSG_RegMsgProc(kType, Note<'n'>, 0, &second);
  ZOR_MSG_RegMsgProc(kType, Note<'l'>, 0, nullptr);
  ZOR_MSG_RegMsgProc(kType + 1, unregisterOuter, 0, nullptr);
  Dispatch(kType);
  Dispatch(kType);
  ZOR_MSG_UnRegMsgProc(first);  // gone already
  EXPECT_THAT(calls, ElementsAre("l", "l"));
}

TEST(DefaultProc, RunsAllHandlersAndSendsOneAnswerToTheSource) {
  LoopbackBus bus;
  ZOR_MSG_RegMsgProc(kType, Note<'a'>, 0, nullptr);
  ZOR_MSG_RegSyncMsgProc(kType, Answer, 1, nullptr);
  ZOR_MSG_RegMsgProc(kType, Note<'b'>, 2, nullptr);
  Dispatch(kType);
  EXPECT_THAT(calls, ElementsAre("a", "answer", "b"));
  const auto reply = bus.peer.ReceiveMessage();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->header.type, kType);
  EXPECT_STREQ(reply->header.destination, "asker");
  EXPECT_STREQ(reply->header.source, "tester");
  EXPECT_EQ(reply->header.sequence, 42u);
  EXPECT_EQ(reply->header.data, 99u);
  EXPECT_EQ(reply->body, "body");
  EXPECT_TRUE(bus.peer.NothingArrived());
}

TEST(DefaultProc, AcceptsTheRequestItselfAsTheAnswerAndNamesWithoutTerminator) {
  LoopbackBus bus;
  ZOR_MSG_RegSyncMsgProc(
      kType, [](ZOR_MSG_HEAD *msg) { return msg; }, 0, nullptr);
  ZOR_MSG_HEAD *msg = QueuedMessage(kType);
  std::memset(msg->source, 's', sizeof msg->source);
  std::memset(msg->destination, 'd', sizeof msg->destination);
  ZOR_MSG_DefaultMsgProc(msg, 0);
  std::free(msg);
  const auto reply = bus.peer.ReceiveMessage();
  ASSERT_TRUE(reply);
  EXPECT_STREQ(reply->header.destination, "sssssssssss");
}

TEST(Filter, PassesABodyOfTheDispatchLimitAndPrintsALargerOne) {
  static uint32_t lengthSeen = 0;
  ZOR_MSG_RegisterMsgProc([](ZOR_MSG_HEAD *, uint32_t length) { lengthSeen = length; });
  ZOR_TRACE_SetPackageLevel("track", ZOR_TRACE_INFO);
  ZOR_MSG_HEAD msg = Header(kType);
  msg.bodyLength = ZOR_MSG_DISPATCH_BODY_MAX;
  ZOR_MSG_MsgFilterProc(&msg, 0);
  EXPECT_EQ(lengthSeen, ZOR_MSG_DISPATCH_BODY_MAX);

  msg.bodyLength = ZOR_MSG_DISPATCH_BODY_MAX + 1;
  Capture output;
  ZOR_MSG_MsgFilterProc(&msg, 0);
  ZOR_MSG_MsgFilterProc(nullptr, 0);
  EXPECT_EQ(lengthSeen, ZOR_MSG_DISPATCH_BODY_MAX);
  EXPECT_THAT(output.Text(), HasSubstr("[start msg "));
  EXPECT_THAT(output.Text(), HasSubstr("[msg] error msg datalen = 2097153 \r\n"));
  EXPECT_THAT(output.Text(), Not(HasSubstr("[end msg ")));
}

TEST(SafeExit, ADaemonOfTheListAnswersAndExitsWhateverItsOwnNameIs) {
  for (const char *name : {"dhcps", "ssdpd", "upnp", "ntwksync", "quorelbridge", "devmngr", "datacli"}) {
    SCOPED_TRACE(name);
    LoopbackBus bus("other");
    Capture output;
    Child daemon = Child::Function([&] {
      ZOR_MSG_HEAD msg = Header(ZOR_MSG_SAFE_EXIT, "asker", name);
      ZOR_MSG_DefaultMsgProc(&msg, 0);
      return 3;
    });
    const std::string pid = std::to_string(daemon.pid());
    EXPECT_EQ(daemon.Wait(), 0);
    EXPECT_EQ(output.Text(), "Fatal: App(other:" + pid + ") exited.=================================\n");
    const auto acknowledgement = bus.peer.ReceiveMessage();
    ASSERT_TRUE(acknowledgement);
    EXPECT_EQ(acknowledgement->header.type, ZOR_MSG_SAFE_EXIT);
    EXPECT_STREQ(acknowledgement->header.destination, "asker");
    EXPECT_EQ(acknowledgement->header.data, 0u);
  }
}

TEST(SafeExit, IsIgnoredForOtherDestinationsAndLeftToAHandler) {
  LoopbackBus bus("upnp");
  for (const char *name : {"cms", "", "upnpx", "upn"}) {
    ZOR_MSG_HEAD msg = Header(ZOR_MSG_SAFE_EXIT, "asker", name);
    ZOR_MSG_DefaultMsgProc(&msg, 0);
  }
  ZOR_MSG_RegMsgProc(ZOR_MSG_SAFE_EXIT, Note<'h'>, 0, nullptr);
  ZOR_MSG_HEAD msg = Header(ZOR_MSG_SAFE_EXIT, "asker", "upnp");
  ZOR_MSG_DefaultMsgProc(&msg, 0);
  EXPECT_THAT(calls, ElementsAre("h"));
  EXPECT_TRUE(bus.peer.NothingArrived());
}

TEST(Queue, KeepsOrderAndExtraWordsAndIsEmptyAfterDestroy) {
  ZOR_MSG_QUEUE_NODE *queue = nullptr;
  EXPECT_EQ(ZOR_MSG_QueueAppend(&queue, nullptr), ZOR_E_ARGUMENT);
  EXPECT_EQ(ZOR_MSG_QueueAppend(&queue, QueuedMessage(1)), ZOR_OK);
  EXPECT_EQ(ZOR_MSG_QueueAppendEx(&queue, QueuedMessage(2), UINTPTR_MAX), ZOR_OK);
  EXPECT_EQ(queue->msg->type, 1u);
  EXPECT_EQ(queue->extra, 0u);
  EXPECT_EQ(queue->next->msg->type, 2u);
  EXPECT_EQ(queue->next->extra, UINTPTR_MAX);
  ZOR_MSG_QueueDestroy(&queue);
  EXPECT_EQ(queue, nullptr);
}

TEST(PendingDrain, DispatchesInOrderWithWhatHandlersQueueOrDrainThemselves) {
  ZOR_MSG_RegisterMsgProc([](ZOR_MSG_HEAD *msg, uint32_t) {
    calls.push_back(std::to_string(msg->type));
    if (msg->type == 1) ZOR_MSG_QueueAppend(&g_stMsgCtx.pending, QueuedMessage(4));
    if (msg->type == 2) zor::DrainPending(nullptr, 0);
  });
  for (const uint32_t type : {1u, 2u, 3u}) ZOR_MSG_QueueAppend(&g_stMsgCtx.pending, QueuedMessage(type));
  ZOR_TRACE_SetPackageLevel("msg", ZOR_TRACE_INFO);
  Capture output;
  zor::DrainPending(nullptr, 0);
  EXPECT_THAT(calls, ElementsAre("1", "2", "3", "4"));
  EXPECT_EQ(g_stMsgCtx.pending, nullptr);
  EXPECT_THAT(output.Text(), HasSubstr("Clear 3 messages in queue now ..."));
  EXPECT_THAT(output.Text(), HasSubstr("Clear 2 messages in queue finished."));
}

bool IsOpen(int fd) {
  return ::fcntl(fd, F_GETFD) >= 0;
}

TEST(TraceProc, KeepsADescriptorOnlyWhileTheSwitchIsSetAndClosesOnlyItsOwn) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const int refused = ::dup(ends[1]);
  ZOR_MSG_TraceProc(refused);
  EXPECT_EQ(g_stMsgCtx.traceStream, nullptr);
  EXPECT_FALSE(IsOpen(refused));

  g_stMsgCtx.traceFdEnabled = 1;
  ZOR_MSG_TraceProc(ends[1]);
  EXPECT_NE(g_stMsgCtx.traceStream, nullptr);
  EXPECT_EQ(g_stMsgCtx.traceFd, ends[1]);
  ZOR_MSG_TraceProc(ends[0]);  // no stream for writing can be opened on it
  EXPECT_EQ(g_stMsgCtx.traceStream, nullptr);
  EXPECT_EQ(g_stMsgCtx.traceFd, -1);
  EXPECT_FALSE(IsOpen(ends[0]));
  EXPECT_FALSE(IsOpen(ends[1]));

  g_stMsgCtx.traceFd = 0;  // as ZOR_MSG_Destroy leaves it
  ZOR_MSG_TraceProc(-1);
  EXPECT_TRUE(IsOpen(0));
}

}  // namespace
