#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "mlogapi/log_socket.h"
#include "support/temp_root.h"

namespace {

using zor::test::LogSocket;
using zor::test::TempRoot;

TEST(MlogSocket, AReceivedSenderIsADestinationAgain) {
  const TempRoot root;
  LogSocket daemon;
  const LogSocket client("client");
  ASSERT_EQ(client.Send("ping", 4), 0);
  char buffer[1024];
  char sender[64];
  uint32_t length = 0;
  ASSERT_EQ(mlog_socket_recvfrom(daemon.fd(), buffer, &length, 5, sender, sizeof sender), 0);
  EXPECT_EQ(length, 4u);
  EXPECT_STREQ(sender, "/var/mlog/client");
  ASSERT_EQ(mlog_socket_send(daemon.fd(), "pong", 4, sender), 0);
  ASSERT_EQ(mlog_socket_recvfrom(client.fd(), buffer, &length, 5, sender, 6), 0);
  EXPECT_EQ(std::string(buffer, length), "pong");
  EXPECT_STREQ(sender, "/var/") << "cut to its size";
  EXPECT_EQ(mlog_socket_recvfrom(client.fd(), buffer, &length, 1, nullptr, 0), -2);
  EXPECT_EQ(length, 0u);
}

TEST(MlogSocket, KeepsToItsDirectory) {
  const TempRoot root;
  int32_t fd = -1;
  EXPECT_EQ(mlog_socket_open("../escape", &fd), -1);
  EXPECT_EQ(mlog_socket_open("/var/mlog/x", &fd), -1);
  EXPECT_EQ(mlog_socket_open(std::string(200, 'n').c_str(), &fd), -1);
  EXPECT_EQ(mlog_socket_open(nullptr, &fd), -1);
  EXPECT_EQ(mlog_socket_open("x", nullptr), -1);
  EXPECT_EQ(fd, -1);
  EXPECT_EQ(mlog_socket_close(-1, "../run"), 0);
  EXPECT_TRUE(std::filesystem::exists(root.Path("/var/run")));
}

TEST(MlogMsg, OnlyAWholeMessageIsReceived) {
  const TempRoot root;
  LogSocket daemon;
  const LogSocket client("client");
  ZOR_MLOG_MSG msg = {ZOR_MLOG_LINE, 3, "ab"};
  const struct {
    uint32_t sent;
    uint32_t length;
    int32_t result;
  } cases[] = {{11, 3, 0}, {8, 0, 0},  {1024, 1016, 0}, {10, 3, -1},          {12, 3, -1},
               {7, 0, -1}, {0, 0, -1}, {8, 1, -1},      {8, 0xffffffffu, -1}, {11, 0xfffffffbu, -1}};
  for (const auto &each : cases) {
    msg.length = each.length;
    ASSERT_EQ(client.Send(&msg, each.sent), 0);
    ZOR_MLOG_MSG got;
    memset(&got, 0xff, sizeof got);
    EXPECT_EQ(mlog_recv_msg(daemon.fd(), &got, 5, nullptr, 0), each.result) << each.sent << " " << each.length;
    if (each.result == 0) {
      EXPECT_EQ(memcmp(&got, &msg, each.sent), 0);
    }
    EXPECT_EQ(got.data[sizeof got.data - 1], 0) << "nothing of the caller's block stays";
  }
  msg.length = ZOR_MLOG_DATA_MAX + 1;
  EXPECT_EQ(mlog_send_msg(client.fd(), &msg, ZOR_MLOG_SERVER_NAME), -1);
}

TEST(MlogMsg, SignalsDoNotEndTheWait) {
  const TempRoot root;
  LogSocket daemon;
  struct sigaction quiet = {};
  quiet.sa_handler = [](int) {};
  ::sigaction(SIGUSR1, &quiet, nullptr);
  const pthread_t waiting = ::pthread_self();
  std::thread other([waiting] {
    for (int i = 0; i < 1000; ++i) ::pthread_kill(waiting, SIGUSR1);
    mlog_print("t", ZOR_MLOG_INFO, "after the signals");
  });
  EXPECT_EQ(daemon.Next().type, ZOR_MLOG_LINE);
  other.join();
}

}  // namespace
