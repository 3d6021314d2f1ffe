#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zor/uv.h>

#include <csignal>
#include <fstream>
#include <string>

#include "support/child.h"
#include "support/temp_root.h"

namespace zor::test {
namespace {

TEST(CommandLine, RunsBesideTheLoopWhoseHandlerReapsIt) {
  const int32_t pid = ZOR_UTIL_ExecCmdWithPermissions("sleep 60 &");
  ASSERT_GT(pid, 0);
  EXPECT_EQ(::kill(pid, SIGKILL), 0);
  EXPECT_TRUE(WaitUntil([&] { return ::kill(pid, 0) != 0; }));
  ZOR_UV_LoopDestroy(ZOR_UV_LoopGetDefault());
}

TEST(CommandLine, IsSplitAndCutAndLosesItsAmpersand) {
  ASSERT_GT(ZOR_UTIL_ExecCmdWithPermissions("true"), 0) << "installs the handler, which must not take the others away";
  std::string longLine = "sh -c 'exit $#' x";
  while (longLine.size() < 600) longLine += " a";
  const struct {
    std::string line;
    int32_t status;
  } cases[] = {
      {"sh -c 'exit $#' x a b", W_EXITCODE(2, 0)},
      {"sh -c 'exit $#' x a b&", W_EXITCODE(2, 0)},
      {"sh -c 'exit $#' x a & ", W_EXITCODE(2, 0)},
      {longLine, W_EXITCODE((511 - 17) / 2, 0)},
      {"sh -c 'kill -15 $$'", SIGTERM},
      {"&", -1},
      {"sh -c 'open", -1},
      {"nosuchprogram", -1},
  };
  for (const auto &each : cases) {
    EXPECT_EQ(ZOR_UTIL_ExecCmdWithPermissionsFullEx(each.line.c_str(), 30000, 0, 0), each.status) << each.line;
  }
  EXPECT_EQ(ZOR_UTIL_ExecCmdWithPermissionsFullEx("sleep 60", 1, SIGTERM, 30000), SIGTERM);
  EXPECT_EQ(ZOR_UTIL_ExecCmdWithPermissionsFullEx(nullptr, 1, 0, 0), -1);
  ZOR_UV_LoopDestroy(ZOR_UV_LoopGetDefault());
}

TEST(CommandLine, RunsUnderTheAccountOfItsProgram) {
  if (::geteuid() != 0) GTEST_SKIP() << "takes root";
  const TempRoot root;
  const std::string directory = root.Path("");
  const std::string program = root.Path("/daemon");
  std::ofstream(program) << "#!/bin/sh\n[ $(id -u) = 1 ] && [ $(id -g) = 1 ] && exit 7\n";
  for (const std::string &path : {directory, program}) ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
  g_apcBinSearchPath[0] = directory.c_str();
  EXPECT_EQ(ZOR_UTIL_ExecCmdWithPermissionsFullEx("daemon", 30000, 0, 0), W_EXITCODE(7, 0));
  EXPECT_EQ(ZOR_UTIL_ExecCmdWithPermissionsFullEx(program.c_str(), 30000, 0, 0), W_EXITCODE(1, 0)) << "by its path";
}

}  // namespace
}  // namespace zor::test
