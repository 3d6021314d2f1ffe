#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <zor/platform/process.h>

#include <csignal>
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
      {"echo 'a  \"b' \"c 'd\"", {"echo", "a  \"b", "c 'd"}},
      {"pre'fix'\"ed\" ''", {"prefixed", ""}},
      {R"(a\ b \"q\" \\ \n)", {"a b", "\"q\"", "\\", "n"}},
      {R"("\$ \` \" \\ \n")", {"$ ` \" \\ \\n"}},
      {"one\\\nword \\\n next \"a\\\nb\"", {"oneword", "next", "ab"}},
      {"$HOME `id` *.c # ; | &", {"$HOME", "`id`", "*.c", "#", ";", "|", "&"}},
  };
  for (const auto &each : cases) EXPECT_EQ(Split(each.line), each.words) << each.line;
  for (const char *line : {"'open", "\"open", "a \"b\\", "ends \\"}) EXPECT_EQ(Split(line), std::nullopt) << line;
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
