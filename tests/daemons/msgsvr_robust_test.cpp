// Hostile, broken and stopped clients, and the server as a program.
#include <sys/socket.h>
#include <sys/stat.h>

#include <random>

#include "msgsvr_fixture.h"
#include "programs/exit_code.h"

namespace zor::test {
namespace {

const std::string kKilobyte(1000, 'x');

// Fills the socket and the queue of a client that does not read, until the server disconnects it.
void FloodUntilGone(const WireClient &sender, const std::string &destination) {
  Message reply;
  do {
    for (int i = 0; i < 50; ++i) sender.Send(MakeMessage(kType, "", destination, 0, kKilobyte));
    sender.Send(MakeCount(destination));
    do reply = sender.Next();
    while (IsNotice(reply, kType));
  } while (reply.header.type == ZOR_MSG_GET_PROCESS_NUM && reply.header.data > 0);
}

// A few frames with known types and small lengths but random content, followed by random bytes.
std::string Garbage(std::mt19937 &random) {
  constexpr uint32_t kTypes[] = {0x701,  0x702,  0x703,   0x705,   0x706,   0x708,   0x109,   0x10A,   0x10D,
                                 0x5018, 0x5019, 0x2DA05, 0xFF000, 0xFF001, 0xFF002, 0xFF003, 0xFF004, 0xFF005};
  const auto word = [&](uint32_t below) { return static_cast<uint32_t>(random()) % below; };
  const auto noise = [&](uint32_t below) {
    std::string bytes(word(below), '\0');
    for (char &byte : bytes) byte = static_cast<char>(word(256));
    return bytes;
  };
  std::string bytes;
  for (uint32_t frames = word(10); frames > 0; --frames) {
    const uint32_t type = kTypes[word(std::size(kTypes))] | (word(8) == 0 ? ZOR_MSG_BODY_IN_FILE : 0);
    bytes += MakeMessage(type, "fuzz", word(2) == 0 ? "" : "sender", word(0x30000), noise(300)).Bytes();
  }
  return bytes + noise(1000);
}

TEST_F(MsgsvrTest, EndsAClientWithAMalformedFrameAndNoOther) {
  for (const uint32_t length : {0u, 2049u, 0x200001u, 0x8000001u, 0xffffffffu}) {
    const WireClient client = Client("bad");
    Message message = MakeMessage(kType, "", length == 0 ? "twelve_chars" : "receiver");
    message.header.bodyLength = length;
    client.Send(message);
    EXPECT_TRUE(client.ClosedByOther()) << length;
  }
  sender_.Send(MakeMessage(kType, "", "receiver", 0, std::string(2048, 'x')));
  EXPECT_EQ(receiver_.Next().body.size(), 2048u);
}

TEST_F(MsgsvrTest, SurvivesGarbageWhileHonestDaemonsTalk) {
  std::mt19937 random(12345);
  for (uint32_t round = 0; round < 300; ++round) {
    const WireClient client = Connect();
    if (round % 3 != 0) client.Register("fuzz");
    client.Send(Garbage(random));
    sender_.Send(MakeMessage(kType, "", "receiver", round));
    ASSERT_EQ(receiver_.Next().header.data, round);
    receiver_.Send(MakeMessage(kType + 1, "", "sender", round));
    Message reply;
    do reply = sender_.Next();
    while (reply.header.type != kType + 1 && reply.header.type != 0);
    ASSERT_EQ(reply.header.data, round);
  }
}

TEST_F(OwnMsgsvrTest, CutsOffAReaderThatHasStoppedWhereTheSettingsSaySo) {
  Start("queue_bytes = 100000\nslow_reader = cut_off\n");
  const WireClient stopped = Client("stopped");
  const WireClient flooder = Client("flooder");
  Child traffic = Child::Function([&] {
    for (int i = 0; i < 2000; ++i) {
      sender_.Send(MakeMessage(kType, "", "receiver"));
      if (!receiver_.ReceiveMessage()) return 1;
    }
    return 0;
  });
  // More than fits the socket, so that the file waits in the queue.
  for (int i = 0; i < 300; ++i) flooder.Send(MakeMessage(kType, "", "stopped", 0, kKilobyte));
  const std::string path = MakeFile();
  flooder.Send(MakeFileMessage(kType, "stopped", path));
  FloodUntilGone(flooder, "stopped");
  EXPECT_FALSE(Exists(path));
  EXPECT_EQ(traffic.Wait(), 0) << "others go on meanwhile";
  EXPECT_TRUE(LogHolds("msgsvr: stopped (pid " + std::to_string(::getpid()) + ") cut off: its output queue is full, "));
  EXPECT_TRUE(LogHolds(" messages lost\n"));
}

TEST_F(OwnMsgsvrTest, TellsADaemonItsSettingsAndSaysWhenItStopsReporting) {
  Start(
      "report.* = 60\nreport.web = 1\ntrace_output.web = file\ntrace_file_kib.web = 4096\n"
      "trace.web = msg=debug all=info loop=3\ntrace_output.* = 10.0.0.1:5000\n");
  struct Settings {
    ZOR_MSG_REGISTER_REPLY reply;
    ZOR_TRACE_SETTINGS_HEAD head;
    ZOR_TRACE_SETTINGS_ENTRY entries[3];
  };
  // "all" comes first, since it makes a daemon drop the others.
  const Settings web = {{1, 1}, {1, 0, 4096, ""}, {{0, "all", 8}, {0, "msg", 16}, {0, "loop", 3}}};
  const Settings other = {{1, 60}, {0, 0, 1024, "10.0.0.1:5000"}, {}};
  const auto bytes = [](const Settings &settings, size_t entries) {
    return std::string(reinterpret_cast<const char *>(&settings), 56 + 20 * entries);
  };
  const WireClient client = Connect();
  EXPECT_EQ(client.Register("web").body, bytes(web, 3));
  EXPECT_EQ(Connect().Register("other").body, bytes(other, 0));
  EXPECT_TRUE(LogHolds("web (pid " + std::to_string(::getpid()) + "): no report for 3 periods of 1 s"));
  EXPECT_EQ(log_.Text().find("sender"), std::string::npos);
}

TEST_F(OwnMsgsvrTest, ListensWhereALinkAtItsPathLeads) {
  const std::filesystem::path place = root_.Path("/place");
  std::filesystem::create_directory(place);
  std::filesystem::create_symlink("../place/socket", root_.Path(ZOR_PATH_MSGSVR));
  Start();
  EXPECT_TRUE(std::filesystem::is_socket(place / "socket"));
  EXPECT_TRUE(std::filesystem::exists(place / "socket.lock"));
  server_->Signal(SIGTERM);
  EXPECT_EQ(server_->Wait(), 0);
  EXPECT_FALSE(std::filesystem::exists(place / "socket"));
  EXPECT_TRUE(std::filesystem::is_symlink(root_.Path(ZOR_PATH_MSGSVR)));
  server_.reset();
}

TEST_F(OwnMsgsvrTest, ServesDaemonsOfOtherBoardsOverTcp) {
  Start("tcp = 127.0.0.1:0\n");
  const std::string announced = "msgsvr: listening on 127.0.0.1:";
  ASSERT_TRUE(server_->WaitForOutput(announced));
  ASSERT_TRUE(server_->WaitForOutput("\n"));
  const size_t at = server_->output().find(announced) + announced.size();
  const WireClient remote = WireClient::ConnectTcp(static_cast<uint16_t>(std::stoi(server_->output().substr(at))));
  EXPECT_EQ(NameOf(remote.Register("remote").header.destination), "remote");
  sender_.Send(MakeMessage(kType, "", "remote", 1));
  EXPECT_EQ(NameOf(remote.Next().header.source), "sender");
  remote.Send(MakeMessage(kType, "", "receiver", 2));
  EXPECT_EQ(receiver_.Next().header.data, 2u);
  // Files stay on their board: the server neither accepts them from another board nor sends them there.
  const std::string path = MakeFile();
  EXPECT_TRUE(IsNotice(remote.Ask(MakeFileMessage(kType, "receiver", path)), kType));
  EXPECT_TRUE(Exists(path));
  EXPECT_TRUE(IsNotice(sender_.Ask(MakeFileMessage(kType, "remote", path)), kType));
  EXPECT_FALSE(Exists(path));
}

}  // namespace
}  // namespace zor::test
