#include <sys/socket.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "mlogapi/log_daemon.h"
#include "support/temp_root.h"

namespace {

using zor::test::LogDaemon;
using zor::test::TempRoot;

TEST(MlogSocket, AReceivedSenderIsADestinationAgain) {
  const TempRoot root;
  LogDaemon daemon;
  int32_t fd = -1;
  ASSERT_EQ(mlog_socket_open("client", &fd), 0);
  ASSERT_EQ(mlog_socket_send(fd, "ping", 4, ZOR_MLOG_SERVER_NAME), 0);
  char buffer[1024];
  char sender[64];
  uint32_t length = 0;
  ASSERT_EQ(mlog_socket_recvfrom(daemon.fd(), buffer, &length, 5, sender, sizeof sender), 0);
  EXPECT_EQ(length, 4u);
  EXPECT_STREQ(sender, "/var/mlog/client");
  ASSERT_EQ(mlog_socket_send(daemon.fd(), "pong", 4, sender), 0);
  ASSERT_EQ(mlog_socket_recvfrom(fd, buffer, &length, 5, sender, 6), 0);
  EXPECT_EQ(std::string(buffer, length), "pong");
  EXPECT_STREQ(sender, "/var/") << "cut to its size";
  EXPECT_EQ(mlog_socket_close(fd, "client"), 0);
  EXPECT_FALSE(std::filesystem::exists(root.Path("/var/mlog/client")));
}

TEST(MlogSocket, ReportsAnUnnamedSenderAsEmpty) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
  ASSERT_EQ(::send(ends[0], "x", 1, 0), 1);
  char buffer[1024];
  char sender[16] = "before";
  uint32_t length = 0;
  EXPECT_EQ(mlog_socket_recvfrom(ends[1], buffer, &length, 5, sender, sizeof sender), 0);
  EXPECT_STREQ(sender, "");
  for (int fd : ends) ::close(fd);
}

TEST(MlogSocket, ATimeOutIsToldFromAnError) {
  const TempRoot root;
  LogDaemon daemon;
  char buffer[1024];
  uint32_t length = 7;
  EXPECT_EQ(mlog_socket_recvfrom(daemon.fd(), buffer, &length, 1, nullptr, 0), -2);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(mlog_socket_recvfrom(-1, buffer, &length, 1, nullptr, 0), -1);
  EXPECT_EQ(mlog_socket_send(daemon.fd(), "x", 1, "nobody"), -1);
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
  LogDaemon daemon;
  int32_t fd = -1;
  ASSERT_EQ(mlog_socket_open("client", &fd), 0);
  ZOR_MLOG_MSG msg = {ZOR_MLOG_LINE, 3, "ab"};
  const struct {
    uint32_t sent;
    uint32_t length;
    int32_t result;
  } cases[] = {{11, 3, 0}, {8, 0, 0},  {1024, 1016, 0}, {10, 3, -1},          {12, 3, -1},
               {7, 0, -1}, {0, 0, -1}, {8, 1, -1},      {8, 0xffffffffu, -1}, {11, 0xfffffffbu, -1}};
  for (const auto &each : cases) {
    msg.length = each.length;
    ASSERT_EQ(mlog_socket_send(fd, &msg, each.sent, ZOR_MLOG_SERVER_NAME), 0);
    ZOR_MLOG_MSG got;
    memset(&got, 0xff, sizeof got);
    EXPECT_EQ(mlog_recv_msg(daemon.fd(), &got, 5, nullptr, 0), each.result) << each.sent << " " << each.length;
    if (each.result == 0) {
      EXPECT_EQ(memcmp(&got, &msg, each.sent), 0);
    }
    EXPECT_EQ(got.data[sizeof got.data - 1], 0) << "nothing of the caller's block stays";
  }
  msg.length = ZOR_MLOG_DATA_MAX + 1;
  EXPECT_EQ(mlog_send_msg(fd, &msg, ZOR_MLOG_SERVER_NAME), -1);
  mlog_socket_close(fd, "client");
}

TEST(MlogMsg, SignalsDoNotEndTheWait) {
  const TempRoot root;
  LogDaemon daemon;
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
