#include <zor/notify_control_wire.h>

#include <cstring>
#include <filesystem>
#include <utility>

#include "daemons/notifyserver_fixture.h"

namespace zor::test {
namespace {

constexpr uint32_t kCms = 8;
constexpr uint32_t kDevice = 9;
constexpr uint32_t kWeb = 26;
constexpr uint32_t kType = 0x55;

class NotifyServerRouting : public NotifyServerTest {
 protected:
  NotifyServerRouting() { Start(); }
};

void ExpectFrame(const BusPeer &client, const NotifyFrame &expected) {
  const auto frame = ReceiveNotify(client);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->Bytes(), expected.Bytes());
}

TEST_F(NotifyServerRouting, RequestWithoutARecipientGetsAnEmptyReplyAtOnce) {
  const BusPeer web = Register(kWeb);
  for (const uint32_t destination : {kCms, kWeb, ZOR_NOTIFY_MID_SERVER, 0u, 103u, 0xffffffffu}) {
    const NotifyFrame request = MakeRequest(kType, destination, kWeb, destination, "ask");
    web.Send(request.Bytes());
    ExpectFrame(web, MakeReply(request));
  }
}

TEST_F(NotifyServerRouting, NextClientOfAModuleTakesOverWhenTheOldestDiesAndOpenRequestsEndEmpty) {
  BusPeer oldest = Register(kCms);
  const BusPeer next = Register(kCms);
  const BusPeer web = Register(kWeb);
  const BusPeer device = Register(kDevice);
  const NotifyFrame requests[] = {MakeRequest(kType, 1, kWeb, kCms), MakeRequest(kType, 2, kWeb, kCms),
                                  MakeRequest(kType, 1, kDevice, kCms)};
  web.Send(requests[0].Bytes() + requests[1].Bytes());
  device.Send(requests[2].Bytes());
  for (int count = 0; count < 3; ++count) ASSERT_TRUE(ReceiveNotify(oldest));
  oldest.Send(MakeReply(requests[1], "last word").Bytes());
  oldest.Close();
  ExpectFrame(web, MakeReply(requests[1], "last word"));
  ExpectFrame(web, MakeReply(requests[0]));
  ExpectFrame(device, MakeReply(requests[2]));
  web.Send(requests[0].Bytes());
  ExpectFrame(next, requests[0]);
}

TEST_F(NotifyServerRouting, ReplyGoesOnceFromTheClientThatWasAskedToTheOneThatAsked) {
  const BusPeer cms = Register(kCms);
  const BusPeer olderWeb = Register(kWeb);
  const BusPeer web = Register(kWeb);
  const BusPeer device = Register(kDevice);
  NotifyFrame request = MakeRequest(kType, 7, kWeb, kCms, "ask");
  request.head.request_word = 99;
  web.Send(request.Bytes());
  ExpectFrame(cms, request);
  device.Send(MakeReply(request, "forged").Bytes());
  Settle(device, kDevice);
  cms.Send(MakeReply(request, "true").Bytes() + MakeReply(request, "twice").Bytes());
  Settle(cms, kCms);
  ExpectFrame(web, MakeReply(request, "true"));
  EXPECT_TRUE(web.NothingArrived());
  EXPECT_TRUE(olderWeb.NothingArrived());
}

// The result word and the text of the reply; the word is all ones without a reply.
std::pair<uint32_t, std::string> AskControl(const BusPeer &client, uint32_t type) {
  client.Send(MakeRequest(type, 9, 0, ZOR_NOTIFY_MID_SERVER).Bytes());
  const auto reply = ReceiveNotify(client);
  uint32_t result = 0xffffffff;
  if (!reply || reply->head.seq != 9 || reply->data.size() < sizeof result) return {result, ""};
  std::memcpy(&result, reply->data.data(), sizeof result);
  return {result, reply->data.substr(sizeof result)};
}

TEST_F(NotifyServerRouting, OperatorSeesWhoIsConnectedWithoutRegistering) {
  const BusPeer cms = Register(kCms);
  const BusPeer web = Register(kWeb);
  web.Send(MakeRequest(kType, 7, kWeb, kCms, "ask").Bytes() + MakeAsync(kType, kWeb, 99).Bytes());
  Settle(web, kWeb);
  const auto [result, text] = AskControl(Connect(), ZOR_NOTIFY_CONTROL_LIST);
  EXPECT_EQ(result, ZOR_CONTROL_OK);
  EXPECT_THAT(text,
              testing::HasSubstr(R"("clients":2,"max_clients":128,"queue_bytes":9437184},"clients":[{"module":8,)"));
  EXPECT_THAT(text, testing::ContainsRegex(R"("module":8,.*"waiting":\{"bytes":0,"messages":0,"socket":[1-9])"));
  EXPECT_THAT(text, testing::ContainsRegex(R"("module":26,.*"in":4,"out":2,"dropped":3,)"));
  EXPECT_THAT(text, testing::HasSubstr(R"("pending":[{"to":8,"type":85,"sequence":7}])"));
  EXPECT_EQ(AskControl(web, ZOR_NOTIFY_CONTROL_LAST).first, ZOR_CONTROL_UNKNOWN);
}

TEST_F(NotifyServerRouting, OtherUsersMayNotLook) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
  std::filesystem::permissions(root_.Path(""), std::filesystem::perms{0755});
  ASSERT_EQ(::seteuid(65534), 0);
  const BusPeer other = Connect();
  ASSERT_EQ(::seteuid(0), 0);
  EXPECT_EQ(AskControl(other, ZOR_NOTIFY_CONTROL_LIST), std::pair(ZOR_CONTROL_REFUSED, std::string()));
}

}  // namespace
}  // namespace zor::test
