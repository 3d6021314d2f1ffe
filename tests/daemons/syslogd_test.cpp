#include <zor/log.h>
#include <zor/msg.h>

#include <cstring>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <tuple>

#include "daemons/bus_daemon_fixture.h"
#include "programs/format_time.h"
#include "support/wire_client.h"

namespace zor::test {
namespace {

using namespace std::string_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr char kResult[] = "/var/syslog/result";
constexpr uint32_t kUpgrade = 0x1A000000;   // 0x220, one parameter
constexpr uint32_t kReboot = 0x1E080001;    // 0x220, its sender waits
constexpr uint32_t kBadImage = 0x1A000026;  // 0x810, one parameter

class Syslogd : public BusDaemonTest {
 protected:
  Syslogd() : BusDaemonTest(SYSLOGD_PROGRAM) { EXPECT_EQ(ZOR_MSG_Init("tester"), ZOR_OK); }
  ~Syslogd() override { ZOR_MSG_Destroy(); }

  void Restart(int signal) {
    Stop(signal);
    Start();
  }
  // The result of a query for that many records; checks that the count matches the lines.
  std::string Query(uint32_t type, uint32_t level, uint32_t language = 0, uint32_t count = 0) {
    uint32_t found = ~0u;
    EXPECT_EQ(ZOR_LOG_API_Query_Items(kResult, count, type, level, language, &found), ZOR_OK);
    return Result(found);
  }
  std::string Everything() {
    uint32_t found = ~0u;
    EXPECT_EQ(ZOR_LOG_API_System_Query_Items(kResult, 0, &found), ZOR_OK);
    return Result(found);
  }

 private:
  std::string Result(uint32_t found) {
    const std::string text = ContentOf(root_.Path(kResult));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), found);
    return text;
  }
};

TEST_F(Syslogd, KeepsWhatPassesItsFilterAndClearsByType) {
  Start("language = 1\n");
  ZOR_LOG_API_Set_TypeLevel_Filter(ZOR_LOG_USER | ZOR_LOG_KERNEL, ZOR_LOG_NOTICE | ZOR_LOG_WARNING);
  ZOR_LOG_API_Record_Log(kUpgrade, "kept", nullptr);
  ZOR_LOG_API_Record_Log(kBadImage, "of another type", nullptr);
  ZOR_LOG_API_Record_KLog(ZOR_LOG_KERNEL, ZOR_LOG_ERROR, 0, "of another level");
  EXPECT_THAT(Everything(), MatchesRegex(".*用户kept开始升级\n")) << "in the daemon's language";
  ZOR_LOG_API_Flush_Log_Async(__LINE__, "test");
  Restart(SIGTERM);
  ZOR_LOG_API_Record_KLog(ZOR_LOG_KERNEL, ZOR_LOG_ERROR, 0, "of another level");
  ZOR_LOG_API_Record_KLog(ZOR_LOG_KERNEL, ZOR_LOG_WARNING, 0, "kernel");
  EXPECT_EQ(Query(ZOR_LOG_KERNEL, ZOR_LOG_NOTICE), "");
  EXPECT_THAT(Query(ZOR_LOG_KERNEL, ZOR_LOG_WARNING), HasSubstr("] kernel\n")) << "the filter outlives the daemon";
  ZOR_LOG_API_Clear_Log_By_Type(ZOR_LOG_USER);
  EXPECT_THAT(Everything(), MatchesRegex("[^\n]*kernel\n"));
}

TEST_F(Syslogd, HasRecordsOnDiskWhenTheirSenderOrAFlushSaysSo) {
  Start("flush_seconds = 3600\n");
  EXPECT_EQ(ZOR_LOG_API_Record_Log(kReboot, "waiting", nullptr), ZOR_OK);
  Restart(SIGKILL);
  EXPECT_THAT(Everything(), HasSubstr("User waiting reboot the device\n"));
  ZOR_LOG_API_Record_Log(kUpgrade, "flushed", nullptr);
  EXPECT_EQ(ZOR_LOG_API_Flush_Log(__LINE__, "test"), ZOR_OK);
  Restart(SIGKILL);
  EXPECT_THAT(Everything(), HasSubstr("User flushed upgrading"));
  ZOR_LOG_API_Record_Log(kUpgrade, "late", nullptr);
  EXPECT_THAT(Everything(), HasSubstr("User late upgrading"));
  Restart(SIGTERM);
  EXPECT_THAT(Everything(), HasSubstr("User late upgrading")) << "the end of the daemon is a flush too";
}

