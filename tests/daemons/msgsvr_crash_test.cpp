// A message server that is killed, or crashes, and is started again by its keeper.
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <zor/control_wire.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "msgsvr_fixture.h"
#include "programs/keeper_launch.h"
#include "programs/keeper_notices.h"
#include "programs/keeper_store.h"
#include "programs/recorder/reader.h"
#include "support/preload.h"

namespace zor::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr uint32_t kEvent = 0x2DA05;

// Like the keeper, but it starts a server that has ended again at once, however often.
class QuickKeeper {
 public:
  explicit QuickKeeper(std::vector<std::string> arguments) : arguments_(std::move(arguments)) {
    for (std::string &argument : arguments_) pointers_.push_back(argument.data());
    pointers_.push_back(nullptr);
    image_.emplace(pointers_.data());
    image_->path = arguments_[0];
    EXPECT_EQ(notices_.Open(ZOR_PATH_MSGSVR, log_), daemon::kExitOk);
    thread_ = std::thread([this] { Run(); });
  }
  ~QuickKeeper() {
    if (thread_.joinable()) Stop();
  }

  // How often a server was ready.
  int starts() const { return starts_; }
  void Kill() const { ::kill(server_, SIGKILL); }
  // Returns the server's exit status.
  int Stop() {
    stopping_ = true;
    thread_.join();
    return status_;
  }

 private:
  void Run() {
    sigset_t none;
    sigemptyset(&none);
    daemon::KeeperLaunch launch(*image_, none, notices_.path(), std::chrono::minutes(1));
    bool told = false;
    for (server_ = launch.Start(store_, log_);;) {
      pollfd entry = {notices_.fd(), POLLIN, 0};
      ::poll(&entry, 1, 1);
      if (stopping_ && !std::exchange(told, true)) ::kill(server_, SIGTERM);
      const bool ended = ::waitpid(server_, &status_, WNOHANG) == server_;
      TakeNotices();
      if (ended && (stopping_ || WIFEXITED(status_))) return;
      if (ended) server_ = launch.Start(store_, log_);
    }
  }
  void TakeNotices() {
    daemon::Notice notice;
    while (notices_.Take(notice)) {
      if (notice.Has("FDSTORE=1")) store_.Add(notice.ValueOf("FDNAME"), std::move(notice.fd));
      if (notice.Has("FDSTOREREMOVE=1")) store_.Remove(notice.ValueOf("FDNAME"));
      if (notice.Has("READY=1")) ++starts_;
    }
  }

  std::vector<std::string> arguments_;
  std::vector<char *> pointers_;
  std::optional<daemon::ProgramImage> image_;
  daemon::ProblemLog log_{"test"};
  daemon::KeeperNotices notices_;
  daemon::KeeperStore store_{1000};
  std::atomic<pid_t> server_ = 0;
  std::atomic<int> starts_ = 0;
  std::atomic<bool> stopping_ = false;
  int status_ = 0;
  std::thread thread_;
};

class CrashTest : public OwnMsgsvrTest {
 protected:
  void StartKept(const std::string &settings = "") {
    std::ofstream(root_.Path("/settings")) << settings;
    std::filesystem::create_directories(root_.Path("/var"));
    keeper_.emplace(std::vector<std::string>{MSGSVR_PROGRAM, "--settings", root_.Path("/settings")});
    AwaitStart(1);
    sender_ = Client("sender");
    receiver_ = Client("receiver");
  }
  void TearDown() override {
    if (!keeper_) return;
    EXPECT_EQ(keeper_->Stop(), 0) << log_.Text();
  }
  void AwaitStart(int number) {
    ASSERT_TRUE(WaitUntil([&] { return keeper_->starts() >= number; })) << log_.Text();
  }
  void Crash() {
    const int before = keeper_->starts();
    keeper_->Kill();
    AwaitStart(before + 1);
  }

  std::optional<QuickKeeper> keeper_;
};

constexpr uint32_t kLast = 0xfffffff0;

// A client that sends numbered messages until it is told to stop, and clients that must get each of them, or what the
// server makes of it, once and in order.
class Stream {
 public:
  using Make = std::function<Message(uint32_t number)>;
  using NumberIn = std::function<uint32_t(const Message &message)>;

