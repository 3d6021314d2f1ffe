// The notification server is replaced, or killed and started again, while clients talk: they must not notice.
#include <sys/mman.h>
#include <unistd.h>
#include <zor/notify_control_wire.h>
#include <zor/paths.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "daemons/notifyserver_fixture.h"
#include "daemons/store_manager.h"
#include "notifyserver/record.h"
#include "programs/journal/crash_mark.h"
#include "programs/journal/journal.h"
#include "programs/journal/slot.h"
#include "programs/journal/turn.h"

namespace zor::test {
namespace {

using testing::HasSubstr;

constexpr uint32_t kType = 0x55;
constexpr uint32_t kLong = 300'000;

// Notifications with numbers in them, whose receivers check that none is missing, repeated or out of order.
std::string Numbered(uint32_t number, size_t length) {
  std::string data(length, static_cast<char>('a' + number % 26));
  std::memcpy(data.data(), &number, sizeof number);
  return data;
}

size_t LengthOf(uint32_t number) {
  return number % 97 == 0 ? 2'000'000 : number % 11 == 0 ? kLong : 4 + number % 200;
}

class NotifyServerRestart : public NotifyServerTest {
 protected:
  NotifyServerRestart() : program_(root_.Path("/notifyserver")) { std::filesystem::copy_file(NOTIFYSERVER, program_); }

  void Launch() { manager_.Start({program_}); }
  // What now is at the server's path, which an installation replaces in one step.
  void Install(const std::string &text) const {
    std::ofstream(program_ + ".new") << text;
    std::filesystem::permissions(program_ + ".new", std::filesystem::perms::owner_all);
    std::filesystem::rename(program_ + ".new", program_);
  }
  void InstallReal() const {
    std::filesystem::copy_file(NOTIFYSERVER, program_ + ".new");
    std::filesystem::rename(program_ + ".new", program_);
  }
  std::string Ask(const BusPeer &tool, uint32_t type, uint32_t result) const {
    tool.Send(MakeRequest(type, 5, 0, ZOR_NOTIFY_MID_SERVER).Bytes());
    const NotifyFrame reply = ReceiveNotify(tool).value_or(NotifyFrame());
    uint32_t word = UINT32_MAX;
    if (reply.data.size() >= sizeof word) std::memcpy(&word, reply.data.data(), sizeof word);
    EXPECT_EQ(word, result);
    return reply.data.substr(std::min(reply.data.size(), sizeof word));
  }

  std::string program_;
  StoreManager manager_{root_.Path("/manager")};
};

// Senders of numbered notifications to one receiver each, and requesters with one responder each.
class Load {
 public:
  using Register = std::function<BusPeer(uint32_t mid)>;

  explicit Load(const Register &connect) {
    for (uint32_t pair = 0; pair < 3; ++pair) {
      const uint32_t mid = 1 + 4 * pair;
      receivers_.emplace_back([this, pair, peer = connect(mid)] { Receive(peer, received_[pair]); });
      senders_.emplace_back([this, pair, mid, peer = connect(mid + 1)] { Post(peer, mid, received_[pair]); });
      receivers_.emplace_back([this, peer = connect(mid + 2)] { Respond(peer); });
      senders_.emplace_back([this, mid, peer = connect(mid + 3)] { Request(peer, mid + 3, mid + 2); });
    }
  }
  ~Load() { Finish(); }
  Load(const Load &) = delete;
  Load &operator=(const Load &) = delete;

  void AwaitProgress(uint64_t count) const {
    const uint64_t goal = progress_ + count;
    EXPECT_TRUE(WaitUntil([&] { return progress_ >= goal || failed_; }));
  }
  // Whether everything that was sent has been received once and in order.
  bool Finish() {
    stopped_ = true;
    for (auto *threads : {&senders_, &receivers_}) {
      for (std::thread &thread : *threads) thread.join();
      threads->clear();
    }
    return !failed_;
  }

