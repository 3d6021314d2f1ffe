#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "notifyclient/notify_fixture.h"

namespace zor::test {
namespace {

constexpr uint32_t kType = 0x55;

// What the handlers were called with, a line each; "-" stands for null.
std::vector<std::string> calls;
std::string answerText;

std::string Text(const void *data) {
  return data == nullptr ? "-" : static_cast<const char *>(data);
}

uint32_t Answer(void **answer, uint32_t *length) {
  if (answer == nullptr || length == nullptr) return 21;
  *answer = ::strdup(answerText.c_str());
  *length = static_cast<uint32_t>(answerText.size());
  return 20;
}

uint32_t SyncProc(void *data, void **answer, uint32_t *length) {
  calls.push_back("sync " + Text(data));
  return Answer(answer, length);
}

uint32_t DefaultSyncProc(uint32_t type, void *data, void **answer, uint32_t *length) {
  calls.push_back("default sync " + std::to_string(type) + " " + Text(data));
  return Answer(answer, length);
}

uint32_t AsyncProc(void *part1, void *part2) {
  calls.push_back("async " + Text(part1) + " " + Text(part2));
  return 22;
}

uint32_t DefaultAsyncProc(uint32_t type, void *part1, void *part2, void *state) {
  uint32_t mid;
  std::memcpy(&mid, state, sizeof mid);
  calls.push_back("default async " + std::to_string(type) + " " + Text(part1) + " " + Text(part2) + " " +
                  std::to_string(mid));
  return 23;
}

uint32_t DestroyingProc(void *, void **answer, uint32_t *length) {
  ZOR_NOTIFYCLT_Destroy();
  answerText = "from the grave";
  return Answer(answer, length);
}

// Dispatches a frame as it would lie in memory after its receipt: one block, a NUL behind the data.
uint32_t Dispatch(const NotifyFrame &frame) {
  std::string bytes = frame.Bytes();
  return ZOR_NOTIFYCLT_MsgFilterProc(reinterpret_cast<ZOR_NOTIFY_MSG *>(bytes.data()));
}

class NotifyDispatch : public SwitchedClient {
 protected:
  NotifyDispatch() {
    calls.clear();
    answerText = "answer";
  }