  // Without receivers the sender itself gets the replies.
  Stream(WireClient sender, std::vector<WireClient> receivers, Make make, NumberIn numberIn)
      : sender_(std::move(sender)), receivers_(std::move(receivers)), make_(std::move(make)), got_(receivers_.size()) {
    threads_.emplace_back([this] { Send(); });
    if (receivers_.empty()) {
      got_ = std::vector<std::atomic<uint32_t>>(1);
      threads_.emplace_back([this, numberIn] { Receive(sender_, got_[0], numberIn); });
    }
    for (size_t i = 0; i < receivers_.size(); ++i) {
      threads_.emplace_back([this, i, numberIn] { Receive(receivers_[i], got_[i], numberIn); });
    }
  }
  // Returns how many messages there were.
  uint32_t Finish() {
    stopping_ = true;
    for (std::thread &thread : threads_) thread.join();
    return sent_;
  }

 private:
  // In pieces that end anywhere, and not far ahead of the receivers, so that nothing is refused.
  void Send() {
    std::string bytes;
    size_t piece = 1;
    for (; !stopping_; ++sent_) {
      bytes += make_(sent_).Bytes();
      for (; bytes.size() > piece; piece = piece * 5 % 9001) {
        sender_.Send(std::string_view(bytes).substr(0, piece));
        bytes.erase(0, piece);
      }
      const auto isBehind = [this](const auto &got) { return got + 1000 < sent_; };
      while (!stopping_ && std::any_of(got_.begin(), got_.end(), isBehind)) std::this_thread::yield();
    }
    sender_.Send(bytes + make_(kLast).Bytes());
  }
  void Receive(const WireClient &client, std::atomic<uint32_t> &got, const NumberIn &numberIn) {
    for (;; ++got) {
      const auto message = client.ReceiveMessage();
      ASSERT_TRUE(message) << "after " << got << " of " << sent_ << " " << NameOf(make_(0).header.destination)
                           << make_(0).header.type;
      const uint32_t number = numberIn(*message);
      if (number == kLast) break;
      ASSERT_EQ(number, got) << "of type " << message->header.type;
    }
    EXPECT_EQ(got, sent_);
  }

  WireClient sender_;
  std::vector<WireClient> receivers_;
  Make make_;
  std::atomic<uint32_t> sent_ = 0;
  std::vector<std::atomic<uint32_t>> got_;
  std::atomic<bool> stopping_ = false;
  std::vector<std::thread> threads_;
};

std::string BodyOf(uint32_t number) {
  return std::string(number * 37 % 2000, 'b');
}

uint32_t NumberInData(const Message &message) {
  return message.body == BodyOf(message.header.data) ? message.header.data : kLast - 1;
}

uint32_t SequenceOf(const Message &message) {
  return message.header.sequence - 1;
}

TEST_F(CrashTest, LosesDoublesAndReordersNothingWhenItIsKilledUnderLoad) {
  StartKept("queue_bytes = 8000000\n");
  const char *kills = std::getenv("ZOR_TEST_KILLS");
  std::vector<std::unique_ptr<Stream>> streams;
  const auto add = [&](const std::string &sender, std::vector<WireClient> receivers, Stream::Make make,
                       Stream::NumberIn numberIn) {
    streams.push_back(std::make_unique<Stream>(Client(sender), std::move(receivers), std::move(make), numberIn));
  };
  const auto receivers = [&](const std::vector<std::string> &names) {
    std::vector<WireClient> clients;
    for (const std::string &name : names) clients.push_back(Client(name));
    return clients;
  };
  for (const std::string to : {"to0", "to1"}) {
    add(
        "from", receivers({to}), [to](uint32_t n) { return MakeMessage(kType, "", to, n, BodyOf(n)); }, NumberInData);
  }
  std::vector<WireClient> subscribers = receivers({"sub0", "sub1", "sub2"});
  for (const WireClient &client : subscribers) Tell(client, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "", kEvent));
  EXPECT_EQ(subscribers[0].Ask(MakeRequest(ZOR_MSG_CONTROL_GAPS, "", 1)).header.data, ZOR_CONTROL_OK);  // served last
  add(
      "publisher", std::move(subscribers), [](uint32_t n) { return MakeMessage(kEvent, "", "", n, BodyOf(n)); },
      NumberInData);
  add(
      "asker", {}, [](uint32_t n) { return MakeRequest(ZOR_MSG_GET_PROCESS_NUM, "asker", 0, n + 1); }, SequenceOf);
  add(
      "forlorn", {}, [](uint32_t n) { return MakeMessage(kType, "", "nobody", 0, "", n + 1); }, SequenceOf);
  std::minstd_rand random(std::random_device{}());
  for (int left = kills == nullptr ? 50 : std::atoi(kills); left > 0 && !HasFailure(); --left) {
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 60000));
    keeper_->Kill();
  }
  for (const auto &stream : streams) EXPECT_GT(stream->Finish(), 0u);
  EXPECT_THAT(log_.Text(), Not(HasSubstr("cut off")));
  EXPECT_THAT(log_.Text(), Not(HasSubstr("dropped")));
}