 private:
  void Check(bool holds, const char *what) {
    if (holds) return;
    failed_ = true;
    ADD_FAILURE() << what;
  }
  // Never so far ahead that the receiver's queue could overflow.
  void Post(const BusPeer &peer, uint32_t to, const std::atomic<uint32_t> &received) {
    constexpr uint32_t kAhead = 60;
    for (uint32_t number = 0; !stopped_ && !failed_; ++number) {
      WaitUntil([&] { return number < received + kAhead || failed_; });
      peer.Send(MakeAsync(kType, 0, to, Numbered(number, LengthOf(number))).Bytes());
    }
    peer.Send(MakeAsync(kType + 1, 0, to).Bytes());
  }
  void Receive(const BusPeer &peer, std::atomic<uint32_t> &received) {
    for (uint32_t number = 0;; ++number, ++progress_, ++received) {
      const auto frame = ReceiveNotify(peer);
      Check(frame.has_value(), "a notification is missing");
      if (failed_ || frame->head.msg_type == kType + 1) return;
      Check(frame->data == Numbered(number, LengthOf(number)), "a notification is not the next one");
    }
  }
  void Respond(const BusPeer &peer) {
    while (const auto request = ReceiveNotify(peer)) {
      if (request->head.msg_type == kType + 1) return;
      peer.Send(MakeReply(*request, request->data).Bytes());
    }
    Check(false, "a request is missing");
  }
  void Request(const BusPeer &peer, uint32_t own, uint32_t to) {
    for (uint32_t number = 0; !stopped_ && !failed_; ++number, ++progress_) {
      const NotifyFrame request = MakeRequest(kType, number, own, to, Numbered(number, LengthOf(number * 7 + 1)));
      peer.Send(request.Bytes());
      const auto reply = ReceiveNotify(peer);
      Check(reply && reply->Bytes() == MakeReply(request, request.data).Bytes(), "a reply is not the one");
    }
    peer.Send(MakeAsync(kType + 1, 0, to).Bytes());
  }

