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
  explicit BusDaemonTest(const char *program) : server_(Child::Program({MSGSVR_PROGRAM})), program_(program) {
    EXPECT_TRUE(server_.WaitForOutput("listening"));
  }

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
  // For a daemon that has been started.
  void ExpectExitStatusThatSaysWhyItEnds() {
    EXPECT_EQ(Stop(SIGTERM), 0) << errors_.Text();
    Start();
    server_.Signal(SIGTERM);
    EXPECT_EQ(daemon_->Wait(), 1);
    EXPECT_THAT(errors_.Text(), testing::HasSubstr("the message server has gone"));
    EXPECT_EQ(Run().Wait(), 1) << "without a message server";
    EXPECT_EQ(Run("nonsense = 1\n").Wait(), 3);
  }

  TempRoot root_;
  Capture errors_{2};
  Child server_;
  std::optional<Child> daemon_;

 private:
  const char *program_;
};

}  // namespace zor::test

#endif