TEST_F(CrashTest, KeepsWhatClientsHaveToldTheServerAndWhatItOwesThem) {
  StartKept("queue_bytes = 4000000\n");
  const WireClient first = Client("twin"), second = Client("twin"), waiter = Client("waiter"),
                   reader = Client("reader");
  Tell(second, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "", kEvent));
  Tell(first, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "late", kEvent));
  Tell(first, MakeRequest(ZOR_MSG_SYNC_POST, "early"));
  waiter.Send(MakeRequest(ZOR_MSG_SYNC_WAIT, "gate", 0, 77));
  constexpr uint32_t kMessages = 2000;  // more than a socket holds
  for (uint32_t i = 0; i < kMessages; ++i) sender_.Send(MakeMessage(kType, "", "reader", i, BodyOf(i)));
  Tell(sender_, MakeRequest(ZOR_MSG_SEND_FAILED_NOTICE));
  // Of a descriptor that is queued, nothing is left.
  sender_.Send(MakeMessage(kType, "", "reader", kMessages));
  sender_.SendDescriptor(sender_.fd());
  Tell(sender_, MakeRequest(ZOR_MSG_SEND_FAILED_NOTICE));
  const std::string frame = MakeMessage(kType, "", "receiver", 42, std::string(1000, 'x')).Bytes();
  waiter.Send(std::string_view(frame).substr(0, 500));

  Crash();
  Crash();

  waiter.Send(std::string_view(frame).substr(500));
  EXPECT_EQ(receiver_.Next().header.data, 42u);
  Tell(first, MakeRequest(ZOR_MSG_SYNC_POST, "gate"));
  EXPECT_EQ(waiter.Next().header.sequence, 77u);
  EXPECT_EQ(waiter.Ask(MakeRequest(ZOR_MSG_SYNC_WAIT, "early", 0, 78)).header.sequence, 78u);
  const WireClient late = Client("late");
  Tell(sender_, MakeMessage(kEvent, "", "", 200));
  EXPECT_EQ(late.Next().header.data, 200u);
  EXPECT_EQ(second.Next().header.data, 200u);
  sender_.Send(MakeMessage(kType, "", "twin", 50));
  EXPECT_EQ(first.Next().header.data, 50u) << "it has registered first";
  Tell(sender_, MakeMessage(kType, "", "reader", kMessages + 1));
  for (uint32_t i = 0; i <= kMessages + 1; ++i) ASSERT_EQ(reader.Next().header.data, i);
  EXPECT_THAT(log_.Text(), HasSubstr("took over from a server that crashed: 6 clients"));
  EXPECT_THAT(log_.Text(), HasSubstr("1 descriptors to it are lost"));
  EXPECT_THAT(log_.Text(), Not(HasSubstr("cut off")));
}

