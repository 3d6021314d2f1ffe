#include <cstring>
#include <string>
#include <vector>

#include "notifyclient/notify_fixture.h"

namespace zor::test {
namespace {

using testing::ElementsAre;

constexpr uint32_t kType = 0x55;

// What the handlers were called with; "-" stands for null.
std::vector<std::string> calls;

uint32_t Record(const std::string &handler, const void *data, const void *more, uint32_t status) {
  const auto text = [](const void *part) { return part == nullptr ? "-" : static_cast<const char *>(part); };
  calls.push_back(handler + " " + text(data) + " " + text(more));
  return status;
}

uint32_t SyncProc(void *data, void **answer, uint32_t *length) {
  if (answer == nullptr || length == nullptr) return Record("unexpected", data, nullptr, 21);
  *answer = ::strdup("answer");
  *length = 6;
  return Record("sync", data, nullptr, 20);
}

uint32_t DefaultSyncProc(uint32_t type, void *data, void **answer, uint32_t *length) {
  return Record("default " + std::to_string(type), nullptr, nullptr, SyncProc(data, answer, length));
}

uint32_t AsyncProc(void *part1, void *part2) {
  return Record("async", part1, part2, 22);
}

uint32_t DefaultAsyncProc(uint32_t, void *part1, void *part2, void *state) {
  uint32_t mid;
  std::memcpy(&mid, state, sizeof mid);
  return Record("default of " + std::to_string(mid), part1, part2, 23);
}

uint32_t DestroyingProc(void *data, void **answer, uint32_t *length) {
  ZOR_NOTIFYCLT_Destroy();
  return SyncProc(data, answer, length);
}

// Dispatches a frame as it would lie in memory after its receipt: one block, a NUL behind the data.
uint32_t Dispatch(const NotifyFrame &frame) {
  std::string bytes = frame.Bytes();
  return ZOR_NOTIFYCLT_MsgFilterProc(reinterpret_cast<ZOR_NOTIFY_MSG *>(bytes.data()));
}

class NotifyDispatch : public SwitchedClient {
 protected:
  NotifyDispatch() { calls.clear(); }

  // Dispatches a request and expects its answer.
  void ExpectAnswer(const std::string &data) {
    const NotifyFrame request = MakeRequest(kType, 9, 26, 0 /* the id of a client that never registered */, "ask");
    EXPECT_EQ(Dispatch(request), ZOR_NOTIFY_OK);
    const auto answer = ReceiveNotify(peer());
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->Bytes(), MakeAnswer(request, data).Bytes());
  }
};

TEST_F(NotifyDispatch, RequestIsAnsweredByItsHandlerElseByTheDefaultElseEmpty) {
  ExpectAnswer("");
  ZOR_NOTIYCLT_RegMsgProc(DefaultSyncProc, nullptr);
  const void *entry = ZOR_NOTIFYCLT_RegAsyncMsgProc(kType, AsyncProc);
  ExpectAnswer("answer");
  EXPECT_EQ(ZOR_NOTIFYCLT_RegSyncMsgProc(kType, SyncProc), entry);
  ExpectAnswer("answer");
  EXPECT_THAT(calls, ElementsAre("sync ask -", "default 85 - -", "sync ask -"));
  // Every answer took a number of its own.
  ZOR_NOTIFYCLT_PostSimpleAsynNotify(9, 1, 0, 0);
  EXPECT_EQ(ReceiveNotify(peer())->head.seq, 4u);
}

TEST_F(NotifyDispatch, RequestOfTheServerAndUnexpectedAnswerAreHandledAndNotAnswered) {
  const NotifyFrame answer = MakeAnswer(MakeRequest(kType, 9, 0, 26), "late");
  EXPECT_EQ(Dispatch(answer), 0u);
  ZOR_NOTIFYCLT_RegSyncMsgProc(kType, SyncProc);
  EXPECT_EQ(Dispatch(answer), 21u);
  EXPECT_EQ(Dispatch(MakeRequest(kType, 9, ZOR_NOTIFY_MID_SERVER, 0, "ask")), ZOR_NOTIFY_OK);
  EXPECT_THAT(calls, ElementsAre("unexpected late -", "sync ask -"));
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
  ZOR_NOTIFYCLT_RegAsyncMsgProc(kType, nullptr);
  ZOR_NOTIYCLT_RegMsgProc(nullptr, DefaultAsyncProc);
  EXPECT_EQ(Dispatch(MakeAsync(kType, 26, 0, "ab", "cd")), 0u);
  EXPECT_EQ(calls.back(), "default of 0 abcd cd");
}

TEST_F(NotifyDispatch, HandlerMayDestroyTheClient) {
  ZOR_NOTIFYCLT_RegSyncMsgProc(kType, DestroyingProc);
  const Capture output;
  EXPECT_EQ(Dispatch(MakeRequest(kType, 9, 26, 0, "ask")), ZOR_NOTIFY_E_NOT_WRITABLE);
  EXPECT_EQ(ZOR_NOTIFYCLT_MsgFilterProc(nullptr), ZOR_NOTIFY_E_ARGUMENT);
}

}  // namespace
}  // namespace zor::test
