#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zor/log.h>
#include <zor/msg.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include "support/capture.h"
#include "support/child.h"
#include "support/scripted_server.h"
#include "support/temp_root.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using zor::test::Child;

constexpr char kResult[] = "/var/syslog/result";
constexpr char kReady[] = "syslogd: on the bus as syslog\n";
constexpr uint32_t kUpgrade = 0x1A000000;   // 0x220, one parameter
constexpr uint32_t kReboot = 0x1E080001;    // 0x220, its sender waits
constexpr uint32_t kBadImage = 0x1A000026;  // 0x810, one parameter
constexpr uint32_t kAllTypes = 0xffffff;
constexpr uint32_t kAllLevels = 0xff;
char *const kEnd = nullptr;

// A datagram socket on the loopback address.
class UdpServer {
 public:
  UdpServer() : fd_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const timeval patience = {10, 0};
    ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    EXPECT_EQ(::bind(fd_, reinterpret_cast<sockaddr *>(&address), length), 0);
    EXPECT_EQ(::getsockname(fd_, reinterpret_cast<sockaddr *>(&address), &length), 0);
    port_ = ::ntohs(address.sin_port);
  }
  ~UdpServer() { ::close(fd_); }

  uint16_t port() const { return port_; }
  std::string Next() const {
    char text[2048];
    const ssize_t size = ::recv(fd_, text, sizeof text, 0);
    return size < 0 ? "(nothing came)" : std::string(text, static_cast<size_t>(size));
  }

 private:
  int fd_;
  uint16_t port_ = 0;
};

class Syslogd : public testing::Test {
 protected:
  Syslogd() : server_(Child::Program({MSGSVR_PROGRAM})) {
    EXPECT_TRUE(server_.WaitForOutput("listening"));
    EXPECT_EQ(ZOR_MSG_Init("tester"), ZOR_OK);
  }
  ~Syslogd() override { ZOR_MSG_Destroy(); }

  Child Run(const std::string &settings = "") {
    std::ofstream(root_.Path("/settings")) << settings;
    return Child::Program({SYSLOGD_PROGRAM, "--settings", root_.Path("/settings")});
  }
  void Start(const std::string &settings = "") {
    daemon_.emplace(Run(settings));
    ASSERT_TRUE(daemon_->WaitForOutput(kReady)) << errors_.Text();
  }
  void Restart(int signal) {
    daemon_->Signal(signal);
    daemon_->Wait();
    Start();
  }
  // What the query of that many records gives; checks that the count is that of the lines.
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
  // Sends a request that answers and returns the answer's data word.
  uint32_t Ask(uint32_t type, const std::string &body) {
    void *block = ZOR_MSG_GetMsgBlock(static_cast<uint32_t>(body.size()));
    std::memcpy(block, body.data(), body.size());
    ZOR_MSG_SetMsgProfile(block, "syslog", type, static_cast<uint32_t>(body.size()));
    const std::unique_ptr<ZOR_MSG_HEAD, decltype(&std::free)> request(ZOR_MSG_GetMsgHead(block), &std::free);
    ZOR_MSG_HEAD *received = nullptr;
    EXPECT_EQ(ZOR_MSG_SendAndRecv(request.get(), &received, 10000), ZOR_OK);
    const std::unique_ptr<ZOR_MSG_HEAD, decltype(&std::free)> answer(received, &std::free);
    return answer == nullptr ? 12345 : answer->data;
  }

  zor::test::TempRoot root_;
  zor::test::Capture errors_{STDERR_FILENO};
  Child server_;
  std::optional<Child> daemon_;

 private:
  std::string Result(uint32_t found) {
    std::ifstream stream(root_.Path(kResult), std::ios::binary);
    const std::string text = {std::istreambuf_iterator<char>(stream), {}};
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), found);
    return text;
  }
};