TEST_F(CrashTest, KeepsTheBodyFilesOfMessagesInItsQueues) {
  StartKept("queue_bytes = 4000000\n");
  WireClient reader = Client("reader"), gone = Client("gone");
  for (int i = 0; i < 1000; ++i) sender_.Send(MakeMessage(kType, "", "reader", 0, std::string(1000, 'x')));
  const auto file = [&](const std::string &name) {
    const std::string path = MakeFile("content", name);
    std::filesystem::last_write_time(RealPath(path),
                                     std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    return path;
  };
  const std::string queued = file("msg_file_7"), leftBehind = file("msg_file_8");
  Tell(sender_, MakeFileMessage(kType, "reader", queued));
  Crash();
  Tell(sender_, MakeMessage(kType, "", "gone"));
  gone.Close();
  EXPECT_TRUE(WaitUntil([&] { return !std::filesystem::exists(RealPath(leftBehind)); }));
  EXPECT_TRUE(std::filesystem::exists(RealPath(queued)));
}

TEST_F(CrashTest, SavesWhatWasRecordedOnceForEachCrash) {
  const std::string file = root_.Path("/var/lib/zor/msgsvr.recorder");
  std::filesystem::create_directories(root_.Path("/var/lib/zor"));
  StartKept();
  // The types of what is recorded in a file, or by the server.
  const auto types = [](const std::string &bytes) {
    std::string problem;
    const auto recording = recorder::ReadRecording(std::as_bytes(std::span(bytes)), problem);
    EXPECT_TRUE(recording) << problem;
    std::vector<uint32_t> result;
    for (const recorder::Slot &slot : recording.value_or(recorder::Recording()).slots) {
      ZOR_MSG_HEAD head;
      std::memcpy(&head, slot.frame.data(), sizeof head);
      result.push_back(head.type);
    }
    return result;
  };
  const auto saved = [&](int place) { return types(ContentOf(file + "." + std::to_string(place))); };
  for (uint32_t crash = 1; crash <= 5; ++crash) {
    Tell(sender_, MakeMessage(0x4000 + crash, "", "receiver"));
    Crash();
    // A reply comes when that has been done.
    const auto now = types(AskAndFetch(sender_, MakeRequest(ZOR_MSG_CONTROL_RECORDER)).body);
    EXPECT_THAT(now, testing::ElementsAre(ZOR_MSG_CONTROL_RECORDER)) << "a new recorder";
    EXPECT_THAT(saved(1), testing::Contains(0x4000 + crash));
    struct stat status;
    ASSERT_EQ(::stat((file + ".1").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
  }
  EXPECT_THAT(saved(4), testing::Contains(0x4002u));
  EXPECT_FALSE(std::filesystem::exists(file + ".5"));
}

TEST_F(CrashTest, CutsOffAndNamesAClientWhoseDescriptorWasHalfSent) {
  StartKept();
  const WireClient half = Client("half");
  half.SendDescriptors(std::string(1, '\0'), {half.fd()});
  // Two turns later that byte has been read.
  for (int turn = 0; turn < 2; ++turn) Tell(sender_, MakeRequest(ZOR_MSG_SEND_FAILED_NOTICE));
  Crash();
  EXPECT_TRUE(half.ClosedByOther());
  Tell(sender_, MakeMessage(kType, "", "receiver", 1));
  EXPECT_EQ(receiver_.Next().header.data, 1u);
  EXPECT_THAT(log_.Text(), HasSubstr("half (client 3, pid " + std::to_string(::getpid()) +
                                     ") cut off: a descriptor from it is lost"));
  EXPECT_THAT(log_.Text(), Not(HasSubstr("the journal does not hold")));
}

TEST_F(CrashTest, GivesConnectionsTimeToRegisterOnceMore) {
  StartKept("register_seconds = 3\n");
  const WireClient newcomer = Connect();
  Tell(sender_, MakeRequest(ZOR_MSG_SEND_FAILED_NOTICE));
  Crash();
  EXPECT_TRUE(newcomer.ClosedByOther());
}

#ifdef CRASH_LIBRARY
TEST_F(CrashTest, DropsAMessageAtWhichItCrashesTwice) {
  {
    const Preload crashes(root_, CRASH_LIBRARY);
    StartKept();
  }
  const std::string path = MakeFile("content", "msg_file_crash");
  sender_.Send(MakeMessage(kType, "", "receiver", 1).Bytes() + MakeFileMessage(0x77, "receiver", path).Bytes() +
               MakeMessage(kType, "", "receiver", 2).Bytes());
  EXPECT_EQ(receiver_.Next().header.data, 1u);
  EXPECT_EQ(receiver_.Next().header.data, 2u);
  const Message notice = sender_.Next();
  EXPECT_EQ(notice.header.type, ZOR_MSG_SEND_FAILED_NOTICE);
  EXPECT_EQ(notice.header.data, 0x77u);
  AwaitStart(3);  // it serves before the keeper has heard that
  EXPECT_EQ(keeper_->starts(), 3);
  EXPECT_THAT(log_.Text(), HasSubstr("a message from sender (client 1) to \"receiver\" dropped: type 0x77, "));
}
#endif

}  // namespace
}  // namespace zor::test
