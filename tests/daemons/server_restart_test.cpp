#include <gmock/gmock.h>
#include <zor/event.h>
#include <zor/msg.h>

#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "support/child.h"
#include "support/loop.h"
#include "support/temp_root.h"
#include "support/wire_client.h"

namespace zor::test {
namespace {

using testing::ElementsAre;

constexpr uint32_t kRequest = 0x1234;
constexpr uint32_t kJsonEvent = ZOR_EVT_JSON_FIRST;

std::vector<std::string> got;

uint32_t OnEvent(uint32_t, const char *body, uint32_t length) {
  got.emplace_back(body, length);
  return ZOR_OK;
}

ZOR_MSG_HEAD *OnRequest(ZOR_MSG_HEAD *msg) {
  got.emplace_back("request");
  return ZOR_MSG_MsgResponseBuilder(msg, msg->data + 1, nullptr, 0);
}

uint32_t OnState(void *, char **text) {
  *text = ::strdup("state");
  return ZOR_OK;
}

class ServerRestart : public testing::Test {
 protected:
  Child StartServer() {
    Child server = Child::Program({MSGSVR_PROGRAM});
    EXPECT_TRUE(server.WaitForOutput("listening"));
    return server;
  }
  WireClient Other() {
    WireClient client = WireClient::Connect(root_.Path("/var/msgsvr"));
    client.Register("other");
    return client;
  }

  TempRoot root_;
};

TEST_F(ServerRestart, LeavesADaemonThatRejoinsReachableInEveryWayAndOnce) {
  {
    Child first = StartServer();
    ASSERT_EQ(ZOR_MSG_Init("daemon"), ZOR_OK);
    ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
    ZOR_MSG_RegSyncMsgProc(kRequest, OnRequest, 0, nullptr);
    ZOR_MSG_SubscribeEventForOtherApp(kJsonEvent, "daemon");
    ZOR_EVT_SubscribeSingelEventCallBack(kJsonEvent, OnEvent);
    const ZOR_MSG_RESTFUL_ENTRY table[] = {{"state", OnState}, {nullptr, nullptr}};
    ZOR_MSG_RegRestfulProcsEx("/daemon", table, "expand");
    ASSERT_EQ(ZOR_MSG_EnableRejoin(nullptr), ZOR_OK);
    const auto onLink = [](uint32_t event, void *) { got.push_back(event == ZOR_MSG_LINK_LOST ? "lost" : "rejoined"); };
    ASSERT_EQ(ZOR_MSG_SetLinkProc(onLink, nullptr), ZOR_OK);
    first.Signal(SIGKILL);
    ASSERT_TRUE(RunLoopUntil([] { return !got.empty(); }));

    const Child second = StartServer();
    ASSERT_TRUE(RunLoopUntil([] { return got.size() == 2; }));
    const WireClient other = Other();
    other.Send(MakeMessage(kJsonEvent, "", "", 0, "{}"));
    Block restful(ZOR_MSG_BuildRestfulReqMsg(0, 0, "/daemon", "state", "", 0));
    other.Send({reinterpret_cast<const char *>(restful.get()), ZOR_MSG_HEAD_SIZE + restful->bodyLength});
    other.Send(MakeMessage(kRequest, "", "daemon", 41));  // the last: what is doubled has arrived before it
    ASSERT_TRUE(RunLoopUntil([] { return got.back() == "request"; }));
    EXPECT_THAT(got, ElementsAre("lost", "rejoined", "{}", "request"));
    EXPECT_STREQ(other.Next().body.c_str(), "state");
    EXPECT_EQ(other.Next().header.data, 42u);
    EXPECT_EQ(other.Ask(MakeMessage(ZOR_MSG_GET_PROCESS_NUM, "", "", 0, "daemon")).header.data, 1u);
  }
  ZOR_MSG_Destroy();
}

}  // namespace
}  // namespace zor::test
