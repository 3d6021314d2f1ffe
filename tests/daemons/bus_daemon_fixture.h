// A message server and one daemon that is its client.
#ifndef TESTS_DAEMONS_BUS_DAEMON_FIXTURE_H
#define TESTS_DAEMONS_BUS_DAEMON_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <optional>
#include <string>

#include "support/capture.h"
#include "support/child.h"
#include "support/temp_root.h"

namespace zor::test {

class BusDaemonTest : public testing::Test {
 protected:
  explicit BusDaemonTest(const char *program) : program_(program) { StartServer(); }

  Child Run(const std::string &settings = "") {
    std::ofstream(root_.Path("/settings")) << settings;
    return Child::Program({program_, "--settings", root_.Path("/settings")});
  }
  void Start(const std::string &settings = "") {
    daemon_.emplace(Run(settings));
    ASSERT_TRUE(daemon_->WaitForOutput(": on the bus as ")) << errors_.Text();
  }
  int Stop(int signal) {
    daemon_->Signal(signal);
    return daemon_->Wait();
  }
  void StartServer() {
    server_.emplace(Child::Program({MSGSVR_PROGRAM}));
    EXPECT_TRUE(server_->WaitForOutput("listening"));
  }
  // For a daemon that has been started: kills the server, starts another one, and waits until the daemon is its client.
  void RestartServer() {
    KillServer();
    EXPECT_TRUE(LogHolds(": the message server has gone; joining again\n"));
    StartServer();
    EXPECT_TRUE(LogHolds(": on the bus again as ")) << errors_.Text();
  }
  // For a daemon that has been started.
  void ExpectExitStatusThatSaysWhyItEnds() {
    EXPECT_EQ(Stop(SIGTERM), 0) << errors_.Text();
    KillServer();
    EXPECT_EQ(Run().Wait(), 1) << "without a message server";
    EXPECT_EQ(Run("nonsense = 1\n").Wait(), 3);
  }

  TempRoot root_;
  Capture errors_{2};
  std::optional<Child> server_;
  std::optional<Child> daemon_;

 private:
  void KillServer() {
    server_->Signal(SIGKILL);
    server_->Wait();
  }
  bool LogHolds(const std::string &text) {
    return WaitUntil([&] { return errors_.Text().find(text) != std::string::npos; });
  }

  const char *program_;
};

}  // namespace zor::test

#endif