TEST_F(Syslogd, ForwardsToRemoteServers) {
  Start();
  const UdpReceiver first;
  const UdpReceiver second;
  ZOR_LOG_API_Set_RtoServer("my gateway", "127.0.0.1", first.port(), "127.0.0.1", second.port(), 0);
  ZOR_LOG_API_Record_Log(kBadImage, "admin", nullptr);
  for (const UdpReceiver *server : {&first, &second}) {
    EXPECT_THAT(server->Next(), MatchesRegex("<28>1 20[0-9-]{8}T[0-9:]{8}Z my_gateway upg - 1A000026 - User admin "
                                             "upgrading download image failed"));
  }
  Restart(SIGTERM);
  ZOR_LOG_API_Record_KLog(ZOR_LOG_KERNEL, ZOR_LOG_EMERGENCY, 0, "panic");
  EXPECT_THAT(first.Next(), MatchesRegex("<0>1 .*Z my_gateway kernel - - - panic"))
      << "the setting outlives the daemon";
  ZOR_LOG_API_Set_RtoServer("", "log.example", 0, "", 0, 0);
  ZOR_LOG_API_Record_Log(kUpgrade, "admin", nullptr);
  EXPECT_THAT(Everything(), HasSubstr("admin"));
  EXPECT_THAT(errors_.Text(), HasSubstr("remote server \"log.example\": invalid address"));
}

TEST_F(Syslogd, SendsCopiesOfWhatItKeepsToADaemon) {
  Start("copy_to = copies\nlanguage = 1\n");
  ZOR_LOG_API_Record_Log(kUpgrade, "nobody", nullptr);
  EXPECT_THAT(Everything(), HasSubstr("nobody")) << "an absent daemon changes nothing";
  const WireClient copies = WireClient::Connect(root_.Path("/var/msgsvr"));
  copies.Register("copies");
  ZOR_LOG_API_Set_TypeLevel_Filter(ZOR_LOG_USER, ZOR_LOG_NOTICE);
  ZOR_LOG_API_Record_Log(kBadImage, "filtered out", nullptr);
  ZOR_LOG_API_Record_Log(kUpgrade, "kept", nullptr);
  const auto copy = copies.Next();
  ZOR_LOG_COPY head;
  ASSERT_GT(copy.body.size(), sizeof head);
  std::memcpy(&head, copy.body.data(), sizeof head);
  EXPECT_EQ(copy.header.type, ZOR_LOG_MSG_COPY);
  EXPECT_EQ(std::make_tuple(head.typeLevel, head.index), std::make_tuple(0x220u, kUpgrade));
  EXPECT_EQ(copy.body.substr(sizeof head), "用户kept开始升级" + std::string(1, '\0'));
  EXPECT_THAT(Everything(), HasSubstr(daemon::FormatTime(static_cast<std::time_t>(head.time), "%F %T", ::localtime_r)));
  EXPECT_EQ(errors_.Text(), "");
  for (const char *name : {"syslog", "twelve chars", "a b"}) {
    EXPECT_EQ(Run("copy_to = "s + name + "\n").Wait(), 3) << name;
  }
}