TEST_F(Syslogd, RendersRecordsInEitherLanguage) {
  Start();
  ZOR_LOG_API_Record_Log(0x05000001, "admin", "10.0.0.2", kEnd);
  ZOR_LOG_API_Record_Log(0xAC000016, "", "line\nbreak", kEnd);
  ZOR_LOG_API_Record_Log(0x05000001, "alone", kEnd);
  ZOR_LOG_API_Record_KLog(ZOR_LOG_DAD, ZOR_LOG_DEBUG, 0, "duplicate $0");
  ZOR_LOG_API_Record_KLog(ZOR_LOG_KERNEL, ZOR_LOG_ERROR, 0, std::string(256, 'k').c_str());
  EXPECT_THAT(Query(kAllTypes, kAllLevels),
              MatchesRegex("20[0-9-]{8} [0-9:]{8} \\[User\\]\\[Notice\\] User admin from 10.0.0.2 login failure\n"
                           "[0-9: -]{20}\\[User\\]\\[Notice\\] User  Modify line break ACL rule\n"
                           "[0-9: -]{20}\\[User\\]\\[Notice\\] User alone from  login failure\n"
                           "[0-9: -]{20}\\[DAD\\]\\[Debug\\] duplicate \\$0\n"
                           "[0-9: -]{20}\\[Kernel\\]\\[Error\\] k{256}\n"));
  EXPECT_THAT(Query(ZOR_LOG_USER | ZOR_LOG_DAD, kAllLevels, 1, 3),
              MatchesRegex("[0-9: -]{20}\\[用户操作\\]\\[提示\\] 用户  修改 line break 访问控制规则\n"
                           "[0-9: -]{20}\\[用户操作\\]\\[提示\\] 用户alone从登录失败\n"
                           "[0-9: -]{20}\\[DAD\\]\\[调试\\] duplicate \\$0\n"));
}

TEST_F(Syslogd, KeepsWhatPassesItsFilterAndClearsByType) {
  Start("language = 1\n");
  ZOR_LOG_API_Set_TypeLevel_Filter(ZOR_LOG_USER | ZOR_LOG_KERNEL, ZOR_LOG_NOTICE | ZOR_LOG_WARNING);
  ZOR_LOG_API_Record_Log(kUpgrade, "kept", kEnd);
  ZOR_LOG_API_Record_Log(kBadImage, "of another type", kEnd);
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
  EXPECT_EQ(ZOR_LOG_API_Record_Log(kReboot, "waiting", kEnd), ZOR_OK);
  Restart(SIGKILL);
  EXPECT_THAT(Everything(), HasSubstr("User waiting reboot the device\n"));
  ZOR_LOG_API_Record_Log(kUpgrade, "flushed", kEnd);
  EXPECT_EQ(ZOR_LOG_API_Flush_Log(__LINE__, "test"), ZOR_OK);
  Restart(SIGKILL);
  EXPECT_THAT(Everything(), HasSubstr("User flushed upgrading"));
  ZOR_LOG_API_Record_Log(kUpgrade, "late", kEnd);
  EXPECT_THAT(Everything(), HasSubstr("User late upgrading"));
  Restart(SIGTERM);
  EXPECT_THAT(Everything(), HasSubstr("User late upgrading")) << "the end of the daemon is a flush too";
}

TEST_F(Syslogd, KeepsTheNewestRecordsUpToItsLimit) {
  Start("max_records = 3\n");
  for (const char *user : {"a", "b", "c", "d", "e"}) ZOR_LOG_API_Record_Log(kUpgrade, user, kEnd);
  EXPECT_EQ(ZOR_LOG_API_Flush_Log(__LINE__, "test"), ZOR_OK);
  EXPECT_THAT(Everything(), MatchesRegex(".* c up.*\n.* d up.*\n.* e up.*\n"));
}

