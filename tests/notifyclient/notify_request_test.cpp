#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <zor/trace.h>

#include <cstdlib>
#include <optional>

#include "notifyclient/notify_fixture.h"

namespace zor::test {
namespace {

using testing::HasSubstr;

constexpr uint32_t kType = 0x55;

// The answer of the module 9 to the request that the client sends next.
NotifyFrame NextAnswer(uint32_t sequence, std::string data) {
  return MakeAnswer(MakeRequest(kType, sequence, 0, 9), std::move(data));
}

struct Reply {
  uint32_t status;
  uint32_t length;
  std::optional<std::string> data;  // none: a null block
};

Reply Request() {
  void *block = nullptr;
  uint32_t length = 0x1234;
  const uint32_t status = ZOR_NOTIFYCLT_SendSynNotify(9, kType, "ask", 3, &block, &length);
  Reply reply = {status, length, std::nullopt};
  if (block != nullptr) reply.data.emplace(static_cast<const char *>(block), length);
  std::free(block);
  return reply;
}

class NotifyRequest : public SwitchedClient {};

TEST_F(NotifyRequest, OnlyTypeAndSequenceMakeAnAnswer) {
  NotifyFrame odd = NextAnswer(1, "answer");
  odd.head.ack_tag = 1;
  odd.head.sync_tag = 0;
  odd.head.source_id = 77;
  peer().Send(NextAnswer(2, "late").Bytes() + odd.Bytes() + NextAnswer(2, "").Bytes());
  ZOR_TRACE_SetPackageLevel("all", ZOR_TRACE_DEBUG);
  Capture output;
  EXPECT_EQ(Request().data, "answer");
  EXPECT_THAT(output.Text(), HasSubstr("recv msg_type = 55, seq_num = 1 data_len=6 ack_tag=1, wait for msg_type = 55, "
                                       "seq_num = 1 \n"));
  const auto request = ReceiveNotify(peer());
  ASSERT_TRUE(request);
  const uint32_t expected[12] = {kType, 1, 0, 9, 1, 1, 3, 0, 0, 0x1234, 0, 0};
  EXPECT_EQ(request->Bytes(), std::string(reinterpret_cast<const char *>(expected), sizeof expected) + "ask");

  const Reply empty = Request();
  EXPECT_EQ(empty.data, std::nullopt);
  EXPECT_EQ(empty.length, 0u);
}

TEST_F(NotifyRequest, AnswerInPiecesIsJoinedAndMentioned) {
  const std::string bytes = NextAnswer(1, "answer").Bytes();
  const auto everythingRead = [this] {
    int unread = 1;
    return ::ioctl(peer().fd(), SIOCOUTQ, &unread) == 0 && unread == 0;
  };
  const Child sender = Child::Function([&] {
    peer().Send(std::string_view(bytes).substr(0, 50));
    if (WaitUntil(everythingRead)) peer().Send(std::string_view(bytes).substr(50));
    return 0;
  });
  Capture output;
  EXPECT_EQ(Request().data, "answer");
  EXPECT_THAT(output.Text(), HasSubstr("want len=6, got len=2, msg type=0x55, src=9, dest=0!\n"));
  EXPECT_THAT(output.Text(), HasSubstr("want len=6, got len=4, msg type=0x55, src=9, dest=0!\n"));
}

std::string Lying(uint32_t length) {
  NotifyFrame frame = NextAnswer(1, "ab");
  frame.head.data_len = length;
  return frame.Bytes();
}

TEST(NotifyDamage, EndsTheRequestAndLeavesTheResultAlone) {
  const struct {
    std::string bytes;
    uint32_t status;
    const char *text;
  } cases[] = {
      {"", ZOR_NOTIFY_E_SERVER_GONE, "peer dead when read head"},
      {std::string(47, 'x'), ZOR_NOTIFY_E_IO, "got len=47!\n"},
      {Lying(6), ZOR_NOTIFY_E_SERVER_GONE, "peer dead when read body"},
      {Lying(0x800001), ZOR_NOTIFY_E_NO_MEMORY, "ooo notifyclient data Length too long: 800001, msg 55 from 9 to 0.\n"},
      {Lying(0x800000), ZOR_NOTIFY_E_NO_MEMORY,
       "error: not host tool, but malloc 4M, return NULL, malloc len=8388657\n"},
  };
  for (const auto &each : cases) {
    SocketPair pair;
    ZOR_NOTIFYCLT_SwitchSock(pair.near.Release());
    const bool serverGone = each.status == ZOR_NOTIFY_E_SERVER_GONE;
    pair.far.Send(each.bytes);
    if (serverGone) ::shutdown(pair.far.fd(), SHUT_WR);
    Capture output;
    const Reply reply = Request();
    EXPECT_EQ(reply.status, each.status) << each.text;
    EXPECT_EQ(reply.data, std::nullopt) << each.text;
    EXPECT_EQ(reply.length, 0x1234u) << each.text;
    EXPECT_THAT(output.Text(), HasSubstr(each.text));
    ReceiveNotify(pair.far);
    EXPECT_NE(pair.far.NothingArrived(), serverGone) << "only then the client is destroyed: " << each.text;
    ZOR_NOTIFYCLT_Destroy();
  }
}

}  // namespace
}  // namespace zor::test
