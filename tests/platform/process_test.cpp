#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zor/platform/process.h>

#include <csignal>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/child.h"
#include "support/temp_root.h"

namespace {

using testing::HasSubstr;
using zor::test::Capture;
using zor::test::Child;
using zor::test::TempRoot;
using Words = std::vector<std::string>;

std::optional<Words> Split(const char *line) {
  uint32_t count = 99;
  char **arguments = ZOR_UTIL_ParseArgs(line, &count);
  if (arguments == nullptr) {
    EXPECT_EQ(count, 0u);
    return std::nullopt;
  }
  const Words words(arguments, arguments + count);
  EXPECT_EQ(arguments[count], nullptr);
  ZOR_UTIL_FreeArgs(arguments);
  return words;
}

TEST(Arguments, AreSplitAsAShellSplitsThem) {
  const struct {
    const char *line;
    Words words;
  } cases[] = {
      {" \t\n ", {}},
      {"  ls\t-l  /tmp\n", {"ls", "-l", "/tmp"}},
      {"echo 'a  \"b' \"c 'd\"", {"echo", "a  \"b", "c 'd"}},
      {"pre'fix'\"ed\"", {"prefixed"}},
      {"'' \"\" x", {"", "", "x"}},
      {R"(a\ b \"q\" \\ \n)", {"a b", "\"q\"", "\\", "n"}},
      {R"("\$ \` \" \\ \n")", {"$ ` \" \\ \\n"}},
      {R"('\' x)", {"\\", "x"}},
      {"one\\\nword \\\n next \"a\\\nb\"", {"oneword", "next", "ab"}},
      {"$HOME `id` *.c # ; | &", {"$HOME", "`id`", "*.c", "#", ";", "|", "&"}},
  };
  for (const auto &each : cases) EXPECT_EQ(Split(each.line), each.words) << each.line;
  for (const char *line : {"'open", "\"open", "a \"b\\", "ends \\"}) EXPECT_EQ(Split(line), std::nullopt) << line;
  EXPECT_EQ(ZOR_UTIL_ParseArgs(nullptr, nullptr), nullptr);
  EXPECT_EQ(Split(std::string(100000, 'x').c_str())->front().size(), 100000u);
}

TEST(Programs, AreFoundInTheFirstDirectoryThatHasOne) {
  const TempRoot root;
  for (const char *directory : {"/one", "/two", "/two/tool"}) ::mkdir(root.Path(directory).c_str(), 0755);
  for (const char *file : {"/one/text", "/one/other", "/two/other"}) std::ofstream(root.Path(file)) << "x";
  for (const char *file : {"/one/other", "/two/other"}) ::chmod(root.Path(file).c_str(), 0755);
  const std::string one = root.Path("/one");
  const std::string two = root.Path("/two");
  const char *const directories[] = {"/missing", two.c_str(), one.c_str(), nullptr};
  const auto find = [&](const std::string &name, size_t size = 256) {
    std::string out(256, '?');
    const uint32_t result = ZOR_UTIL_GetExeFullPath(name.c_str(), directories, out.data(), size);
    EXPECT_EQ(result == 0, out[0] != '\0');
    return std::string(out.c_str());
  };
  const std::string found = two + "/other";
  EXPECT_EQ(find("other"), found);
  EXPECT_EQ(find("other", found.size() + 1), found);
  EXPECT_EQ(find("other", found.size()), "");
  EXPECT_EQ(find(one + "/other"), one + "/other");
  for (const char *name : {"", "text", "tool", "absent", "/one/absent"}) EXPECT_EQ(find(name), "") << name;
  EXPECT_EQ(ZOR_UTIL_GetExeFullPath("sh", nullptr, nullptr, 0), 1u);
}

TEST(Commands, ReportHowTheyEnded) {
  int32_t status = 0;
  uint32_t timedOut = 0;
  EXPECT_GT(ZOR_UTIL_ForkProcessSys("exit 3", -1, &status, &timedOut), 0);
  EXPECT_EQ(WEXITSTATUS(status), 3);
  EXPECT_GT(ZOR_UTIL_ForkProcessSys("kill -9 $$", 30000, &status, &timedOut), 0);
  EXPECT_EQ(WTERMSIG(status), SIGKILL);
  EXPECT_EQ(timedOut, 0u);
  EXPECT_EQ(ZOR_UTIL_ForkProcessSys(nullptr, 0, &status, &timedOut), -1);
}

TEST(Commands, ThatTakeTooLongAreTheCallersToKill) {
  int32_t status = 77;
  uint32_t timedOut = 0;
  const int32_t pid = ZOR_UTIL_ForkProcessSys("exec sleep 60", 1, &status, &timedOut);
  ASSERT_GT(pid, 0);
  EXPECT_EQ(timedOut, 1u);
  EXPECT_EQ(status, 77);
  EXPECT_EQ(ZOR_UTIL_WaitForPidEx(pid, 1, 0, 0), -1);
  EXPECT_EQ(::kill(pid, SIGKILL), 0);
  EXPECT_EQ(ZOR_UTIL_WaitForPidEx(pid, 30000, 0, 0), SIGKILL);
  EXPECT_EQ(ZOR_UTIL_WaitForPidEx(pid, 30000, 0, 0), -1);
}

TEST(Commands, AreKilledForGoodWhenTheyIgnoreTheSignal) {
  const struct {
    const char *script;
    int32_t graceMs;
    int32_t status;
  } cases[] = {{"echo ready; exec sleep 60", 30000, SIGTERM}, {"trap '' TERM; echo ready; exec sleep 60", 1, SIGKILL}};
  for (const auto &each : cases) {
    Child child = Child::Program({"/bin/sh", "-c", each.script});
    EXPECT_TRUE(child.WaitForOutput("ready\n"));
    EXPECT_EQ(ZOR_UTIL_WaitForPidEx(child.pid(), 1, SIGTERM, each.graceMs), each.status);
  }
}

// The loop of a daemon reaps every child in its handler.
TEST(Commands, AreNotTakenAwayByAHandlerThatReapsAll) {
  std::signal(SIGCHLD, [](int) {
    while (::waitpid(-1, nullptr, WNOHANG) > 0) continue;
  });
  int32_t status = 0;
  EXPECT_GT(ZOR_UTIL_ForkProcessSys("sleep 0.05; exit 4", -1, &status, nullptr), 0);
  EXPECT_EQ(WEXITSTATUS(status), 4);
  // The command does not inherit the blocked signal.
  EXPECT_GT(ZOR_UTIL_ForkProcessSys("trap 'exit 5' CHLD; kill -CHLD $$; exit 0", -1, &status, nullptr), 0);
  EXPECT_EQ(WEXITSTATUS(status), 5);
}

TEST(Reboot, IsRefusedInsideADirectory) {
  const TempRoot root;
  Capture errors(2);
  EXPECT_EQ(ZOR_UTIL_Reboot(5), 1u);
  EXPECT_THAT(errors.Text(), HasSubstr("reason 5 refused"));
}

}  // namespace
