#include <gmock/gmock.h>
#include <linux/netlink.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "mlogapi/log_socket.h"
#include "support/capture.h"
#include "support/scripted_server.h"

namespace zor::test {
namespace {

using testing::MatchesRegex;

constexpr size_t kLineMax = 1015;

class MlogAlone : public testing::Test {
 protected:
  TempRoot root_;
};

class MlogClient : public MlogAlone {
 protected:
  LogSocket daemon_;
};

TEST_F(MlogClient, SendsOneTerminatedLineThatLacksItsNewlineOnlyWhenItIsCut) {
  EXPECT_EQ(mlog_print("wlan", ZOR_MLOG_WARNING, "channel %d", 11), 0);
  ZOR_MLOG_MSG msg = daemon_.Next();
  EXPECT_EQ(msg.type, ZOR_MLOG_LINE);
  EXPECT_THAT(msg.data, MatchesRegex("\\[[0-9]{11}\\]\\[wlan\\]\\[WARN\\]:channel 11\n"));
  EXPECT_EQ(msg.length, strlen(msg.data) + 1);
  EXPECT_EQ(daemon_.sender(), "/var/mlog/wlan");
  EXPECT_FALSE(std::filesystem::exists(root_.Path("/var/mlog/wlan")));

  mlog_print("t", ZOR_MLOG_INFO, "x\n");
  const size_t prefix = daemon_.NextLine().size() - 2;
  for (const size_t total : {kLineMax - 1, kLineMax, kLineMax * 2}) {
    mlog_print("t", ZOR_MLOG_INFO, "%s", std::string(total - prefix, 'x').c_str());
    msg = daemon_.Next();
    EXPECT_EQ(strnlen(msg.data, sizeof msg.data), kLineMax) << total;
    EXPECT_EQ(msg.length, kLineMax + 1) << total;
    EXPECT_EQ(msg.data[kLineMax - 1], total < kLineMax ? '\n' : 'x') << total;
  }
}

TEST_F(MlogAlone, PrintsGraveLinesOnStandardOutputWithoutADaemonButNotWithoutItsSocket) {
  Capture output;
  for (uint32_t level : {0u, 1u, 2u, 8u}) EXPECT_EQ(mlog_print("t", level, "level %u", level), 0);
  for (const char *tag : {"../t", static_cast<const char *>(nullptr)}) EXPECT_EQ(mlog_print(tag, 1, "x"), -1);
  std::filesystem::remove_all(root_.Path("/var/mlog"));
  EXPECT_EQ(mlog_print("t", 1, "x"), -1);
  EXPECT_EQ(inform_mlogger_power_off(), -1);
  EXPECT_THAT(output.Text(), MatchesRegex("\\[[0-9]+\\]\\[t\\]\\[NONE\\]:level 0\n"
                                          "\\[[0-9]+\\]\\[t\\]\\[FATL\\]:level 1\n"));
}

TEST_F(MlogAlone, ReadsLevelsByTheirBeginningAndTheLastShareLine) {
  for (const char *name : {"WARN", "warn", "w"}) EXPECT_EQ(mlog_get_log_lv(name), ZOR_MLOG_WARNING) << name;
  for (const char *name : {"warning", ""}) EXPECT_EQ(mlog_get_log_lv(name), 0u) << name;
  std::filesystem::current_path(root_.Path("/var"));
  EXPECT_EQ(mlog_use_share_partion(), 0);
  const std::pair<const char *, int32_t> cases[] = {
      {"[share] partition = 12\n", 1}, {"[SHARE]=1\n[SHARE]=0\n", 0}, {"[SHARE]=0\n[Share]=-1", 1},
      {" [SHARE]=1\n[SHAR]=1\n", 0},   {"[SHARE]=yes\n", 0},          {"[SHARE]=1\n[SHARE]\n", 1}};
  for (const auto &[text, used] : cases) {
    std::ofstream("mlogcfg") << text;
    EXPECT_EQ(mlog_use_share_partion(), used) << text;
  }
}

TEST_F(MlogClient, OnlyWholeMessagesAreReceived) {
  const LogSocket client("client");
  ZOR_MLOG_MSG msg = {ZOR_MLOG_LINE, 3, "ab"};
  const struct {
    uint32_t sent, length;
    int32_t result;
  } cases[] = {{11, 3, 0}, {1024, 1016, 0}, {10, 3, -1}, {12, 3, -1}, {7, 0, -1}, {0, 0, -1}, {11, 0xfffffffbu, -1}};
  for (const auto &each : cases) {
    msg.length = each.length;
    ASSERT_EQ(client.Send(&msg, each.sent), 0);
    ZOR_MLOG_MSG got;
    memset(&got, 0xff, sizeof got);
    EXPECT_EQ(mlog_recv_msg(daemon_.fd(), &got, 5, nullptr, 0), each.result) << each.sent << " " << each.length;
    EXPECT_EQ(memcmp(&got, &msg, each.sent), 0);
    EXPECT_EQ(got.data[sizeof got.data - 1], 0) << "nothing of the caller's block stays";
  }
  msg.length = ZOR_MLOG_DATA_MAX + 1;
  EXPECT_EQ(mlog_send_msg(client.fd(), &msg, ZOR_MLOG_SERVER_NAME), -1);
}

ZOR_MLOG_STAT RecordOf(const ZOR_MLOG_MSG &msg) {
  ZOR_MLOG_STAT stat;
  memcpy(&stat, msg.data, sizeof stat);
  return stat;
}

TEST_F(MlogClient, SetsStatisticsCutToTheirFieldsAndGetsThemAsFarAsTheyFit) {
  EXPECT_EQ(set_mlog_stat_info("reboots", std::string(300, 'v').c_str()), 0);
  const ZOR_MLOG_MSG set = daemon_.Next();
  EXPECT_EQ(set.type, ZOR_MLOG_SET_STAT);
  EXPECT_EQ(set.length, 516u);
  EXPECT_STREQ(RecordOf(set).name, "reboots");
  EXPECT_EQ(RecordOf(set).value, std::string(255, 'v'));
  EXPECT_EQ(RecordOf(set).reserved, 0u);
  const struct {
    int32_t size;
    uint32_t length;
    const char *expected;
  } cases[] = {{16, 516, "received"}, {5, 516, "rece"}, {16, 515, "before"}};
  for (const auto &each : cases) {
    daemon_.ReplyOnce([&each](const ZOR_MLOG_MSG &request) {
      EXPECT_STREQ(RecordOf(request).name, "reboots");
      ZOR_MLOG_MSG reply = {request.type, each.length, {}};
      strcpy(reply.data + ZOR_MLOG_STAT_TEXT_SIZE, "received");
      return reply;
    });
    char value[16] = "before";
    EXPECT_EQ(get_mlog_stat_info("reboots", value, each.size), 0);
    EXPECT_STREQ(value, each.expected) << each.size << " " << each.length;
  }
}

}  // namespace
}  // namespace zor::test
