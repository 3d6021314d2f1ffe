#include <gmock/gmock.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "mlogapi/log_socket.h"
#include "support/temp_root.h"

namespace {

using zor::test::LogSocket;
using zor::test::TempRoot;

ZOR_MLOG_STAT RecordOf(const ZOR_MLOG_MSG &msg) {
  ZOR_MLOG_STAT stat;
  memcpy(&stat, msg.data, sizeof stat);
  return stat;
}

TEST(MlogStat, SetSendsTheRecordCutToItsFields) {
  const TempRoot root;
  LogSocket daemon;
  EXPECT_EQ(set_mlog_stat_info("reboots", std::string(300, 'v').c_str()), 0);
  const ZOR_MLOG_MSG msg = daemon.Next();
  EXPECT_EQ(msg.type, ZOR_MLOG_SET_STAT);
  EXPECT_EQ(msg.length, 516u);
  EXPECT_STREQ(RecordOf(msg).name, "reboots");
  EXPECT_EQ(RecordOf(msg).value, std::string(255, 'v'));
  EXPECT_EQ(RecordOf(msg).reserved, 0u);
  EXPECT_EQ(daemon.sender(), "/var/mlog/STAT_" + std::to_string(::getpid()));
}

TEST(MlogStat, GetCopiesTheAnswerAsFarAsItFits) {
  const TempRoot root;
  const struct {
    int32_t size;
    uint32_t length;
    const char *expected;
  } cases[] = {{16, 516, "answered"}, {5, 516, "answ"}, {16, 515, "before"}};
  for (const auto &each : cases) {
    LogSocket daemon;
    daemon.AnswerOnce([&each](const ZOR_MLOG_MSG &request) {
      EXPECT_EQ(request.type, ZOR_MLOG_GET_STAT);
      EXPECT_STREQ(RecordOf(request).name, "reboots");
      ZOR_MLOG_MSG answer = {request.type, each.length, {}};
      strcpy(answer.data + ZOR_MLOG_STAT_TEXT_SIZE, "answered");
      return answer;
    });
    char value[16] = "before";
    EXPECT_EQ(get_mlog_stat_info("reboots", value, each.size), 0);
    EXPECT_STREQ(value, each.expected) << each.size << " " << each.length;
  }
}

TEST(MlogStat, NoAnswerIsNoErrorButNoDaemonIs) {
  const TempRoot root;
  char value[16] = "before";
  EXPECT_EQ(get_mlog_stat_info("x", value, sizeof value), -1);
  EXPECT_EQ(set_mlog_stat_info("x", "y"), -1);
  EXPECT_EQ(inform_mlogger_power_off(), -1);
  LogSocket silent;
  EXPECT_EQ(get_mlog_stat_info("x", value, 0), -1);
  EXPECT_EQ(get_mlog_stat_info("x", value, sizeof value), 0);
  EXPECT_STREQ(value, "before");
  EXPECT_EQ(silent.Next().type, ZOR_MLOG_GET_STAT);
  EXPECT_EQ(inform_mlogger_power_off(), 0);
  const ZOR_MLOG_MSG msg = silent.Next();
  EXPECT_EQ(msg.type, ZOR_MLOG_POWER_OFF);
  EXPECT_EQ(msg.length, 0u);
  EXPECT_EQ(silent.sender(), "/var/mlog/FLUSH_" + std::to_string(::getpid()));
}

}  // namespace