  // The answer that went out, checked to be one for the request, or none.
  std::optional<std::string> AnswerTo(const NotifyFrame &request) {
    if (peer().NothingArrived()) return std::nullopt;
    const auto answer = ReceiveNotify(peer());
    if (!answer) return std::nullopt;
    EXPECT_EQ(answer->Bytes(), MakeAnswer(MakeRequest(request.head.msg_type, request.head.seq, request.head.source_id,
                                                      0 /* the own id of a client that never registered */),
                                          answer->data)
                                   .Bytes());
    return answer->data;
  }
};

TEST_F(NotifyDispatch, RequestIsAnsweredByItsHandlerElseByTheDefaultElseEmpty) {
  const NotifyFrame request = MakeRequest(kType, 9, 26, 0, "ask");
  EXPECT_EQ(Dispatch(request), ZOR_NOTIFY_OK);
  EXPECT_EQ(AnswerTo(request), "");

  ZOR_NOTIYCLT_RegMsgProc(DefaultSyncProc, nullptr);
  EXPECT_EQ(Dispatch(request), ZOR_NOTIFY_OK);
  EXPECT_EQ(AnswerTo(request), "answer");

  const void *entry = ZOR_NOTIFYCLT_RegAsyncMsgProc(kType, AsyncProc);
  EXPECT_EQ(Dispatch(request), ZOR_NOTIFY_OK);
  EXPECT_EQ(AnswerTo(request), "answer");

  EXPECT_EQ(ZOR_NOTIFYCLT_RegSyncMsgProc(kType, SyncProc), entry);
  EXPECT_EQ(Dispatch(request), ZOR_NOTIFY_OK);
  EXPECT_EQ(AnswerTo(request), "answer");
  EXPECT_THAT(calls, testing::ElementsAre("default sync 85 ask", "default sync 85 ask", "sync ask"));

  // Every answer took a number of its own.
  ZOR_NOTIFYCLT_PostSimpleAsynNotify(9, 1, 0, 0);
  EXPECT_EQ(ReceiveNotify(peer())->head.seq, 5u);
}

TEST_F(NotifyDispatch, RequestOfTheServerIsHandledAndNotAnswered) {
  ZOR_NOTIFYCLT_RegSyncMsgProc(kType, SyncProc);
  EXPECT_EQ(Dispatch(MakeRequest(kType, 9, ZOR_NOTIFY_MID_SERVER, 0, "ask")), ZOR_NOTIFY_OK);
  EXPECT_THAT(calls, testing::ElementsAre("sync ask"));
  EXPECT_TRUE(peer().NothingArrived());
}

TEST_F(NotifyDispatch, RequestReturnsTheStatusOfItsAnswer) {
  pair_.far.Close();
  const Capture output;
  EXPECT_EQ(Dispatch(MakeRequest(kType, 9, 26, 0)), ZOR_NOTIFY_E_TIMEOUT);
}

TEST_F(NotifyDispatch, UnexpectedAnswerReachesTheHandlerWithoutRoomForAnAnswer) {
  const NotifyFrame answer = MakeAnswer(MakeRequest(kType, 9, 0, 26), "late");
  EXPECT_EQ(Dispatch(answer), 0u);
  ZOR_NOTIYCLT_RegMsgProc(DefaultSyncProc, nullptr);
  EXPECT_EQ(Dispatch(answer), 21u);
  ZOR_NOTIFYCLT_RegSyncMsgProc(kType, SyncProc);
  EXPECT_EQ(Dispatch(answer), 21u);
  EXPECT_THAT(calls, testing::ElementsAre("default sync 85 late", "sync late"));
  EXPECT_TRUE(peer().NothingArrived());
}

TEST_F(NotifyDispatch, PartsAreBoundedByTheData) {
  ZOR_NOTIFYCLT_RegAsyncMsgProc(kType, AsyncProc);
  const struct {
    const char *data;
    uint32_t length1;
    uint32_t length2;
    const char *call;
  } cases[] = {
      {"abcde", 3, 2, "async abcde de"}, {"abcde", 3, 0, "async abcde -"},          {"", 0, 0, "async - -"},
      {"", 0, 2, "async - -"},           {"abcde", 0xffffffff, 2, "async abcde -"}, {"abcde", 6, 2, "async abcde -"},
  };
  for (const auto &entry : cases) {
    NotifyFrame frame = MakeAsync(kType, 26, 0, entry.data);
    frame.head.sub_data_len1 = entry.length1;
    frame.head.sub_data_len2 = entry.length2;
    EXPECT_EQ(Dispatch(frame), 22u);
    EXPECT_EQ(calls.back(), entry.call);
  }
}

TEST_F(NotifyDispatch, DefaultAsyncHandlerGetsTheClientAndItsStatusIsIgnored) {
  EXPECT_EQ(Dispatch(MakeAsync(kType, 26, 0, "ab", "cd")), 0u);
  ZOR_NOTIYCLT_RegMsgProc(nullptr, DefaultAsyncProc);
  ZOR_NOTIFYCLT_RegSyncMsgProc(kType, SyncProc);
  EXPECT_EQ(Dispatch(MakeAsync(kType, 26, 0, "ab", "cd")), 0u);
  ZOR_NOTIFYCLT_RegAsyncMsgProc(kType, AsyncProc);
  ZOR_NOTIFYCLT_RegAsyncMsgProc(kType, nullptr);
  EXPECT_EQ(Dispatch(MakeAsync(kType, 26, 0)), 0u);
  EXPECT_THAT(calls, testing::ElementsAre("default async 85 abcd cd 0", "default async 85 - - 0"));
}

TEST_F(NotifyDispatch, HandlerMayDestroyTheClient) {
  ZOR_NOTIFYCLT_RegSyncMsgProc(kType, DestroyingProc);
  const Capture output;
  EXPECT_EQ(Dispatch(MakeRequest(kType, 9, 26, 0, "ask")), ZOR_NOTIFY_E_NOT_WRITABLE);
}

TEST(NotifyDispatchArgument, NullAndNeitherSynchronousNorAsynchronousAreRefused) {
  NotifyFrame frame = MakeAsync(kType, 26, 0);
  frame.head.sync_tag = 2;
  EXPECT_EQ(ZOR_NOTIFYCLT_MsgFilterProc(nullptr), ZOR_NOTIFY_E_ARGUMENT);
  EXPECT_EQ(Dispatch(frame), ZOR_NOTIFY_E_ARGUMENT);
}

}  // namespace
}  // namespace zor::test
