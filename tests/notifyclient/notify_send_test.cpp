#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "notifyclient/notify_fixture.h"

namespace zor::test {
namespace {

using testing::HasSubstr;

class NotifySend : public SwitchedClient {};

TEST_F(NotifySend, SimpleNotificationCarriesTwoValuesInTwoParts) {
  ASSERT_EQ(ZOR_NOTIFYCLT_PostSimpleAsynNotify(9, 0x77, 0x01020304, 5), ZOR_NOTIFY_OK);
  const std::string bytes = peer().Receive(56);
  const uint32_t expected[14] = {0x77, 1, 0, 9, 0, 1, 8, 4, 4, 0, 0, 0, 0x01020304, 5};
  EXPECT_EQ(bytes, std::string(reinterpret_cast<const char *>(expected), sizeof expected));
}

TEST_F(NotifySend, PartsGoOutOneAfterTheOtherAndMissingOnesAsZeros) {
  const struct {
    const char *part1;
    uint32_t length1;
    const char *part2;
    uint32_t length2;
    std::string data;
  } cases[] = {
      {"abc", 3, "de", 2, "abcde"},
      {nullptr, 3, "de", 2, std::string("\0\0\0de", 5)},
      {"abc", 3, nullptr, 2, std::string("abc\0\0", 5)},
      {nullptr, 0, nullptr, 0, ""},
  };
  uint32_t sequence = 0;
  for (const auto &entry : cases) {
    ASSERT_EQ(ZOR_NOTIFYCLT_PostAsynNotify(9, 0x77, entry.part1, entry.length1, entry.part2, entry.length2), 0u);
    NotifyFrame expected = MakeAsync(0x77, 0, 9, entry.data);
    expected.head.seq = ++sequence;
    expected.head.sub_data_len1 = entry.length1;
    expected.head.sub_data_len2 = entry.length2;
    expected.head.async_flag = 1;
    EXPECT_EQ(peer().Receive(expected.Bytes().size()), expected.Bytes());
  }
}

TEST_F(NotifySend, LengthsBeyondTheLimitAreRefusedBeforeAnythingIsCopied) {
  const char byte = 0;
  const Capture output;
  EXPECT_EQ(ZOR_NOTIFYCLT_PostAsynNotify(9, 1, &byte, 0xffffffff, &byte, 1), ZOR_NOTIFY_E_NO_MEMORY);
  EXPECT_EQ(ZOR_NOTIFYCLT_PostAsynNotify(9, 1, &byte, 0x800000 - 47, nullptr, 0), ZOR_NOTIFY_E_NO_MEMORY);
  EXPECT_EQ(ZOR_NOTIFYCLT_SendSynNotify(9, 1, &byte, 0xffffffff, nullptr, nullptr), ZOR_NOTIFY_E_NO_MEMORY);
  EXPECT_TRUE(peer().NothingArrived());
}

TEST_F(NotifySend, ThreadsDoNotMixTheirMessages) {
  constexpr int kThreads = 4;
  constexpr int kEach = 20;
  constexpr uint32_t kLength = 300'000;  // more than the socket takes at once
  std::vector<std::thread> threads;
  for (int index = 0; index < kThreads; ++index) {
    threads.emplace_back([index] {
      const std::string data(kLength, static_cast<char>('a' + index));
      for (int count = 0; count < kEach; ++count) {
        ZOR_NOTIFYCLT_PostAsynNotify(9, 1, data.data(), kLength, nullptr, 0);
      }
    });
  }
  std::set<uint32_t> sequences;
  for (int count = 0; count < kThreads * kEach; ++count) {
    const auto frame = ReceiveNotify(peer());
    if (!frame) break;
    sequences.insert(frame->head.seq);
    EXPECT_EQ(frame->data.find_first_not_of(frame->data[0]), std::string::npos);
  }
  EXPECT_EQ(sequences.size(), kThreads * kEach);
  for (std::thread &thread : threads) thread.join();
}

TEST_F(NotifySend, ClosedPeerIsATimeOutAndDoesNotRaiseASignal) {
  pair_.far.Close();
  Capture output;
  EXPECT_EQ(ZOR_NOTIFYCLT_PostSimpleAsynNotify(9, 0x77, 1, 2), ZOR_NOTIFY_E_TIMEOUT);
  EXPECT_THAT(output.Text(), HasSubstr("data_len=8, send_len=0, errno=EPIPE, ret=-1.\n"));
  EXPECT_THAT(output.Text(), HasSubstr("NotifyMsgSend fail to send, type=0x77, src=[0], dest=[9] seq=1, sync_tag=0, "
                                       "data_len=8, ulRetVal=65540, fd="));
}

TEST_F(NotifySend, FullSocketIsGivenUpAfterTenSeconds) {
  const int fd = pair_.far.fd();
  ZOR_NOTIFYCLT_SwitchSock(::dup(fd));  // the far end, whose own peer nobody reads
  while (::send(fd, "x", 1, MSG_DONTWAIT) == 1) {
  }
  Capture output;
  EXPECT_EQ(ZOR_NOTIFYCLT_PostSimpleAsynNotify(9, 0x77, 1, 2), ZOR_NOTIFY_E_NOT_WRITABLE);
  EXPECT_EQ(output.Text(), "Send notify msg err 0:0, type=0x77, src=[0], dest=[9], ack=[1], failed time = [1]\n");
}

std::string SendOnce(uint32_t status) {
  Capture output;
  EXPECT_EQ(ZOR_NOTIFYCLT_PostSimpleAsynNotify(9, 1, 0, 0), status);
  return output.Text();
}

void FailSends(int count) {
  ZOR_NOTIFYCLT_SwitchSock(-1);
  for (; count > 0; --count) SendOnce(ZOR_NOTIFY_E_NOT_WRITABLE);
}

TEST_F(NotifySend, SendAfterTenUnwritableOnesInARowRebootsAndGoesOn) {
  const TempRoot root;
  const std::string command = root.Path("/reboot");
  const std::string marker = root.Path("/rebooted");
  std::ofstream(command) << "#!/bin/sh\n: > " << marker << "\n";
  ::chmod(command.c_str(), 0700);
  ::setenv("PATH", (root.Path("") + ":" + std::getenv("PATH")).c_str(), 1);  // the script is found first

  FailSends(9);
  ZOR_NOTIFYCLT_SwitchSock(::dup(peer().fd()));
  EXPECT_EQ(SendOnce(ZOR_NOTIFY_OK), "");  // starts the count again
  FailSends(10);
  EXPECT_FALSE(std::filesystem::exists(marker));
  ZOR_NOTIFYCLT_Destroy();  // does not forget the failures
  ZOR_NOTIFYCLT_SwitchSock(::dup(peer().fd()));
  EXPECT_EQ(SendOnce(ZOR_NOTIFY_OK), "error: notifyclient failed more than 10 times, reboot devie!!");
  EXPECT_TRUE(WaitUntil([&] { return std::filesystem::exists(marker); }));
  EXPECT_EQ(SendOnce(ZOR_NOTIFY_OK), "");  // the send that rebooted went through
}

}  // namespace
}  // namespace zor::test
