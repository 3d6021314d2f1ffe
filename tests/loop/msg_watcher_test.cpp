#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <zor/msg_head.h>
#include <zor/status.h>
#include <zor/trace.h>
#include <zor/uv.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/alloc.h"
#include "sdk/loop/message/msg_watcher.h"
#include "support/capture.h"
#include "support/child.h"
#include "support/scripted_server.h"
#include "support/wire_client.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using zor::test::MakeMessage;

// What the watcher's owner and the handlers of one test recorded, and what they do.
struct Seen {
  std::vector<std::string> bodies;   // of messages that reached the default handler
  std::vector<std::string> replies;  // "status:data" of each reply callback
  std::function<uint32_t(ZOR_MSG_HEAD **)> fixUp;
  std::function<void()> onMessage;
  std::function<void()> onReply;
} seen;

uint32_t PayloadLength(ZOR_MSG_HEAD *header, uint32_t *needsFixUp) {
  *needsFixUp = seen.fixUp ? 1 : 0;
  return header->bodyLength;
}

void OnMessage(ZOR_MSG_HEAD *msg) {
  seen.bodies.emplace_back(reinterpret_cast<const char *>(msg + 1), msg->bodyLength);
  if (seen.onMessage) seen.onMessage();
}

void OnReply(ZOR_MSG_HEAD *msg, uint32_t status, void *replyData) {
  seen.replies.push_back(static_cast<const char *>(replyData) + (":" + std::to_string(status) + ":") +
                         (msg == nullptr ? "-" : std::to_string(msg->data)));
  if (seen.onReply) seen.onReply();
}

void StopWhenDone(void *done) {
  if ((*static_cast<std::function<bool()> *>(done))()) ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

char kFirst[] = "first";
char kSecond[] = "second";

class MsgWatcher : public testing::Test {
 protected:
  MsgWatcher() : watcher_(zor::GuardedNew<UvMsgWatcher>().release()) {
    watcher_->headerLength = ZOR_MSG_HEAD_SIZE;
    watcher_->getPayloadLength = PayloadLength;
    watcher_->matchReply = [](const ZOR_MSG_HEAD *msg, uint32_t key1, uint32_t key2) {
      return msg->type == key1 && msg->sequence == key2 ? 1u : 0u;
    };
    watcher_->fixUp = [](ZOR_MSG_HEAD **msg) { return seen.fixUp(msg); };
    ZOR_UV_MsgInit(nullptr, watcher_, sockets_.near.Release(), OnMessage);
    EXPECT_EQ(ZOR_UV_MsgStart(watcher_), ZOR_OK);
  }
  ~MsgWatcher() override {
    if (watcher_ != nullptr) ZOR_UV_MsgDelete(watcher_);
    ZOR_UV_LoopDestroy(ZOR_UV_LoopGetDefault());
  }

  void Send(const std::string &body, uint32_t type = 1, uint32_t sequence = 0, uint32_t data = 0) {
    sockets_.far.Send(MakeMessage(type, "peer", "me", data, body, sequence));
  }
  uint32_t Read() { return zor::ReadAndDispatchMessage(*watcher_, torn_); }
  void RunUntil(std::function<bool()> condition) {
    const auto end = std::chrono::steady_clock::now() + zor::test::kPatience;
    std::function<bool()> done = [&] { return condition() || std::chrono::steady_clock::now() >= end; };
    UvTimer *timer = ZOR_UTIL_TimerAdd(1, 0, StopWhenDone, &done);
    while (!done()) ZOR_UV_LoopRun(nullptr, 0);  // again when an outer run's condition has stopped this one
    ZOR_UTIL_TimerDel(timer);
    EXPECT_TRUE(condition());
  }
  uint32_t Expect(uint32_t type, uint32_t sequence, uint32_t timeoutMs, char *name) {
    return ZOR_UV_MsgStartWatcher(watcher_, type, sequence, timeoutMs, name, OnReply);
  }

  zor::test::SocketPair sockets_;
  bool torn_ = false;
  UvMsgWatcher *watcher_;
};

TEST_F(MsgWatcher, TakesTheWholeFrameOfADescriptorThatNobodyAskedFor) {
  const zor::test::WireClient peer(sockets_.far.Release());
  peer.SendDescriptor(0);
  peer.Send(MakeMessage(1, "peer", "me", 0, "body"));
  EXPECT_EQ(Read(), ZOR_E_IO);
  EXPECT_FALSE(torn_) << "what follows begins with a header";
  EXPECT_EQ(Read(), ZOR_OK);
  EXPECT_THAT(seen.bodies, ElementsAre("body"));
}

TEST_F(MsgWatcher, HandsMessagesOverInOrderAlsoThoseInPieces) {
  for (const std::string &body : {std::string(), std::string(2048, 'y')}) Send(body);
  RunUntil([] { return seen.bodies.size() == 2; });
  const std::string bytes = MakeMessage(1, "peer", "me", 0, "body").Bytes();
  std::thread sender([&] {
    for (const char &byte : bytes) {
      sockets_.far.Send({&byte, 1});
      int unread = 0;
      zor::test::WaitUntil([&] { return ::ioctl(watcher_->io.fd, FIONREAD, &unread) == 0 && unread == 0; });
    }
  });
  EXPECT_TRUE(zor::test::WaitUntil([&] { return Read() == ZOR_OK; }));
  sender.join();
  EXPECT_THAT(seen.bodies, ElementsAre("", std::string(2048, 'y'), "body"));
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 20; ++i) watcher_->io.ioCallback(&watcher_->io, UV_READABLE);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8)) << "no wait for what others have read";
}

