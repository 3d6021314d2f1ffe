// The server as a program: how it starts, what it says and how it ends.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "common/exit_code.h"
#include "msgsvr_fixture.h"

namespace zor::test {
namespace {

namespace fs = std::filesystem;

TEST_F(MsgsvrTest, StopsCleanlyOnSigterm) {
  StartOwn("");
  if (IsSkipped()) return;
  const WireClient client = Client("client");
  server_->Signal(SIGTERM);
  EXPECT_EQ(server_->Wait(), daemon::kExitOk);
  EXPECT_TRUE(client.ClosedByOther());
  EXPECT_FALSE(fs::exists(root_.Path("/var/msgsvr")));
  EXPECT_EQ(LogText(), "") << "log lines only when something is wrong";
}

TEST_F(MsgsvrTest, MakesTheDirectoriesThatItNeeds) {
  fs::remove_all(root_.Path("/var"));
  StartOwn("");
  if (IsSkipped()) return;
  struct stat status = {};
  ASSERT_EQ(::stat(root_.Path("/var/run/msg").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0007, 0u) << "no business of other users";
}

TEST_F(MsgsvrTest, LeavesTheSocketToALivingServerAndReplacesThatOfADeadOne) {
  StartOwn("");
  if (IsSkipped()) return;
  EXPECT_EQ(Child::Program({MSGSVR_PROGRAM}).Wait(), daemon::kExitBusy);
  Settle(Client("client"));
  server_->Signal(SIGKILL);
  server_->Wait();
  Child second = Child::Program({MSGSVR_PROGRAM});
  EXPECT_TRUE(second.WaitForOutput("listening on"));
  Settle(Client("client"));
}

TEST_F(MsgsvrTest, RefusesSettingsThatHoldAMistake) {
  for (const char *line : {"queue_bytes = many", "route.0x100000 = cms", "route.9-5 = cms", "route.1 = a_name_too_long",
                           "trace.web = msg:debug", "trace.web = msg=loud", "report.web = often", "nonsense = 1",
                           "trace_output.web = a text that is far too long for its field"}) {
    fs::create_directories(root_.Path("/etc/zor"));
    std::ofstream(root_.Path("/etc/zor/msgsvr.conf")) << line << '\n';
    Capture log(2);
    EXPECT_EQ(Child::Program({MSGSVR_PROGRAM}).Wait(), daemon::kExitSettings) << line;
    EXPECT_NE(log.Text(), "") << line;
  }
}

TEST_F(MsgsvrTest, ServesDaemonsOfOtherBoardsOverTcp) {
  StartOwn("tcp = 127.0.0.1:0\n");
  if (IsSkipped()) return;
  const std::string announced = "msgsvr: listening on 127.0.0.1:";
  ASSERT_TRUE(server_->WaitForOutput(announced));
  ASSERT_TRUE(server_->WaitForOutput("\n"));
  const size_t at = server_->output().find(announced) + announced.size();
  const WireClient remote = WireClient::ConnectTcp(static_cast<uint16_t>(std::stoi(server_->output().substr(at))));
  EXPECT_EQ(NameOf(remote.Register("remote").header.destination), "remote");
  const WireClient local = Client("local");
  local.Send(MakeMessage(kType, "", "remote", 1));
  EXPECT_EQ(NameOf(remote.Next().header.source), "local");
  remote.Send(MakeMessage(kType, "", "local", 2));
  EXPECT_EQ(local.Next().header.data, 2u);

  // Files stay on their board: refused from there, and not sent there.
  const std::string path = MakeMessageFile("msg_file_1", "content");
  EXPECT_TRUE(IsNotice(remote.Ask(MakeFileMessage(kType, "local", path)), kType));
  EXPECT_TRUE(fs::exists(RealPath(path)));
  EXPECT_TRUE(IsNotice(local.Ask(MakeFileMessage(kType, "remote", path)), kType));
  EXPECT_FALSE(fs::exists(RealPath(path)));
}

}  // namespace
}  // namespace zor::test
