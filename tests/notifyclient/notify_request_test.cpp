#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstdlib>
#include <memory>
#include <ostream>

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
  void *data;
  uint32_t length;
};

Reply Request() {
  Reply reply = {0, nullptr, 0x1234};
  reply.status = ZOR_NOTIFYCLT_SendSynNotify(9, kType, "ask", 3, &reply.data, &reply.length);
  return reply;
}

class NotifyRequest : public SwitchedClient {};

TEST_F(NotifyRequest, AnswerComesBackInABlockOfTheCaller) {
  peer().Send(NextAnswer(1, "answer").Bytes());
  const Reply reply = Request();
  const std::unique_ptr<void, decltype(&std::free)> owner(reply.data, &std::free);
  ASSERT_EQ(reply.status, ZOR_NOTIFY_OK);
  EXPECT_EQ(std::string(static_cast<char *>(reply.data), reply.length), "answer");

  const auto request = ReceiveNotify(peer());
  ASSERT_TRUE(request);
  const uint32_t expected[12] = {kType, 1, 0, 9, 1, 1, 3, 0, 0, 0x1234, 0, 0};
  EXPECT_EQ(request->Bytes(), std::string(reinterpret_cast<const char *>(expected), sizeof expected) + "ask");
}

TEST_F(NotifyRequest, AnswerWithoutDataIsANullBlock) {
  peer().Send(NextAnswer(1, "").Bytes());
  int untouched = 0;
  void *data = &untouched;
  uint32_t length = 7;
  EXPECT_EQ(ZOR_NOTIFYCLT_SendSynNotify(9, kType, nullptr, 0, &data, &length), ZOR_NOTIFY_OK);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(length, 0u);
}

TEST_F(NotifyRequest, CallerMayTakeNeitherDataNorLength) {
  peer().Send(NextAnswer(1, "answer").Bytes());
  EXPECT_EQ(ZOR_NOTIFYCLT_SendSynNotify(9, kType, nullptr, 0, nullptr, nullptr), ZOR_NOTIFY_OK);
  EXPECT_EQ(ReceiveNotify(peer())->head.request_word, 0u);
}

TEST_F(NotifyRequest, OnlyTypeAndSequenceMakeAnAnswer) {
  NotifyFrame odd = NextAnswer(1, "odd");
  odd.head.ack_tag = 1;
  odd.head.sync_tag = 0;
  odd.head.source_id = 77;
  peer().Send(NextAnswer(2, "late").Bytes() + odd.Bytes());
  const Reply reply = Request();
  const std::unique_ptr<void, decltype(&std::free)> owner(reply.data, &std::free);
  EXPECT_EQ(reply.length, 3u);
}

TEST_F(NotifyRequest, AnswerInPiecesIsJoinedAndMentioned) {
  const std::string bytes = NextAnswer(1, "answer").Bytes();
  const Child sender = Child::Function([&] {
    peer().Send(std::string_view(bytes).substr(0, 50));
    // The rest follows once the first piece has been read, so the reader sees two.
    peer().Send(WaitUntil([&] {
      int unread = 1;
      return ::ioctl(peer().fd(), SIOCOUTQ, &unread) == 0 && unread == 0;
    })
                    ? std::string_view(bytes).substr(50)
                    : std::string_view());
    return 0;
  });
  Capture output;
  const Reply reply = Request();
  const std::unique_ptr<void, decltype(&std::free)> owner(reply.data, &std::free);
  EXPECT_EQ(std::string(static_cast<char *>(reply.data), reply.length), "answer");
  EXPECT_THAT(output.Text(), HasSubstr("want len=6, got len=2, msg type=0x55, src=9, dest=0!\n"));
  EXPECT_THAT(output.Text(), HasSubstr("want len=6, got len=4, msg type=0x55, src=9, dest=0!\n"));
}

struct Damage {
  const char *name;
  std::string bytes;
  bool closes;
  uint32_t status;
  const char *text;
};

void PrintTo(const Damage &damage, std::ostream *out) {
  *out << damage.name;
}

std::string Lying(uint32_t length) {
  NotifyFrame frame = NextAnswer(1, "ab");
  frame.head.data_len = length;
  return frame.Bytes();
}

class NotifyDamage : public SwitchedClient, public testing::WithParamInterface<Damage> {};

TEST_P(NotifyDamage, EndsTheRequestAndLeavesTheResultAlone) {
  peer().Send(GetParam().bytes);
  if (GetParam().closes) ::shutdown(peer().fd(), SHUT_WR);
  Capture output;
  const Reply reply = Request();
  EXPECT_EQ(reply.status, GetParam().status);
  EXPECT_EQ(reply.data, nullptr);
  EXPECT_EQ(reply.length, 0x1234u);
  EXPECT_THAT(output.Text(), HasSubstr(GetParam().text));
  const bool destroyed = GetParam().status == ZOR_NOTIFY_E_SERVER_GONE;
  EXPECT_EQ(output.Text().find("destory client") != std::string::npos, destroyed);
  ReceiveNotify(peer());
  EXPECT_EQ(destroyed, peer().ClosedByOther(std::chrono::milliseconds(destroyed ? 10'000 : 10)));
}

INSTANTIATE_TEST_SUITE_P(
    Stream, NotifyDamage,
    testing::Values(Damage{"ServerGone", "", true, ZOR_NOTIFY_E_SERVER_GONE, "peer dead when read head"},
                    Damage{"TornHeader", std::string(47, 'x'), false, ZOR_NOTIFY_E_IO, "got len=47!\n"},
                    Damage{"ServerGoneInTheData", Lying(6), true, ZOR_NOTIFY_E_SERVER_GONE, "peer dead when read body"},
                    Damage{"DataTooLong", Lying(0x800001), false, ZOR_NOTIFY_E_NO_MEMORY,
                           "ooo notifyclient data Length too long: 800001, msg 55 from 9 to 0.\n"},
                    Damage{"BlockTooLong", Lying(0x800000), false, ZOR_NOTIFY_E_NO_MEMORY,
                           "error: not host tool, but malloc 4M, return NULL, malloc len=8388657\n"}),
    [](const auto &damage) { return damage.param.name; });

TEST(NotifyRequestUnconnected, IsNotWritable) {
  const Capture output;
  EXPECT_EQ(Request().status, ZOR_NOTIFY_E_NOT_WRITABLE);
}

}  // namespace
}  // namespace zor::test