TEST_F(Syslogd, ForwardsToRemoteServers) {
  Start();
  const UdpServer first;
  const UdpServer second;
  ZOR_LOG_API_Set_RtoServer("my gateway", "127.0.0.1", first.port(), "127.0.0.1", second.port(), 0);
  ZOR_LOG_API_Record_Log(kBadImage, "admin", kEnd);
  for (const UdpServer *server : {&first, &second}) {
    EXPECT_THAT(server->Next(), MatchesRegex("<28>1 20[0-9-]{8}T[0-9:]{8}Z my_gateway upg - 1A000026 - User admin "
                                             "upgrading download image failed"));
  }
  Restart(SIGTERM);
  ZOR_LOG_API_Record_KLog(ZOR_LOG_KERNEL, ZOR_LOG_EMERGENCY, 0, "panic");
  EXPECT_THAT(first.Next(), MatchesRegex("<0>1 .*Z my_gateway kernel - - - panic"))
      << "the setting outlives the daemon";
  ZOR_LOG_API_Set_RtoServer("", "log.example", 0, "", 0, 0);
  ZOR_LOG_API_Record_Log(kUpgrade, "admin", kEnd);
  EXPECT_THAT(Everything(), HasSubstr("admin"));
  EXPECT_THAT(errors_.Text(), HasSubstr("the remote server \"log.example\" is no address"));
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
  EXPECT_EQ(Ask(ZOR_LOG_MSG_QUERY, std::string(75, '/')), 0xffffffff);
  EXPECT_EQ(Ask(ZOR_LOG_MSG_QUERY, std::string(76, '/')), 0xffffffff) << "a path without an end";

  const struct {
    uint32_t type;
    ZOR_LOG_RECORD record;
  } records[] = {
      {ZOR_LOG_MSG_RECORD, {0, 0, 0, 0x1A000001, 0, 0, ""}},
      {ZOR_LOG_MSG_RECORD, {0, 0, 0, kUpgrade, 2, 4, "a"}},
      {ZOR_LOG_MSG_RECORD, {0, 0, 0, kUpgrade, 1, 0, "a"}},
      {ZOR_LOG_MSG_RECORD, {0, 0, 0, kUpgrade, 1, 257, "a"}},
      {ZOR_LOG_MSG_RECORD, {0, 0, 0, kUpgrade, 0xffff, 0xffff, "a"}},
      {ZOR_LOG_MSG_RECORD, {0, 0x220, 0, ZOR_LOG_KERNEL_INDEX, 1, 4, "a"}},
      {ZOR_LOG_MSG_RECORD_KERNEL, {0, 0x220, 0, kUpgrade, 1, 4, "a"}},
      {ZOR_LOG_MSG_RECORD_KERNEL, {0, 0x20, 0, ZOR_LOG_KERNEL_INDEX, 1, 4, "a"}},
  };
  for (const auto &each : records) ZOR_MSG_SendMsgData("syslog", each.type, &each.record, sizeof each.record);
  for (const uint32_t type : {ZOR_LOG_MSG_RECORD, ZOR_LOG_MSG_RECORD_KERNEL, ZOR_LOG_MSG_SET_SERVER}) {
    ZOR_MSG_SendMsgData("syslog", type, records, 275);
    ZOR_MSG_SendSimpleMsg("syslog", type, 0);
  }
  const ZOR_LOG_RECORD awaited = {0, 0, 0, kReboot, 9, 4, "a"};
  EXPECT_EQ(Ask(ZOR_LOG_MSG_RECORD, {reinterpret_cast<const char *>(&awaited), sizeof awaited}), 1u);
  EXPECT_EQ(Everything(), "");
}

TEST_F(Syslogd, SetsADamagedFileAside) {
  std::filesystem::create_directories(root_.Path("/online/log"));
  std::ofstream(root_.Path("/online/log/syslog.db")) << std::string(4096, 'x');
  Start();
  EXPECT_THAT(errors_.Text(), HasSubstr("set aside as"));
  EXPECT_TRUE(std::filesystem::exists(root_.Path("/online/log/syslog.db.damaged")));
  ZOR_LOG_API_Record_Log(kUpgrade, "admin", kEnd);
  EXPECT_THAT(Everything(), HasSubstr("admin"));
}

TEST_F(Syslogd, ItsExitStatusSaysWhyItDoesNotRun) {
  EXPECT_EQ(Run("max_records = 0\nquery_directory = here\n").Wait(), 3);
  EXPECT_EQ(Run("log_file = /settings/below/a/file\n").Wait(), 1);
  Start();
  daemon_->Signal(SIGTERM);
  EXPECT_EQ(daemon_->Wait(), 0);
  Start();
  server_.Signal(SIGTERM);
  EXPECT_EQ(daemon_->Wait(), 1);
  EXPECT_THAT(errors_.Text(), HasSubstr("the message server has gone"));
  EXPECT_EQ(Run().Wait(), 1) << "without a message server";
}

}  // namespace
