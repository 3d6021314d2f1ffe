#include <zor/notify_wire.h>

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

TEST_F(NotifyServerRouting, RequestThatNobodyCanAnswerIsAnsweredWithoutDataAtOnce) {
  const BusPeer web = Register(kWeb);
  for (const uint32_t destination : {kCms, kWeb, ZOR_NOTIFY_MID_SERVER, 0u, 103u, 0xffffffffu}) {
    const NotifyFrame request = MakeRequest(kType, destination, kWeb, destination, "ask");
    web.Send(request.Bytes());
    ExpectFrame(web, MakeAnswer(request));
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
  oldest.Send(MakeAnswer(requests[1], "last word").Bytes());
  oldest.Close();
  ExpectFrame(web, MakeAnswer(requests[1], "last word"));
  ExpectFrame(web, MakeAnswer(requests[0]));
  ExpectFrame(device, MakeAnswer(requests[2]));
  web.Send(requests[0].Bytes());
  ExpectFrame(next, requests[0]);
}

TEST_F(NotifyServerRouting, AnswerGoesOnceFromTheClientThatWasAskedToTheOneThatAsked) {
  const BusPeer cms = Register(kCms);
  const BusPeer olderWeb = Register(kWeb);
  const BusPeer web = Register(kWeb);
  const BusPeer device = Register(kDevice);
  NotifyFrame request = MakeRequest(kType, 7, kWeb, kCms, "ask");
  request.head.request_word = 99;
  web.Send(request.Bytes());
  ExpectFrame(cms, request);
  device.Send(MakeAnswer(request, "forged").Bytes());
  Settle(device, kDevice);
  cms.Send(MakeAnswer(request, "true").Bytes() + MakeAnswer(request, "twice").Bytes());
  Settle(cms, kCms);
  ExpectFrame(web, MakeAnswer(request, "true"));
  EXPECT_TRUE(web.NothingArrived());
  EXPECT_TRUE(olderWeb.NothingArrived());
}

}  // namespace
}  // namespace zor::test
