#include <csignal>
#include <filesystem>
#include <fstream>

#include "daemons/notifyserver_fixture.h"

namespace zor::test {
namespace {

class NotifyServerProcess : public NotifyServerTest {
 protected:
  std::string Socket() const { return root_.Path("/var/run/notify/notifyserver"); }
};

TEST_F(NotifyServerProcess, MakesItsDirectoryAndStopsCleanly) {
  std::filesystem::remove_all(root_.Path("/var"));
  Start();
  const BusPeer client = Register(26);
  EXPECT_EQ(Stop(), "");
  EXPECT_TRUE(client.ClosedByOther());
  EXPECT_FALSE(std::filesystem::exists(Socket()));
}

TEST_F(NotifyServerProcess, ReplacesAStaleSocketAndLeavesALiveOneAlone) {
  Start();
  EXPECT_EQ(ExitCodeOf({}), 4);
  const BusPeer client = Register(26);  // the first one still serves
  server_->Signal(SIGKILL);
  server_->Wait();
  ASSERT_TRUE(std::filesystem::exists(Socket()));
  Start();
  Register(26);
}

TEST_F(NotifyServerProcess, WrongStartsSayWhy) {
  const std::string path = root_.Path("/settings");
  EXPECT_EQ(ExitCodeOf({"--help"}), 0);
  EXPECT_EQ(ExitCodeOf({"--nonsense"}), 2);
  EXPECT_EQ(ExitCodeOf({"--settings", path}), 3);
  for (const char *settings : {"max_clients = 0", "nonsense = 1", "queue_bytes = 8388608"}) {
    std::ofstream(path) << settings << "\n";
    EXPECT_EQ(ExitCodeOf({"--settings", path}), 3) << settings;
  }
  std::filesystem::remove_all(root_.Path("/var/run/notify"));
  std::ofstream(root_.Path("/var/run/notify")) << "in the way";
  EXPECT_EQ(ExitCodeOf({}), 1);
}

}  // namespace
}  // namespace zor::test