  std::atomic<bool> stopped_ = false;
  std::atomic<bool> failed_ = false;
  std::atomic<uint64_t> progress_ = 0;
  std::array<std::atomic<uint32_t>, 3> received_{};
  std::vector<std::thread> senders_;
  std::vector<std::thread> receivers_;
};

TEST_F(NotifyServerRestart, LosesRepeatsAndReordersNothingOverHandOversAndKills) {
  Launch();
  Load load([this](uint32_t mid) { return Register(mid); });
  for (int round = 0; round < 24 && !HasFailure(); ++round) {
    load.AwaitProgress(50 + static_cast<uint64_t>(round) * 7 % 60);
    if (round % 3 == 0) {
      const int before = manager_.readyCount();
      manager_.Signal(SIGHUP);
      EXPECT_TRUE(manager_.AwaitReady(before));
    } else {
      manager_.Kill();
      Launch();
    }
  }
  EXPECT_TRUE(load.Finish());
}

TEST_F(NotifyServerRestart, IsRefusedToAProgramThatCannotTakeOverAndReportedToTheOperator) {
  Launch();
  const BusPeer web = Register(26);
  const BusPeer cms = Register(8);
  const NotifyFrame asked = MakeRequest(kType, 1, 26, 8);
  const std::string half = MakeAsync(kType, 26, 8, std::string(kLong, 'x')).Bytes();
  web.Send(asked.Bytes());
  const BusPeer tool = Connect();
  Install("#!/bin/sh\necho no such state >&2\nexit 3\n");
  EXPECT_EQ(Ask(tool, ZOR_NOTIFY_CONTROL_RESTART, ZOR_CONTROL_UNCHANGED), program_ + ": no such state");
  web.Send(half.substr(0, kLong / 2));
  Install("");
  EXPECT_THAT(Ask(tool, ZOR_NOTIFY_CONTROL_RESTART, ZOR_CONTROL_UNCHANGED), HasSubstr(program_));
  InstallReal();
  std::filesystem::create_directories(root_.Path("/etc/zor"));
  std::ofstream(root_.Path("/etc/zor/notifyserver.conf"))
      << "max_data_bytes = 4096\nuser_bytes = 65536\nmemory_bytes = 65536\n";
  EXPECT_THAT(Ask(tool, ZOR_NOTIFY_CONTROL_RESTART, ZOR_CONTROL_UNCHANGED), HasSubstr("user_bytes is too small"));
  std::filesystem::remove(root_.Path("/etc/zor/notifyserver.conf"));
  EXPECT_THAT(Ask(tool, ZOR_NOTIFY_CONTROL_RESTART, ZOR_CONTROL_OK), HasSubstr("\"pause_ms\":"));
  web.Send(half.substr(kLong / 2));
  EXPECT_EQ(ReceiveNotify(cms)->Bytes(), asked.Bytes());
  EXPECT_EQ(ReceiveNotify(cms)->data, std::string(kLong, 'x'));
  EXPECT_THAT(Ask(tool, ZOR_NOTIFY_CONTROL_LIST, ZOR_CONTROL_OK),
              testing::AllOf(HasSubstr("\"in\":3"), HasSubstr("\"pending\":[{\"to\":8")));
  cms.Send(MakeReply(asked, "done").Bytes());
  EXPECT_EQ(ReceiveNotify(web)->data, "done");
  EXPECT_TRUE(tool.NothingArrived());
}

// Whoever was there when the server was killed and is not when the next one starts, or of whom it knows nothing.
TEST_F(NotifyServerRestart, EndsClientsWhoseSocketOrRecordIsMissingAndTheirRequests) {
  Launch();
  const BusPeer web = Register(26);
  const BusPeer cms = Register(8);
  const BusPeer stranger = Register(9);
  const NotifyFrame asked = MakeRequest(kType, 1, 26, 8);
  web.Send(asked.Bytes());
  ASSERT_TRUE(ReceiveNotify(cms));
  manager_.Kill();
  ASSERT_EQ(std::erase_if(manager_.store, [](const auto &each) { return each.first == "client-2"; }), 1u);
  for (auto &[name, fd] : manager_.store) {
    if (name == "client-3") name = "client-77";
  }
  Launch();
  EXPECT_EQ(ReceiveNotify(web)->Bytes(), MakeReply(asked).Bytes());
  EXPECT_TRUE(cms.ClosedByOther());
  EXPECT_TRUE(stranger.ClosedByOther());
  Settle(web, 26);
}

TEST_F(NotifyServerRestart, MayHaveFewerClientsThanTheServerBeforeIt) {
  Launch();
  std::vector<BusPeer> peers;
  for (int count = 0; count < 90; ++count) peers.push_back(Register(9));
  std::filesystem::create_directories(root_.Path("/etc/zor"));
  std::ofstream(root_.Path("/etc/zor/notifyserver.conf")) << "max_clients = 1\nuser_clients = 1\n";
  EXPECT_THAT(Ask(peers.back(), ZOR_NOTIFY_CONTROL_RESTART, ZOR_CONTROL_UNCHANGED),
              HasSubstr("max_clients is too small: there are 90 clients"));
  manager_.Kill();
  Launch();
  EXPECT_TRUE(peers.back().ClosedByOther());
  Settle(peers.front(), 9);
}

// The journal of a server that has crashed once more on the first frame that it had read.
TEST_F(NotifyServerRestart, DropsAFrameThatHasCrashedTheServerTwiceAndRoutesTheNext) {
  const NotifyFrame fatal = MakeRequest(kType, 1, 26, 8, "fatal");
  const NotifyFrame next = MakeRequest(kType, 2, 26, 8, "next");
  SocketPair web;
  SocketPair cms;
  const auto journal = daemon::Journal::Create("notifyserver", {16, 1 << 20, 65536});
  ASSERT_NE(journal, nullptr);
  daemon::JournalSlot sender(*journal, 1);
  daemon::JournalSlot receiver(*journal, 2);
  notifyserver::StandingRecord record;
  for (auto *slot : {&sender, &receiver}) {
    record.id = record.registration = slot == &sender ? 1 : 2;
    record.mid = slot == &sender ? 26 : 8;
    ASSERT_TRUE(slot->SetRecord(*daemon::WriteRecord(record)));
  }
  const std::string bytes = fatal.Bytes() + next.Bytes();
  ASSERT_TRUE(sender.AppendInput(std::as_bytes(std::span(bytes))));
  sender.EditNotes().crashes = daemon::kMostCrashes - daemon::kCrash;
  daemon::BeginTurn(sender);
  journal->SetFrameAt(0);
  journal->crashMark() = 1;
  journal->SetComplete();
  manager_.store.emplace_back(journal->Name(), UniqueFd(::dup(journal->fd())));
  manager_.store.emplace_back("client-1", UniqueFd(web.near.Release()));
  manager_.store.emplace_back("client-2", UniqueFd(cms.near.Release()));
  Capture log(STDERR_FILENO);
  Launch();
  EXPECT_EQ(ReceiveNotify(web.far)->Bytes(), MakeReply(fatal).Bytes());
  EXPECT_EQ(ReceiveNotify(cms.far)->Bytes(), next.Bytes());
  EXPECT_THAT(log.Text(), HasSubstr("message 0x55 of 53 bytes from module 26 (pid 0) to module 8 dropped"));
}

TEST_F(NotifyServerRestart, KeepsItsClientsWithTheKeeperToo) {
  ::unsetenv("NOTIFY_SOCKET");
  Child keeper = Child::Program({program_, "--keeper"});
  ASSERT_TRUE(keeper.WaitForOutput("listening"));
  const BusPeer tool = Connect();
  const BusPeer web = Register(26);
  for (int round = 0; round < 3; ++round) {
    const std::string list = Ask(tool, ZOR_NOTIFY_CONTROL_LIST, ZOR_CONTROL_OK);
    const size_t pid = list.find("\"pid\":") + 6;
    ASSERT_EQ(::kill(std::atoi(list.c_str() + pid), SIGKILL), 0);
    Settle(web, 26);
  }
  keeper.Signal(SIGTERM);
  EXPECT_EQ(keeper.Wait(), 0);
  EXPECT_TRUE(web.ClosedByOther());
}

// A state or a journal that is damaged costs clients their connection, and no server its life.
class HostileBytes : public NotifyServerRestart {
 protected:
  // Some bytes where the file has any.
  void Damage(int file) {
    constexpr off_t kPage = 4096;
    std::vector<off_t> pages;
    for (off_t at = 0; (at = ::lseek(file, at, SEEK_DATA)) >= 0; at += kPage) pages.push_back(at);
    ASSERT_FALSE(pages.empty());
    for (int count = 0; count < 8; ++count) {
      const unsigned char values[] = {0, 1, 0x7f, 0x80, 0xff};
      const off_t at = pages[random_() % pages.size()] + static_cast<off_t>(random_() % kPage);
      ASSERT_EQ(::pwrite(file, &values[random_() % sizeof values], 1, at), 1);
    }
  }
  // Clients with a pending request, a half-sent frame and a queue.
  std::vector<BusPeer> Busy() {
    std::vector<BusPeer> peers;
    for (const uint32_t mid : {26u, 8u, 9u}) peers.push_back(Register(mid));
    const BusPeer &web = peers[0];
    const BusPeer &cms = peers[1];
    web.Send(MakeAsync(kType, 26, 8, std::string(kLong, 'y')).Bytes().substr(0, kLong / 2));
    cms.Send(MakeRequest(kType, 1, 8, 26).Bytes());
    EXPECT_TRUE(ReceiveNotify(web));
    for (int count = 0; count < 4; ++count) cms.Send(MakeAsync(kType, 8, 9, std::string(kLong, 'z')).Bytes());
    Settle(cms, 8);
    return peers;
  }

