// A message server that is replaced while it runs.
#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <zor/control_wire.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <regex>
#include <thread>

#include "msgsvr_fixture.h"
#include "programs/json.h"

namespace zor::test {
namespace {

using testing::HasSubstr;

constexpr uint32_t kEvent = 0x2DA05;
const std::string kKilobyte(1000, 'x');

class HandOverTest : public OwnMsgsvrTest {
 protected:
  // The server runs a copy of its program, which a test can replace.
  void StartCopy(const std::string &settings = "") {
    program_ = root_.Path("/program");
    Install(MSGSVR_PROGRAM);
    Start(settings);
    tool_ = Client("tool");
  }
  void Install(const std::string &program) {
    std::filesystem::remove(program_);
    std::filesystem::copy_file(program, program_);
  }
  void InstallScript(const std::string &script) {
    std::filesystem::remove(program_);
    std::ofstream(program_) << "#!/bin/sh\n" << script << '\n';
    ::chmod(program_.c_str(), 0755);
  }
  void HandOver() {
    Message reply;
    do {  // a busy machine may stand still for longer than the trial may take
      reply = tool_.Ask(MakeRequest(ZOR_MSG_CONTROL_RESTART, "", 0, 3));
    } while (reply.body.find("its trial has not ended within") != reply.body.npos || reply.body.ends_with("signal 14"));
    ASSERT_EQ(reply.header.data, ZOR_CONTROL_OK) << reply.body << log_.Text();
    ASSERT_EQ(reply.header.sequence, 3u);
    ASSERT_THAT(reply.body, HasSubstr("\"pause_ms\":"));
  }
  uint16_t TcpPort() {
    const std::string line = "msgsvr: listening on 127.0.0.1:";
    EXPECT_TRUE(server_->WaitForOutput(line) && server_->WaitForOutput("\n"));
    return static_cast<uint16_t>(std::stoi(server_->output().substr(server_->output().find(line) + line.size())));
  }
  // What the list says about all clients but the asker, without what changes by itself.
  std::string List() const {
    std::string text;
    const daemon::Json list(cJSON_Parse(AskAndFetch(tool_, MakeRequest(ZOR_MSG_CONTROL_LIST)).body.c_str()));
    cJSON *client = nullptr;
    cJSON_ArrayForEach(client, cJSON_GetObjectItem(list.get(), "clients")) {
      cJSON_DeleteItemFromObject(client, "flows");  // rates of the moment
      if (cJSON_IsTrue(cJSON_GetObjectItem(client, "self")) == 0) text += daemon::JsonText(client) + "\n";
    }
    return std::regex_replace(text, std::regex("\"([a-z_]*ms|held)\":[0-9]+"), "");
  }

  WireClient tool_;
};

// A sender that numbers its messages and writes them in pieces that end anywhere, and their receiver.
class Stream {
 public:
  Stream(WireClient sender, WireClient receiver, std::string to, uint32_t count)
      : sender_(std::move(sender)), receiver_(std::move(receiver)), to_(std::move(to)), count_(count) {
    threads_[0] = std::thread([this] { Send(); });
    threads_[1] = std::thread([this] { Receive(); });
  }
  bool IsOver() const { return over_; }
  void Join() {
    for (std::thread &thread : threads_) thread.join();
  }

 private:
  void Send() {
    std::string bytes;
    size_t piece = 1;
    for (uint32_t number = 0; number < count_; ++number) {
      // Near its receiver: what does not fit the queue of one that lags far behind is refused.
      while (number > received_ + 1000 && !testing::Test::HasFailure()) std::this_thread::yield();
      bytes += MakeMessage(kType, "", to_, number, std::string(number * 37 % 2000, 'b'), number + 1).Bytes();
      for (; bytes.size() > piece; piece = piece * 5 % 9001) {
        sender_.Send(std::string_view(bytes).substr(0, piece));
        bytes.erase(0, piece);
      }
    }
    sender_.Send(bytes);
  }
  void Receive() {
    for (uint32_t number = 0; number < count_; ++number) {
      const Message message = receiver_.Next();
      ASSERT_EQ(message.header.data, number);
      ASSERT_EQ(message.body, std::string(number * 37 % 2000, 'b'));
      received_ = number;
    }
    over_ = true;
  }