TEST_F(Syslogd, RefusesWhatMakesNoSense) {
  Start();
  std::ofstream(root_.Path("/var/precious")) << "precious";
  std::filesystem::create_symlink("../precious", root_.Path("/var/syslog/link"));
  for (const char *path : {"/var/precious", "/var/syslog/../precious", "/var/syslog/..", "/var/syslog/", "result", "",
                           "/var/syslog/link", "/var/syslogresult"}) {
    uint32_t found = 0;
    EXPECT_EQ(ZOR_LOG_API_System_Query_Items(path, 0, &found), ZOR_OK);
    EXPECT_EQ(found, 0xffffffff) << path;
  }
  EXPECT_EQ(std::filesystem::file_size(root_.Path("/var/precious")), 8u);
  const WireClient raw = WireClient::Connect(root_.Path("/var/msgsvr"));
  raw.Register("raw");
  for (const size_t size : {75u, 76u}) {  // too short, and a path without its NUL
    EXPECT_EQ(raw.Ask(MakeMessage(ZOR_LOG_MSG_QUERY, "", "syslog", 0, std::string(size, '/'))).header.data, 0xffffffff);
  }

  const std::pair<uint32_t, ZOR_LOG_RECORD> records[] = {
      {ZOR_LOG_MSG_RECORD, {0, 0, 0, 0x1A000001, 0, 0, ""}},
      {ZOR_LOG_MSG_RECORD, {0, 0, 0, kUpgrade, 2, 4, "a"}},
      {ZOR_LOG_MSG_RECORD, {0, 0, 0, kUpgrade, 1, 0, "a"}},
      {ZOR_LOG_MSG_RECORD, {0, 0, 0, kUpgrade, 1, 257, "a"}},
      {ZOR_LOG_MSG_RECORD, {0, 0, 0, kUpgrade, 0xffff, 0xffff, "a"}},
      {ZOR_LOG_MSG_RECORD, {0, 0x220, 0, ZOR_LOG_KERNEL_INDEX, 1, 4, "a"}},
      {ZOR_LOG_MSG_RECORD_KERNEL, {0, 0x220, 0, kUpgrade, 1, 4, "a"}},
      {ZOR_LOG_MSG_RECORD_KERNEL, {0, 0x20, 0, ZOR_LOG_KERNEL_INDEX, 1, 4, "a"}},
      {ZOR_LOG_MSG_RECORD, {0, 0, 0, kReboot, 9, 4, "a"}},  // the only one whose sender waits
  };
  for (const auto &[type, record] : records) {
    const std::string bytes(reinterpret_cast<const char *>(&record), sizeof record);
    for (const size_t size : {size_t{0}, bytes.size() - 1, bytes.size()}) {
      raw.Send(MakeMessage(type, "", "syslog", 0, bytes.substr(0, size)));
    }
  }
  EXPECT_EQ(raw.Next().header.data, 1u);
  raw.Send(MakeMessage(ZOR_LOG_MSG_SET_SERVER, "", "syslog", 0, "short"));
  EXPECT_EQ(Everything(), "");
}

TEST_F(Syslogd, SetsADamagedFileAside) {
  std::filesystem::create_directories(root_.Path("/online/log"));
  std::ofstream(root_.Path("/online/log/syslog.db")) << std::string(4096, 'x');
  Start();
  EXPECT_THAT(errors_.Text(), HasSubstr("set aside as"));
  EXPECT_TRUE(std::filesystem::exists(root_.Path("/online/log/syslog.db.damaged")));
  ZOR_LOG_API_Record_Log(kUpgrade, "admin", nullptr);
  EXPECT_THAT(Everything(), HasSubstr("admin"));
}

TEST_F(Syslogd, JoinsTheBusAgainWhenTheServerWasKilled) {
  Start();
  ZOR_LOG_API_Record_Log(kUpgrade, "before", nullptr);
  EXPECT_THAT(Everything(), HasSubstr("before"));
  RestartServer();
  ZOR_MSG_Destroy();
  ASSERT_EQ(ZOR_MSG_Init("tester"), ZOR_OK);
  ZOR_LOG_API_Record_Log(kUpgrade, "after", nullptr);
  EXPECT_THAT(Everything(), AllOf(HasSubstr("before"), HasSubstr("after")));
  ExpectExitStatusThatSaysWhyItEnds();
}

}  // namespace
}  // namespace zor::test
