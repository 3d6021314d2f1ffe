// The keeper, which starts kept_server.cpp. From its first wait on, every allocation of the keeper fails.
#include "programs/keeper.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <climits>
#include <csignal>
#include <ctime>
#include <fstream>
#include <optional>

#include "daemons/manager_socket.h"
#include "support/capture.h"
#include "support/child.h"
#include "support/failing_alloc.h"
#include "support/temp_root.h"

namespace {
bool g_isKeeper = false;
}

extern "C" int poll(pollfd *entries, nfds_t count, int timeoutMs) {
  static std::optional<zor::test::FailingAllocations> failing;
  if (g_isKeeper && !failing) failing.emplace(0, UINT_MAX);
  timespec time = {timeoutMs / 1000, timeoutMs % 1000 * 1'000'000L};
  return ::ppoll(entries, count, timeoutMs < 0 ? nullptr : &time, nullptr);
}

namespace zor::test {
namespace {

using namespace zor::daemon;  // NOLINT(google-build-using-namespace): the subject
using testing::HasSubstr;

class KeeperTest : public testing::Test {
 protected:
  KeeperTest() { ::setenv("WATCHDOG_USEC", "60000000", 1); }
  ~KeeperTest() override { ::unsetenv("WATCHDOG_USEC"); }

  // Runs a keeper whose server does that with each start.
  Child Keep(std::vector<std::string> actions, rlim_t descriptors = 1024) {
    return Child::Function([this, actions = std::move(actions), descriptors]() mutable {
      const rlimit limit = {descriptors, descriptors};
      ::setrlimit(RLIMIT_NOFILE, &limit);
      actions.insert(actions.begin(), {"kept_server", "--keep"});
      std::vector<char *> arguments;
      for (std::string &action : actions) arguments.push_back(action.data());
      arguments.push_back(nullptr);
      ProgramImage image(arguments.data());
      image.path = KEPT_SERVER;
      Program program = {"kept", "", "", "", ""};
      program.handsOver = handsOver_;
      program.socketPath = "/var/run/kept/socket";
      program.directoryMode = 0755;
      g_isKeeper = true;
      return Keeper(program, image).Run();
    });
  }
  bool Shows(const std::string &text) {
    return WaitUntil([&] { return output_.Text().find(text) != std::string::npos; });
  }
  size_t Starts() const {
    std::ifstream file(root_.Path("/starts"), std::ios::ate);
    return file ? static_cast<size_t>(file.tellg()) : 0;
  }

  TempRoot root_;
  Capture log_{2};
  Capture output_{1};
  bool handsOver_ = false;
};

TEST_F(KeeperTest, PassesWhatACrashedServerHasStoredToTheNext) {
  Child keeper = Keep({"psdxrsk", "psrk", "prw", "rpw"});
  ASSERT_TRUE(Shows("passed: stored=content stored=content stored=content\nwaiting\n"));
  keeper.Signal(SIGHUP);  // of a server that cannot hand over: it is stopped and started again
  ASSERT_TRUE(WaitUntil([&] { return Starts() == 4; }));
  ASSERT_TRUE(WaitUntil([&] {
    const std::string text = output_.Text();
    return text.find("waiting\n", text.find("waiting\n") + 1) != std::string::npos;
  }));
  keeper.Signal(SIGTERM);
  EXPECT_EQ(keeper.Wait(), 7) << "the server's";
  const std::string output = output_.Text();
  EXPECT_EQ(output,
            "passed:\npassed: stored=content stored=content\npassed: stored=content stored=content stored=content\n"
            "waiting\npassed: stored=content stored=content stored=content\nwaiting\n");
}

TEST_F(KeeperTest, EndsWithAServerThatWouldEndAgainAndStartsOthersAgain) {
  const struct {
    std::vector<std::string> actions;
    int status;
    size_t starts;
  } cases[] = {
      {{"r0"}, 0, 1},
      {{"2"}, 2, 1},
      {{"3"}, 3, 1},
      {{"4"}, 4, 1},
      {{"1", "5", "k", "3"}, 3, 4},
      {{"rt1", "0"}, 0, 2},
      {{"rk", "3", "2", "4", "0"}, 0, 5},
  };
  for (const auto &each : cases) {
    ::unlink(root_.Path("/starts").c_str());
    EXPECT_EQ(Keep(each.actions).Wait(), each.status) << each.actions[0];
    EXPECT_EQ(Starts(), each.starts) << each.actions[0];
  }
}

TEST_F(KeeperTest, KillsAServerThatHangsAndServesAManagerOfItsOwn) {
  ::setenv("WATCHDOG_USEC", "300000", 1);
  const ManagerSocket manager(root_.Path("/manager"));
  Child keeper = Keep({"rh", "rw"});
  int feeds = 0;
  std::string told;
  for (int ready = 0; ready < 2;) {
    const std::string text = manager.Take().text;
    ASSERT_NE(text, "");
    ready += text == "READY=1" ? 1 : 0;
    feeds += text == "WATCHDOG=1" ? 1 : 0;
  }
  EXPECT_GT(feeds, 0);
  EXPECT_THAT(log_.Text(), HasSubstr("the server hangs, it is killed\n"));
  EXPECT_THAT(log_.Text(), HasSubstr("the server has been ended by signal 6\n"));
  keeper.Signal(SIGTERM);
  while (told != "STOPPING=1") ASSERT_NE(told = manager.Take().text, "");
}

TEST_F(KeeperTest, RefusesWhatItHasNoRoomFor) {
  Child keeper = Keep({"mrk", "r0"}, 64);
  EXPECT_EQ(keeper.Wait(), 0);
  EXPECT_THAT(log_.Text(), HasSubstr("keeper: \"m24\" is not stored: no room for it\n"));
}

TEST_F(KeeperTest, IsAloneAndPassesHangUpsToAServerThatHandsOver) {
  handsOver_ = true;
  Child keeper = Keep({"rw", "0"});
  ASSERT_TRUE(Shows("waiting\n"));
  EXPECT_EQ(Keep({"0"}).Wait(), kExitBusy);
  EXPECT_EQ(Starts(), 1u);
  keeper.Signal(SIGHUP);  // ends this one, which does not wait for it
  EXPECT_EQ(keeper.Wait(), 0);
  EXPECT_EQ(Starts(), 2u);
  EXPECT_THAT(log_.Text(), HasSubstr("the server has been ended by signal 1\n"));
}

}  // namespace
}  // namespace zor::test
