#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "mlogapi/log_socket.h"
#include "support/capture.h"
#include "support/temp_root.h"

namespace {

using testing::EndsWith;
using testing::MatchesRegex;
using zor::test::LogSocket;
using zor::test::TempRoot;

constexpr size_t kLineMax = 1015;

TEST(MlogLevels, NamesMatchByTheirBeginning) {
  const struct {
    const char *name;
    uint32_t value;
  } cases[] = {{"INFO", 8}, {"warn", 4}, {"e", 2}, {"Fatl", 1}, {"", 0}, {"error", 0}, {nullptr, 0}};
  for (const auto &each : cases) EXPECT_EQ(mlog_get_log_lv(each.name), each.value) << each.value;
  EXPECT_STREQ(mlog_get_log_lv_string(0), "NONE");
  for (uint32_t value : {3u, 16u}) EXPECT_EQ(mlog_get_log_lv_string(value), nullptr) << value;
}

TEST(MlogPrint, SendsOneTerminatedLineThatLacksItsNewlineOnlyWhenItIsCut) {
  const TempRoot root;
  LogSocket daemon;
  EXPECT_EQ(mlog_print("wlan", ZOR_MLOG_WARNING, "channel %d", 11), 0);
  ZOR_MLOG_MSG msg = daemon.Next();
  EXPECT_EQ(msg.type, ZOR_MLOG_LINE);
  EXPECT_THAT(msg.data, MatchesRegex("\\[[0-9]{11}\\]\\[wlan\\]\\[WARN\\]:channel 11\n"));
  EXPECT_EQ(msg.length, strlen(msg.data) + 1);
  EXPECT_EQ(daemon.sender(), "/var/mlog/wlan");
  EXPECT_FALSE(std::filesystem::exists(root.Path("/var/mlog/wlan")));

  mlog_print("t", ZOR_MLOG_INFO, "x\n");
  const std::string line = daemon.NextLine();
  const size_t prefix = line.size() - 2;
  EXPECT_THAT(line, EndsWith(":x\n"));
  for (const size_t total : {kLineMax - 1, kLineMax, kLineMax + 1, kLineMax * 2}) {
    mlog_print("t", ZOR_MLOG_INFO, "%s", std::string(total - prefix, 'x').c_str());
    msg = daemon.Next();
    EXPECT_EQ(strnlen(msg.data, sizeof msg.data), kLineMax) << total;
    EXPECT_EQ(msg.length, kLineMax + 1) << total;
    EXPECT_EQ(msg.data[kLineMax - 1], total < kLineMax ? '\n' : 'x') << total;
  }
}

TEST(MlogPrint, PrintsGraveLinesOnStandardOutputWithoutADaemonButNotWithoutItsSocket) {
  const TempRoot root;
  zor::test::Capture output;
  for (uint32_t level : {0u, 1u, 2u, 8u, 16u}) EXPECT_EQ(mlog_print("t", level, "level %u", level), 0);
  EXPECT_EQ(mlog_print(nullptr, 1, "x"), -1);
  EXPECT_EQ(mlog_print("t", 1, nullptr), -1);
  EXPECT_EQ(mlog_print("../t", 1, "x"), -1);
  std::filesystem::remove_all(root.Path("/var/mlog"));
  EXPECT_EQ(mlog_print("t", 1, "x"), -1);
  EXPECT_THAT(output.Text(), MatchesRegex("\\[[0-9]+\\]\\[t\\]\\[NONE\\]:level 0\n"
                                          "\\[[0-9]+\\]\\[t\\]\\[FATL\\]:level 1\n"));
}

TEST(MlogPrint, SurvivesAnotherWriterOfItsTag) {
  const TempRoot root;
  LogSocket daemon;
  constexpr int kLines = 200;
  std::atomic<int> writing = 2;
  const auto write = [&writing] {
    for (int i = 0; i < kLines; ++i) mlog_print("same", ZOR_MLOG_INFO, "line");
    --writing;
  };
  std::thread one(write), two(write);
  int lines = 0;
  for (ZOR_MLOG_MSG msg; mlog_recv_msg(daemon.fd(), &msg, 1, nullptr, 0) == 0 || writing > 0;) {
    if (msg.type != ZOR_MLOG_LINE) continue;
    EXPECT_THAT(msg.data, EndsWith("[same][INFO]:line\n"));
    ++lines;
  }
  one.join();
  two.join();
  EXPECT_GE(lines, kLines) << "a line is lost only to a line of the other writer that took the path";
}

TEST(MlogConfig, TheLastShareLineDecides) {
  const TempRoot root;
  std::filesystem::current_path(root.Path("/var"));
  EXPECT_EQ(mlog_use_share_partion(), 0);
  const struct {
    const char *text;
    int32_t used;
  } cases[] = {
      {"[share] partition = 12\n", 1}, {"[SHARE]=1\n[SHARE]=0\n", 0}, {"[SHARE]=0\n[Share]=-1", 1},
      {" [SHARE]=1\n[SHAR]=1\n", 0},   {"[SHARE]=yes\n", 0},          {"[SHARE]=1\n[SHARE]\n", 1},
  };
  for (const auto &each : cases) {
    std::ofstream("mlogcfg") << each.text;
    EXPECT_EQ(mlog_use_share_partion(), each.used) << each.text;
  }
}

}  // namespace
