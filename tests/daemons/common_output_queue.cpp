#include "common/output_queue.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstring>
#include <string>

namespace zor::daemon {
namespace {

std::span<const std::byte> Bytes(const std::string &text) {
  return std::as_bytes(std::span(text));
}

struct Pair {
  Pair() {
    int ends[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    writer.reset(ends[0]);
    reader.reset(ends[1]);
  }
  std::string ReadAll() {
    std::string all(1 << 20, '\0');
    size_t size = 0;
    for (ssize_t count; (count = ::recv(reader.get(), &all[size], all.size() - size, MSG_DONTWAIT)) > 0;) {
      size += static_cast<size_t>(count);
    }
    all.resize(size);
    return all;
  }
  Fd writer;
  Fd reader;
};

TEST(OutputQueue, KeepsEveryByteInOrderAcrossAFullSocket) {
  Pair pair;
  OutputQueue queue(1 << 20);
  std::string expected;
  for (int i = 0; i < 4000; ++i) {
    const std::string message = std::to_string(i) + std::string(100, 'x');
    expected += message;
    ASSERT_TRUE(queue.Push(Bytes(message)));
  }
  std::string received;
  OutputQueue::State state;
  int blocked = 0;
  while ((state = queue.Flush(pair.writer.get())) == OutputQueue::State::kBlocked) {
    ++blocked;
    received += pair.ReadAll();
  }
  received += pair.ReadAll();
  EXPECT_EQ(state, OutputQueue::State::kDrained);
  EXPECT_GT(blocked, 0);
  EXPECT_TRUE(received == expected);
  EXPECT_EQ(queue.bytes(), 0u);
}

TEST(OutputQueue, RefusesWhatDoesNotFitAndKeepsTheRest) {
  OutputQueue queue(1000);
  const std::string message(400, 'x');
  EXPECT_TRUE(queue.Push(Bytes(message)));
  EXPECT_TRUE(queue.Push(Bytes(message)));
  EXPECT_FALSE(queue.Push(Bytes(message)));
  EXPECT_EQ(queue.messages().size(), 2u);
}

TEST(OutputQueue, SendsADescriptorWithItsOwnMessageAlone) {
  Pair pair;
  OutputQueue queue(1000);
  ASSERT_TRUE(queue.Push(Bytes("before")));
  ASSERT_TRUE(queue.Push(Bytes("fd"), 0, Fd(::open("/dev/null", O_RDONLY | O_CLOEXEC))));
  ASSERT_TRUE(queue.Push(Bytes("after")));
  ASSERT_EQ(queue.Flush(pair.writer.get()), OutputQueue::State::kDrained);

  char data[64];
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
  iovec vector = {data, 8};  // "before" and the two bytes
  msghdr message = {};
  message.msg_iov = &vector;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  ASSERT_EQ(::recvmsg(pair.reader.get(), &message, MSG_CMSG_CLOEXEC), 8);
  ASSERT_NE(CMSG_FIRSTHDR(&message), nullptr);
  int descriptor = -1;
  std::memcpy(&descriptor, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof descriptor);
  EXPECT_TRUE(Fd(descriptor).valid());
  EXPECT_EQ(pair.ReadAll(), "after");
}

TEST(OutputQueue, RefusesMoreDescriptorsThanItsShare) {
  OutputQueue queue(1 << 20);
  for (size_t i = 0; i < OutputQueue::kMaxDescriptors; ++i) {
    ASSERT_TRUE(queue.Push(Bytes("fd"), 0, Fd(::open("/dev/null", O_RDONLY | O_CLOEXEC))));
  }
  EXPECT_FALSE(queue.Push(Bytes("fd"), 0, Fd(::open("/dev/null", O_RDONLY | O_CLOEXEC))));
}

}  // namespace
}  // namespace zor::daemon
