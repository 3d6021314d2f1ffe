#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>
#include <zor/msg.h>
#include <zor/trace.h>

#include <cstring>
#include <string>
#include <vector>

#include "sdk/msgapi/queue.h"
#include "support/capture.h"
#include "support/child.h"
#include "support/scripted_server.h"

namespace zor::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr uint32_t kType = 0x6001;

std::vector<std::string> calls;

ZOR_MSG_HEAD Header(uint32_t type, const std::string &source = "asker", const std::string &destination = "tester") {
  return MakeMessage(type, source, destination, 7, {}, 42).header;
}

void Dispatch(ZOR_MSG_HEAD msg) {
  ZOR_MSG_DefaultMsgProc(&msg, 0);
}

ZOR_MSG_HEAD *NewMessage(uint32_t type) {
  const ZOR_MSG_HEAD msg = Header(type);
  return ZOR_MSG_Dup(&msg);
}

template <char Name>
void Note(ZOR_MSG_HEAD *) {
  calls.emplace_back(1, Name);
}

ZOR_MSG_HEAD *Reply(ZOR_MSG_HEAD *msg) {
  calls.emplace_back("reply");
  ZOR_MSG_HEAD *reply = ZOR_MSG_MsgResponseBuilder(msg, 99, "body", 4);
  reply->type = 1;  // the bus corrects type and destination
  std::memcpy(reply->destination, "nobody", 7);
  return reply;
}

TEST(HandlerTable, RunsHandlersOfATypeInAscendingOrderAndEqualOrdersAsRegistered) {
  ZOR_MSG_RegMsgProc(kType, Note<'a'>, 5, nullptr);
  ZOR_MSG_RegMsgProc(kType + 1, Note<'x'>, 0, nullptr);
  ZOR_MSG_RegMsgProc(kType, Note<'b'>, 1, nullptr);
  ZOR_MSG_RegMsgProc(kType, Note<'c'>, 5, nullptr);
  ZOR_MSG_RegMsgProc(kType, Note<'d'>, 3, nullptr);
  Dispatch(Header(kType | 0x100000));
  Dispatch(Header(kType));
  EXPECT_THAT(calls, ElementsAre("b", "d", "a", "c"));
}

ZOR_MSG_PROC_ENTRY *first = nullptr;
ZOR_MSG_PROC_ENTRY *second = nullptr;

TEST(HandlerTable, AHandlerUnregisteredDuringDispatchIsNotCalledAnyMore) {
  const auto nest = [](ZOR_MSG_HEAD *) { Dispatch(Header(kType + 1)); };
  const auto unregisterOuter = [](ZOR_MSG_HEAD *) {
    ZOR_MSG_UnRegMsgProc(first);
    ZOR_MSG_UnRegMsgProc(second);
  };
  ZOR_MSG_RegMsgProcEx(kType, nest, Reply, 0, &first);
  ZOR_MSG_RegMsgProc(kType, Note<'n'>, 0, &second);
  ZOR_MSG_RegMsgProc(kType, Note<'l'>, 0, nullptr);
  ZOR_MSG_RegMsgProc(kType + 1, unregisterOuter, 0, nullptr);
  Dispatch(Header(kType));
  Dispatch(Header(kType));
  ZOR_MSG_UnRegMsgProc(first);  // already removed
  EXPECT_THAT(calls, ElementsAre("l", "l"));
}

// On its first call, registers handlers of its type after, between and before the others.
void Register(ZOR_MSG_HEAD *) {
  calls.emplace_back("r");
  if (calls.size() > 1) return;
  ZOR_MSG_RegMsgProc(kType, Note<'b'>, 5, nullptr);
  ZOR_MSG_RegMsgProc(kType, Note<'e'>, 9, nullptr);
  ZOR_MSG_RegMsgProc(kType, Note<'a'>, 4, nullptr);
}

TEST(HandlerTable, AHandlerRegisteredDuringDispatchRunsInItWhenItsPlaceIsStillAhead) {
  ZOR_MSG_RegMsgProc(kType, Register, 5, nullptr);
  Dispatch(Header(kType));
  EXPECT_THAT(calls, ElementsAre("r", "b", "e"));
  ZOR_MSG_RegMsgProc(kType, Note<'d'>, 8, nullptr);
  Dispatch(Header(kType));
  EXPECT_THAT(calls, ElementsAre("r", "b", "e", "a", "r", "b", "d", "e"));
}

TEST(DefaultProc, RunsAllHandlersAndSendsOneReplyToTheSource) {
  LoopbackBus bus;
  ZOR_MSG_RegMsgProc(kType, Note<'a'>, 0, nullptr);
  ZOR_MSG_RegSyncMsgProc(kType, Reply, 1, nullptr);
  ZOR_MSG_RegMsgProc(kType, Note<'b'>, 2, nullptr);
  Dispatch(Header(kType, std::string(12, 's'), std::string(12, 'd')));  // names without a terminator
  EXPECT_THAT(calls, ElementsAre("a", "reply", "b"));
  EXPECT_EQ(bus.peer.ReceiveMessage()->Bytes(),
            MakeMessage(kType, "tester", std::string(11, 's'), 99, "body", 42).Bytes());
  EXPECT_TRUE(bus.peer.NothingArrived());
}

