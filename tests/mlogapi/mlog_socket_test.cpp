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

TEST(MlogSocket, CutsTheSenderToItsSizeAndTellsATimeOutFromAnError) {
  const TempRoot root;
  const LogSocket socket("own");
  char buffer[1024];
  char sender[6];
  uint32_t length = 7;
  ASSERT_EQ(mlog_socket_send(socket.fd(), "ping", 4, "/var/mlog/own"), 0);
  ASSERT_EQ(mlog_socket_recvfrom(socket.fd(), buffer, &length, 5, sender, sizeof sender), 0);
  EXPECT_EQ(std::string(buffer, length) + sender, "ping/var/");
  EXPECT_EQ(mlog_socket_recvfrom(socket.fd(), buffer, &length, 1, nullptr, 0), -2);
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(mlog_socket_recvfrom(-1, buffer, &length, 1, nullptr, 0), -1);
}

TEST(MlogSocket, KeepsToItsDirectory) {
  const TempRoot root;
  int32_t fd = -1;
  const std::string tooLong(98, 'n');
  for (const char *name : {"../escape", "/var/mlog/x", tooLong.c_str(), static_cast<const char *>(nullptr)}) {
    EXPECT_EQ(mlog_socket_open(name, &fd), -1);
  }
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
  } cases[] = {{11, 3, 0},  {8, 0, 0},  {1024, 1016, 0}, {10, 3, -1},
               {12, 3, -1}, {7, 0, -1}, {0, 0, -1},      {11, 0xfffffffbu, -1}};
  for (const auto &each : cases) {
    msg.length = each.length;
    ASSERT_EQ(client.Send(&msg, each.sent), 0);
    ZOR_MLOG_MSG got;
    memset(&got, 0xff, sizeof got);
    EXPECT_EQ(mlog_recv_msg(daemon.fd(), &got, 5, nullptr, 0), each.result) << each.sent << " " << each.length;
    EXPECT_EQ(memcmp(&got, &msg, each.sent), 0);
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
