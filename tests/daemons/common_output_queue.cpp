#include "common/output_queue.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>

#include "support/wire_client.h"

namespace zor::daemon {
namespace {

using State = OutputQueue::State;

class OutputQueueTest : public testing::Test {
 protected:
  bool Push(const std::string &text, size_t sent = 0, Fd &&descriptor = Fd()) {
    return queue_.Push(std::as_bytes(std::span(text)), sent, std::move(descriptor));
  }
  State Flush() { return queue_.Flush(pair_.near.fd()); }
  static Fd AnyDescriptor() { return Fd(::open("/dev/null", O_RDONLY | O_CLOEXEC)); }

  OutputQueue queue_{1 << 20};
  test::SocketPair pair_;
};

TEST_F(OutputQueueTest, KeepsEveryByteInOrderAcrossAFullSocketAndKnowsItsPeersEnd) {
  std::string expected = "st";
  ASSERT_TRUE(Push("first", 3));
  for (int i = 0; i < 4000; ++i) {
    const std::string message = std::to_string(i) + std::string(100, 'x');
    expected += message;
    ASSERT_TRUE(Push(message));
  }
  std::string received;
  int blocked = 0;
  for (; Flush() == State::kBlocked; ++blocked) received += pair_.far.Receive(10'000);
  EXPECT_GT(blocked, 0);
  EXPECT_EQ(queue_.bytes(), 0u);
  received += pair_.far.Receive(expected.size() - received.size());
  EXPECT_TRUE(received == expected);
  pair_.far.Close();
  ASSERT_TRUE(Push("lost"));
  EXPECT_EQ(Flush(), State::kBroken);
}

TEST_F(OutputQueueTest, RefusesMoreBytesOrDescriptorsThanItsShare) {
  const std::string half(1 << 19, 'x');
  EXPECT_TRUE(Push(half));
  EXPECT_FALSE(Push(half)) << "what it costs to keep a message counts too";
  for (size_t i = 0; i < OutputQueue::kMaxDescriptors; ++i) ASSERT_TRUE(Push("fd", 0, AnyDescriptor()));
  EXPECT_FALSE(Push("fd", 0, AnyDescriptor()));
  EXPECT_TRUE(Push("text"));
}

TEST_F(OutputQueueTest, SendsADescriptorWithItsOwnMessageAlone) {
  ASSERT_TRUE(Push("before") && Push(std::string(2, '\0'), 0, AnyDescriptor()) && Push("after"));
  ASSERT_EQ(Flush(), State::kDrained);
  const test::WireClient far(pair_.far.Release());
  EXPECT_EQ(far.Receive(6), "before");
  EXPECT_TRUE(Fd(far.ReceiveDescriptor()).valid());
  EXPECT_EQ(far.Receive(5), "after");
}

}  // namespace
}  // namespace zor::daemon