  WireClient sender_, receiver_;
  std::string to_;
  uint32_t count_;
  std::atomic<uint32_t> received_ = 0;
  std::atomic<bool> over_ = false;
  std::thread threads_[2];
};

TEST_F(HandOverTest, LosesDoublesAndReordersNothingUnderLoad) {
  StartCopy("queue_bytes = 8000000\ntcp = 127.0.0.1:0\n");
  const uint16_t port = TcpPort();
  constexpr uint32_t kCount = 10000;
  constexpr int kStreams = 4;
  const WireClient monitor = Client("monitor");
  ZOR_CONTROL_FILTER filter{};
  filter.firstType = kType;
  EXPECT_EQ(
      monitor.Ask(MakeRequest(ZOR_MSG_CONTROL_MONITOR, std::string(reinterpret_cast<char *>(&filter), sizeof filter)))
          .header.data,
      ZOR_CONTROL_OK);
  std::vector<std::unique_ptr<Stream>> streams;
  for (int i = 0; i < kStreams; ++i) {
    WireClient sender = i == 0 ? WireClient::ConnectTcp(port) : Connect();
    sender.Register("from" + std::to_string(i));
    const std::string to = "to" + std::to_string(i);
    streams.push_back(std::make_unique<Stream>(std::move(sender), Client(to), to, kCount));
  }
  uint64_t copies = 0;
  std::thread watcher([&] {
    while (copies < uint64_t{kStreams} * kCount) {
      const Message copy = monitor.Next();
      if (copy.header.type != ZOR_MSG_CONTROL_COPY) break;
      ZOR_CONTROL_COPY head;
      std::memcpy(&head, copy.body.data(), sizeof head);
      copies += 1 + head.missed;
    }
  });
  int handOvers = 0;
  for (const auto &stream : streams) {
    do {
      HandOver();
      ++handOvers;
    } while (!stream->IsOver() && !HasFailure());
  }
  for (const auto &stream : streams) stream->Join();
  // The last copies may have been missed, which only a further message would show.
  while (copies < uint64_t{kStreams} * kCount && !HasFailure()) sender_.Send(MakeMessage(kType, "", "receiver"));
  watcher.join();
  EXPECT_GE(handOvers, 4);
  EXPECT_EQ(log_.Text().find("cut off"), std::string::npos) << log_.Text();
}

int UnreadIn(const WireClient &client) {
  int bytes = 0;
  EXPECT_EQ(::ioctl(client.fd(), FIONREAD, &bytes), 0);
  return bytes;
}

Message MakeRestful(const std::string &prefix) {
  std::string body(ZOR_MSG_RESTFUL_HEAD_SIZE, '\0');
  prefix.copy(body.data() + offsetof(ZOR_MSG_RESTFUL_HEAD, prefix), prefix.size());
  body[offsetof(ZOR_MSG_RESTFUL_HEAD, name)] = 'x';
  return MakeRequest(ZOR_MSG_RESTFUL_REQUEST, body);
}

TEST_F(HandOverTest, KeepsWhatClientsHaveToldTheServer) {
  StartCopy();
  const WireClient first = Client("twin"), second = Client("twin"), waiter = Client("waiter");
  Tell(second, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "", 0));
  Tell(first, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "late", kEvent));
  Tell(second, MakeRequest(ZOR_MSG_RESTFUL_REGISTER, "/api/*"));
  Tell(first, MakeRequest(ZOR_MSG_RESTFUL_REGISTER, "/**"));
  Tell(first, MakeRequest(ZOR_MSG_SYNC_POST, "early"));
  waiter.Send(MakeRequest(ZOR_MSG_SYNC_WAIT, "gate", 0, 77));
  // Half of a frame, and half of the two bytes that carry a descriptor.
  const std::string frame = MakeMessage(kType, "", "receiver", 42, kKilobyte).Bytes();
  waiter.Send(std::string_view(frame).substr(0, 500));
  first.Send(MakeMessage(kType, "", "receiver", 41, "", 8));
  first.SendDescriptors(std::string(1, '\0'), {STDIN_FILENO});
  EXPECT_EQ(receiver_.Next().header.data, 41u);
  const std::string before = List();
  ASSERT_THAT(before, HasSubstr("/api/*"));

  HandOver();
  HandOver();

  EXPECT_EQ(List(), before);
  first.Send(std::string(1, '\0'));
  EXPECT_GE(receiver_.ReceiveDescriptor(), 0);
  waiter.Send(std::string_view(frame).substr(500));
  EXPECT_EQ(receiver_.Next().header.data, 42u);
  Tell(first, MakeRequest(ZOR_MSG_SYNC_POST, "gate"));
  EXPECT_EQ(waiter.Next().header.sequence, 77u);
  EXPECT_EQ(waiter.Ask(MakeRequest(ZOR_MSG_SYNC_WAIT, "early", 0, 78)).header.sequence, 78u);
  for (const auto &[path, target] : {std::pair("/api", &second), std::pair("/other", &first)}) {
    sender_.Send(MakeRestful(path));
    EXPECT_EQ(target->Next().header.type, ZOR_MSG_RESTFUL_REQUEST) << path;
  }
  sender_.Send(MakeMessage(kType, "", "twin", 50));
  EXPECT_EQ(first.Next().header.data, 50u) << "it has registered first";
  const WireClient late = Client("late");
  sender_.Send(MakeMessage(kEvent, "", "", 200));
  EXPECT_EQ(late.Next().header.data, 200u);
  EXPECT_EQ(second.Next().header.data, 200u);
}