  std::mt19937 random_{5};
};

TEST_F(HostileBytes, InTheJournalEndNoServer) {
  Launch();
  for (int round = 0; round < 40 && !HasFailure(); ++round) {
    const auto peers = Busy();
    manager_.Kill();
    for (const auto &[name, fd] : manager_.store) {
      if (name.starts_with("journal-")) Damage(fd.get());
    }
    Launch();
  }
}

TEST_F(HostileBytes, InAStateEndNoServerThatTriesOrTakesIt) {
  Launch();
  const auto peers = Busy();
  const std::string copy = root_.Path("/state");
  Install("#!/bin/sh\ncat /proc/self/fd/3 >" + copy + "\nexit 1\n");
  Ask(Connect(), ZOR_NOTIFY_CONTROL_RESTART, ZOR_CONTROL_UNCHANGED);
  manager_.Kill();
  const std::string good = ContentOf(copy);
  ASSERT_GT(good.size(), kLong);
  ::setenv("ZOR_HANDOVER", "3 1.0 1 1", 1);
  for (int round = 0; round < 60; ++round) {
    for (const bool trial : {true, false}) {
      Child server = Child::Function([&] {
        const int file = ::memfd_create("state", 0);
        if (::write(file, good.data(), good.size()) < 0) return 1;
        if (round > 0) Damage(file);
        if (round % 7 == 6 && ::ftruncate(file, static_cast<off_t>(random_() % good.size())) != 0) return 1;
        ::dup2(file, 3);
        ::alarm(60);
        ::execl(NOTIFYSERVER, NOTIFYSERVER, trial ? "--check-state" : nullptr, nullptr);
        return 1;
      });
      random_.discard(20);
      const int status = server.Wait();
      // One that takes it serves until the alarm; its descriptors are missing.
      EXPECT_TRUE(trial ? status == 5 || status == 0 : status == 1) << round << ": " << status;
    }
  }
  ::unsetenv("ZOR_HANDOVER");
}

}  // namespace
}  // namespace zor::test