TEST(DefaultProc, AcceptsTheRequestItselfAsTheReply) {
  LoopbackBus bus;
  const auto giveBack = [](ZOR_MSG_HEAD *msg) { return msg; };
  ZOR_MSG_RegSyncMsgProc(kType, giveBack, 0, nullptr);
  Dispatch(Header(kType));
  EXPECT_STREQ(bus.peer.ReceiveMessage()->header.destination, "asker");
}

TEST(Filter, PassesABodyOfTheDispatchLimitAndPrintsALargerOne) {
  ZOR_MSG_RegisterMsgProc([](ZOR_MSG_HEAD *msg, uint32_t length) {
    calls.push_back(std::to_string(length));
    msg->type = 1;  // a handler may use the block for its reply
  });
  ZOR_TRACE_SetPackageLevel("track", ZOR_TRACE_INFO);
  Capture output;
  for (const uint32_t length : {ZOR_MSG_DISPATCH_BODY_MAX, ZOR_MSG_DISPATCH_BODY_MAX + 1}) {
    ZOR_MSG_HEAD msg = Header(kType);
    msg.bodyLength = length;
    ZOR_MSG_MsgFilterProc(&msg, 0);
  }
  ZOR_MSG_MsgFilterProc(nullptr, 0);
  EXPECT_THAT(calls, ElementsAre("2097152"));
  const char rest[] = " msg 0:0x6001] msg type:[0x6001] app:[] data:[7] len:[2097152] dst:[tester] src:[asker]";
  EXPECT_THAT(output.Text(), AllOf(HasSubstr(std::string("[start") + rest), HasSubstr(std::string("[end") + rest),
                                   HasSubstr("len:[2097153]"), Not(HasSubstr("[end msg 0:0x1]")),
                                   HasSubstr("[msg] error msg datalen = 2097153 \r\n")));
}

TEST(DefaultProc, PrintsAnOwnNameThatFillsItsFieldWithoutReadingOn) {
  const std::string name(ZOR_MSG_NAME_SIZE, 'n');
  std::memcpy(g_stMsgCtx.appName, name.data(), name.size());
  g_stMsgCtx.socketFd = 0x7e7e7e7e;  // the text "~~~~" directly behind the name
  ZOR_TRACE_SetPackageLevel("msg", ZOR_TRACE_INFO);
  ZOR_MSG_RegMsgProc(kType, Note<'a'>, 0, nullptr);
  Capture output;
  Dispatch(Header(kType));
  EXPECT_EQ(Child::Function([] { return Dispatch(Header(ZOR_MSG_SAFE_EXIT, "asker", "upnp")), 3; }).Wait(), 0);
  EXPECT_THAT(output.Text(), AllOf(HasSubstr("Match msg"), HasSubstr("Process msg"), HasSubstr("App(" + name + ":"),
                                   Not(HasSubstr("~"))));
}

TEST(SafeExit, ADaemonOfTheListRepliesAndExitsWhateverItsOwnNameIs) {
  for (const char *name : {"dhcps", "ssdpd", "upnp", "ntwksync", "quorelbridge", "devmngr", "datacli"}) {
    SCOPED_TRACE(name);
    LoopbackBus bus("other");
    Capture output;
    Child daemon = Child::Function([&] { return Dispatch(Header(ZOR_MSG_SAFE_EXIT, "asker", name)), 3; });
    const std::string pid = std::to_string(daemon.pid());
    EXPECT_EQ(daemon.Wait(), 0);
    EXPECT_EQ(output.Text(), "Fatal: App(other:" + pid + ") exited.=================================\n");
    EXPECT_EQ(bus.peer.ReceiveMessage()->Bytes(), MakeMessage(ZOR_MSG_SAFE_EXIT, "other", "asker", 0, "", 1).Bytes());
  }
}

TEST(PendingDrain, DispatchesInOrderWithWhatHandlersQueueOrDrainThemselves) {
  ZOR_MSG_RegisterMsgProc([](ZOR_MSG_HEAD *msg, uint32_t) {
    calls.push_back(std::to_string(msg->type));
    if (msg->type == 1) ZOR_MSG_QueueAppend(&g_stMsgCtx.pending, NewMessage(4));
    if (msg->type == 2) DrainPending(nullptr, 0);
  });
  EXPECT_EQ(ZOR_MSG_QueueAppend(&g_stMsgCtx.pending, nullptr), ZOR_E_ARGUMENT);
  for (const uint32_t type : {1u, 2u, 3u}) ZOR_MSG_QueueAppendEx(&g_stMsgCtx.pending, NewMessage(type), UINTPTR_MAX);
  EXPECT_EQ(g_stMsgCtx.pending->extra, UINTPTR_MAX);
  ZOR_TRACE_SetPackageLevel("msg", ZOR_TRACE_INFO);
  Capture output;
  DrainPending(nullptr, 0);
  EXPECT_THAT(calls, ElementsAre("1", "2", "3", "4"));
  EXPECT_EQ(g_stMsgCtx.pending, nullptr);
  EXPECT_THAT(output.Text(),
              AllOf(HasSubstr("Clear 3 messages in queue now ..."), HasSubstr("Clear 2 messages in queue finished.")));
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
  EXPECT_FALSE(IsOpen(ends[0]) || IsOpen(ends[1]));

  g_stMsgCtx.traceFd = 0;  // as ZOR_MSG_Destroy leaves it
  ZOR_MSG_TraceProc(-1);
  EXPECT_TRUE(IsOpen(0));
}

}  // namespace
}  // namespace zor::test
