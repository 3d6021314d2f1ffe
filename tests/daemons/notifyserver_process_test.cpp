#include <csignal>
#include <filesystem>
#include <fstream>

#include "daemons/notifyserver_fixture.h"

namespace zor::test {
namespace {

class NotifyServerProcess : public NotifyServerTest {
 protected:
  // Starts another server in the same place and waits for its end.
  int ExitCode(const std::string &settings = "") const {
    std::ofstream(root_.Path("/settings")) << settings << "\n";
    const Capture output(STDERR_FILENO);
    return Child::Program({NOTIFYSERVER, "--settings", root_.Path("/settings")}).Wait();
  }

  const std::string socket_ = root_.Path("/var/run/notify/notifyserver");
};

TEST_F(NotifyServerProcess, MakesItsDirectoryAndStopsCleanly) {
  std::filesystem::remove_all(root_.Path("/var"));
  Start();
  const BusPeer client = Register(26);
  EXPECT_EQ(Stop(), "");
  EXPECT_TRUE(client.ClosedByOther());
  EXPECT_FALSE(std::filesystem::exists(socket_));
}

TEST_F(NotifyServerProcess, ReplacesAStaleSocketAndLeavesALiveOneAlone) {
  Start();
  EXPECT_EQ(ExitCode(), 4);
  Register(26);  // the first one still serves
  server_->Signal(SIGKILL);
  server_->Wait();
  ASSERT_TRUE(std::filesystem::exists(socket_));
  Start();
  Register(26);
}

TEST_F(NotifyServerProcess, DoesNotStartWithAQueueShorterThanOneNotification) {
  EXPECT_EQ(ExitCode("queue_bytes = 8388608"), 3);
}

}  // namespace
}  // namespace zor::test