TEST_F(MsgWatcher, DropsWhatEndsTooEarlyAndSaysWhy) {
  sockets_.far.Send("half a header");
  EXPECT_EQ(Read(), ZOR_E_TIMEOUT);
  zor::test::Message torn = MakeMessage(1, "peer", "me", 0, "part");
  torn.header.bodyLength = 100;
  sockets_.far.Send(torn);
  sockets_.far.Close();
  EXPECT_EQ(Read(), ZOR_E_PEER_GONE);
  EXPECT_EQ(Read(), ZOR_E_PEER_GONE);
  const zor::test::BusPeer kept(std::exchange(watcher_->io.fd, 1000));
  EXPECT_EQ(Read(), ZOR_E_IO);
  EXPECT_EQ(watcher_->io.header.flags & UV_WATCHER_DELETED, 0u);
  EXPECT_THAT(seen.bodies, IsEmpty());
}

TEST_F(MsgWatcher, DropsOversizedMessagesWithoutDrainingThem) {
  zor::test::Capture output;
  for (const uint32_t length : {ZOR_MSG_RECV_BODY_MAX + 1, ZOR_ALLOC_MAX - ZOR_MSG_HEAD_SIZE + 1}) {
    zor::test::Message message = MakeMessage(1, "peer", "me");
    message.header.bodyLength = length;
    sockets_.far.Send(message);
    EXPECT_EQ(Read(), ZOR_E_NO_MEMORY);
  }
  EXPECT_EQ(output.Text(), "error: zor_realloc want to malloc 4M, return NULL, malloc len=8388609\n");
  Send("next");
  EXPECT_EQ(Read(), ZOR_OK);
  EXPECT_THAT(seen.bodies, ElementsAre("next"));
}

TEST_F(MsgWatcher, LetsItsOwnerReplaceOrRefuseAMessage) {
  seen.fixUp = [](ZOR_MSG_HEAD **msg) {
    std::free(*msg);
    const std::string whole = MakeMessage(1, "peer", "me", 0, "replaced").Bytes();
    *msg = static_cast<ZOR_MSG_HEAD *>(std::malloc(whole.size()));
    std::memcpy(static_cast<void *>(*msg), whole.data(), whole.size());
    return ZOR_OK;
  };
  for (const char *body : {"", "path"}) {  // nothing to fix up in a message without a body
    Send(body);
    EXPECT_EQ(Read(), ZOR_OK);
  }
  seen.fixUp = [](ZOR_MSG_HEAD **msg) {
    std::free(std::exchange(*msg, nullptr));
    return ZOR_E_PEER_GONE;
  };
  Send("path");
  EXPECT_EQ(Read(), ZOR_E_IO);
  EXPECT_THAT(seen.bodies, ElementsAre("", "replaced"));
}

TEST_F(MsgWatcher, GivesEachReplyToTheEarliestRequestThatStillAwaitsIt) {
  EXPECT_EQ(Expect(5, 7, 60000, kFirst), ZOR_OK);
  EXPECT_EQ(Expect(5, 7, 60000, kSecond), ZOR_OK);
  Send("other sequence", 5, 8);
  for (const uint32_t data : {1u, 2u, 3u}) Send("reply", 5, 7, data);
  RunUntil([] { return seen.bodies.size() == 2; });
  EXPECT_THAT(seen.replies, ElementsAre("first:0:1", "second:0:2"));
  EXPECT_THAT(seen.bodies, ElementsAre("other sequence", "reply"));
  EXPECT_EQ(watcher_->pending, nullptr);

  EXPECT_EQ(Expect(5, 7, 20, kFirst), ZOR_OK);
  RunUntil([] { return seen.replies.size() == 3; });
  Send("late", 5, 7);
  RunUntil([] { return seen.bodies.size() == 3; });
  EXPECT_EQ(seen.replies.back(), "first:1:-");
  EXPECT_EQ(watcher_->pending, nullptr);
}

TEST_F(MsgWatcher, CallsBackOnceThoughTheCallbackRunsTheLoopAgain) {
  EXPECT_EQ(Expect(5, 7, 20, kFirst), ZOR_OK);
  seen.onReply = [this] {
    Send("second copy", 5, 7);
    bool guardIsDue = false;
    ZOR_UTIL_TimerAdd(
        60, 1, [](void *flag) { *static_cast<bool *>(flag) = true; }, &guardIsDue);
    RunUntil([&] { return guardIsDue && !seen.bodies.empty(); });
  };
  Send("reply", 5, 7);
  EXPECT_EQ(Read(), ZOR_OK);  // without the loop, in which its time may be over first
  EXPECT_THAT(seen.replies, ElementsAre("first:0:0"));
  EXPECT_THAT(seen.bodies, ElementsAre("second copy"));
}

TEST_F(MsgWatcher, MayBeDeletedByItsHandlerWhileRepliesAreAwaited) {
  EXPECT_EQ(Expect(5, 7, 30, kFirst), ZOR_OK);
  EXPECT_EQ(Expect(5, 8, 60000, kSecond), ZOR_OK);  // freed with the loop
  seen.onMessage = [this] {
    ZOR_UV_MsgDelete(std::exchange(watcher_, nullptr));
    RunUntil([] { return !seen.replies.empty(); });  // sweeps while the watcher's own frame is still on the stack
  };
  Send("delete");
  Send("never read");
  RunUntil([] { return !seen.bodies.empty(); });
  EXPECT_THAT(seen.replies, ElementsAre("first:1:-"));
  EXPECT_THAT(seen.bodies, ElementsAre("delete"));
  EXPECT_TRUE(sockets_.far.ClosedByOther());
}

}  // namespace
