// Hostile, broken and stopped clients, and the server as a program.
#include <linux/filter.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <random>
#include <set>

#include "common/unique_fd.h"
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

// The end of what it sends to itself is refused when the request behind it is served.
TEST_F(OwnMsgsvrTest, ForgetsAClientThatItCutsOffInTheMiddleOfARequest) {
  Start("queue_bytes = 100000\nslow_reader = cut_off\n");
  for (const Message &request :
       {MakeRequest(ZOR_MSG_SYNC_WAIT, "barrier"), MakeMessage(ZOR_MSG_REGISTER_APP, "itself", "")}) {
    const WireClient client = Client("itself");
    const std::string burst = MakeMessage(kType, "", "itself", 0, kKilobyte).Bytes() + request.Bytes();
    for (int i = 0; i < 2000; ++i) client.Send(burst);
    AwaitCount(sender_, "itself", 0);
    Tell(sender_, MakeRequest(ZOR_MSG_SYNC_POST, "barrier"));
    EXPECT_TRUE(IsNotice(sender_.Ask(MakeMessage(kType, "", "itself")), kType));
  }
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

std::string DirectoryOf(pid_t process, const char *name) {
  return "/proc/" + std::to_string(process) + "/" + name;
}

std::set<int> DescriptorsOf(pid_t process) {
  std::set<int> descriptors;
  for (const auto &each : std::filesystem::directory_iterator(DirectoryOf(process, "fd"))) {
    descriptors.insert(std::stoi(each.path().filename()));
  }
  return descriptors;
}

// A duplicate of a descriptor of the process; invalid where the system gives none.
UniqueFd DuplicateOf(pid_t process, int descriptor) {
  const UniqueFd handle(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
  return UniqueFd(static_cast<int>(::syscall(SYS_pidfd_getfd, handle.get(), descriptor, 0)));
}

// Whether the process waits for events of the socket.
bool Watches(pid_t process, const UniqueFd &socket) {
  struct stat status = {};
  ::fstat(socket.get(), &status);
  std::array<char, 32> mark;
  std::snprintf(mark.data(), mark.size(), " ino:%llx ", static_cast<unsigned long long>(status.st_ino));
  const std::filesystem::directory_iterator watched(DirectoryOf(process, "fdinfo"));
  return std::any_of(begin(watched), end(watched),
                     [&](const auto &each) { return ContentOf(each.path()).find(mark.data()) != std::string::npos; });
}

// As a program does that the server has just started.
TEST_F(OwnMsgsvrTest, ForgetsAClientWhoseSocketAnotherProcessHolds) {
  Start();
  const std::set<int> before = DescriptorsOf(server_->pid());
  WireClient client = Client("held");
  UniqueFd held;
  for (const int each : DescriptorsOf(server_->pid())) {
    if (!before.contains(each)) held = DuplicateOf(server_->pid(), each);
  }
  if (!held.valid()) GTEST_SKIP() << "this system gives no duplicate of another process's descriptor";
  EXPECT_TRUE(Watches(server_->pid(), held));
  client = WireClient();
  AwaitCount(sender_, "held", 0);
  EXPECT_FALSE(Watches(server_->pid(), held));
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

TEST_F(OwnMsgsvrTest, EndsAConnectionThatDoesNotRegisterInTime) {
  Start("register_seconds = 3\n");
  const WireClient idle = Connect();
  EXPECT_TRUE(idle.ClosedByOther());
  EXPECT_TRUE(LogHolds("an unregistered client (pid " + std::to_string(::getpid()) +
                       ") cut off: it has not registered in time"));
  sender_.Send(MakeMessage(kType, "", "receiver", 5));
  EXPECT_EQ(receiver_.Next().header.data, 5u) << "those with a name stay";
}

// In a network of its own, whose cable can be cut.
class CutCableTest : public OwnMsgsvrTest {
 protected:
  static bool IsolateNetwork() {
    return (::unshare(CLONE_NEWNET) == 0 || ::unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0) && Loopback(true);
  }
  static bool Loopback(bool up) {
    const UniqueFd socket(::socket(AF_INET, SOCK_DGRAM, 0));
    ifreq request = {};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = static_cast<short>(up ? IFF_UP | IFF_RUNNING : 0);
    return ::ioctl(socket.get(), SIOCSIFFLAGS, &request) == 0;
  }
  WireClient Board() {
    WireClient board = WireClient::ConnectTcp(port_);
    EXPECT_EQ(NameOf(board.Register("board").header.destination), "board");
    return board;
  }
  void StartWithTcp(const std::string &settings) {
    Start("tcp = 127.0.0.1:0\n" + settings);
    const std::string announced = "msgsvr: listening on 127.0.0.1:";
    ASSERT_TRUE(server_->WaitForOutput(announced) && server_->WaitForOutput("\n"));
    port_ = static_cast<uint16_t>(
        std::stoi(server_->output().substr(server_->output().find(announced) + announced.size())));
  }

  // How often the kernel has sent again, or asked, on the connection of which it has done so most.
  static unsigned RepeatsOfTheServer() {
    std::ifstream table("/proc/thread-self/net/tcp");
    std::string line;
    unsigned most = 0;
    while (std::getline(table, line)) {
      unsigned repeats = 0, user = 0, asked = 0;
      if (std::sscanf(line.c_str(), "%*s %*s %*s 01 %*s %*s %x %u %u", &repeats, &user, &asked) == 3) {
        most = std::max(most, repeats + asked);
      }
    }
    return most;
  }

  uint16_t port_ = 0;
};

TEST_F(CutCableTest, EndsABoardThatDoesNotAnswerAndTellsItsSenders) {
  if (!IsolateNetwork()) GTEST_SKIP() << "may not isolate its network";
  StartWithTcp("board_seconds = 3\n");
  const WireClient board = Board();
  ASSERT_TRUE(Loopback(false));
  for (uint32_t i = 1; i <= 30; ++i) sender_.Send(MakeMessage(kType, "", "board", 0, "", i));
  for (uint32_t i = 1; i <= 30; ++i) {
    const Message notice = sender_.Next();
    ASSERT_TRUE(IsNotice(notice, kType));
    EXPECT_EQ(notice.header.sequence, i);
  }
  AwaitCount(sender_, "board", 0);
}

TEST_F(CutCableTest, GivesAReturningBoardItsName) {
  if (!IsolateNetwork()) GTEST_SKIP() << "may not isolate its network";
  StartWithTcp("board_seconds = 600\n");
  const WireClient lost = Board();
  const WireClient second = Board();
  EXPECT_EQ(sender_.Ask(MakeCount("board")).header.data, 2u) << "a board may have two processes of a name";
  // A board without power neither acknowledges nor refuses what is sent to it.
  sock_filter nothing = BPF_STMT(BPF_RET | BPF_K, 0);
  const sock_fprog filter = {1, &nothing};
  ASSERT_EQ(::setsockopt(lost.fd(), SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter), 0);
  Tell(sender_, MakeMessage(kType, "", "board", 0, "", 1));
  EXPECT_TRUE(WaitUntil([] { return RepeatsOfTheServer() > 0; }));
  const WireClient returned = Board();
  EXPECT_TRUE(IsNotice(sender_.Next(), kType));
  EXPECT_EQ(sender_.Ask(MakeCount("board")).header.data, 2u);
  EXPECT_TRUE(LogHolds("cut off: its board has returned by another connection"));
}

}  // namespace
}  // namespace zor::test