TEST_F(HandOverTest, KeepsWhatItOwesAClientThatDoesNotRead) {
  StartCopy("queue_bytes = 100000\n");
  const WireClient reader = Client("reader");
  {
    const WireClient lossy = Client("lossy");
    Tell(sender_, MakeMessage(kType, "", "lossy", 0, "", 9));
  }
  EXPECT_TRUE(IsNotice(sender_.Next(), kType)) << "it ended without reading";
  // Its socket is full, a descriptor and events are queued, further events were refused.
  Tell(reader, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "", kEvent));
  EXPECT_EQ(reader.Ask(MakeRequest(ZOR_MSG_CONTROL_GAPS, "", 1)).header.data, ZOR_CONTROL_OK);
  uint32_t messages = 0;
  for (int unread = -1; UnreadIn(reader) > unread; ++messages) {
    unread = UnreadIn(reader);
    Tell(sender_, MakeMessage(kType, "", "reader", messages, kKilobyte));
  }
  sender_.Send(MakeMessage(kType, "", "reader", messages++, kKilobyte));
  sender_.SendDescriptor(STDIN_FILENO);
  for (uint32_t i = 0; i < 200; ++i) Tell(sender_, MakeMessage(kEvent, "", "", i, kKilobyte));
  EXPECT_TRUE(LogHolds("reader (pid " + std::to_string(::getpid()) + ") does not read"));
  const std::string before = List();

  HandOver();
  HandOver();

  EXPECT_EQ(List(), before);
  const WireClient lossy = Client("lossy");
  EXPECT_THAT(List(), HasSubstr("\"dropped\":1"));
  // The queue, the gap, and the event behind it.
  for (uint32_t i = 0; i < messages; ++i) ASSERT_EQ(reader.Next().header.data, i);
  EXPECT_GE(reader.ReceiveDescriptor(), 0);
  Message message;
  for (uint32_t i = 0; message.header.type != ZOR_MSG_CONTROL_GAP; ++i) {
    ASSERT_TRUE(i == 0 || message.header.data == i - 1);
    if (reader.NothingArrived()) Tell(sender_, MakeMessage(kEvent, "", "", 200));
    message = reader.Next();
  }
  EXPECT_EQ(reader.Next().header.data, 200u);
}

TEST_F(HandOverTest, GoesOnWhenTheProgramOrTheSettingsAreWrong) {
  StartCopy();
  const auto refused = [this](const std::string &reason) {
    const Message reply = tool_.Ask(MakeRequest(ZOR_MSG_CONTROL_RESTART, "", 0, 4));
    EXPECT_EQ(reply.header.data, ZOR_CONTROL_UNCHANGED);
    EXPECT_THAT(reply.body, HasSubstr(reason));
    EXPECT_TRUE(LogHolds("not handed over: " + program_ + ": " + reason));
    AwaitCount(sender_, "receiver", 1);
  };
  InstallScript("echo it is not a server >&2; exit 1");
  refused("it is not a server");
  InstallScript("kill -SEGV $$");
  refused("signal 11");
  Install(MSGSVR_PROGRAM);
  std::ofstream(root_.Path("/settings")) << "max_clients = many\n";
  refused("msgsvr: " + root_.Path("/settings") + ":1: max_clients");
  // More than the least share and the kernel together hold.
  const WireClient reader = Client("reader");
  for (int i = 0; i < 1000; ++i) sender_.Send(MakeMessage(kType, "", "reader", 0, std::string(1000, 'x')));
  std::ofstream(root_.Path("/settings")) << "user_bytes = 262144\nmemory_bytes = 262144\n";
  refused("msgsvr: user_bytes is too small: clients of user ");
  std::ofstream(root_.Path("/settings")) << "max_clients = 2\n";
  HandOver();
  sender_.Send(MakeMessage(kType, "", "receiver", 51));
  EXPECT_EQ(receiver_.Next().header.data, 51u) << "it was there before";
  EXPECT_TRUE(Connect().ClosedByOther()) << "the new settings are for newcomers";
  server_->Signal(SIGHUP);
  EXPECT_TRUE(WaitUntil([&] {
    const std::string log = log_.Text();
    return log.find("took over") != log.rfind("took over");
  }));
}

TEST_F(HandOverTest, FollowsALinkByWhichItWasStartedIfOnlyItsUserCanChangeThat) {
  namespace fs = std::filesystem;
  fs::create_directories(root_.Path("/opt/old"));
  fs::copy_file(MSGSVR_PROGRAM, root_.Path("/opt/old/msgsvr"));
  for (const fs::perms others : {fs::perms::others_write, fs::perms::none}) {
    fs::permissions(root_.Path("/opt"), fs::perms::owner_all | others);
    fs::remove(root_.Path("/opt/current"));
    fs::create_directory_symlink("old", root_.Path("/opt/current"));
    program_ = root_.Path("/opt/current/msgsvr");
    Start();
    tool_ = Client("tool");
    fs::remove(root_.Path("/opt/current"));
    fs::create_directory_symlink("new", root_.Path("/opt/current"));  // which is not there yet
    if (others == fs::perms::none) break;
    HandOver();
    server_->Signal(SIGTERM);
    EXPECT_EQ(server_->Wait(), 0);
  }
  EXPECT_EQ(tool_.Ask(MakeRequest(ZOR_MSG_CONTROL_RESTART)).body, program_ + ": No such file or directory");
  fs::rename(root_.Path("/opt/old"), root_.Path("/opt/new"));
  HandOver();
}

}  // namespace
}  // namespace zor::test
