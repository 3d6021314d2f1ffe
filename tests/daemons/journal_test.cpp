// The journal: what another process reads from it is what was committed last, at every moment; and a damaged one is
// refused or read, but never followed out of its bounds.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <list>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "programs/journal/reader.h"
#include "programs/journal/turn.h"
#include "programs/output_queue.h"

namespace zor::daemon {
namespace {

constexpr size_t kBuffer = 65536;
constexpr size_t kLongest = 20000;

std::span<const std::byte> BytesOf(const std::string &text) {
  return std::as_bytes(std::span(text));
}

std::string TextOf(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

// A client beside what is expected of it.
struct Modelled {
  Modelled(Journal &journal, uint64_t number) : id(number), slot(journal, number), output(slot, 1u << 20) {
    int ends[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    ours.reset(ends[0]);
    theirs.reset(ends[1]);
  }

  uint64_t id;
  JournalSlot slot;
  OutputQueue output;
  UniqueFd ours;
  UniqueFd theirs;
  std::string record;
  std::string input;
  std::string expected;  // the queue's bytes from the first unsent one
  std::string inSocket;
};

struct Expected {
  std::string record;
  std::string input;
  std::string output;
  friend bool operator==(const Expected &, const Expected &) = default;
};
using Expectation = std::map<uint64_t, Expected>;

std::optional<Expectation> Read(const Journal &journal) {
  std::string problem;
  const auto content = ReadJournal(journal.fd(), "test", problem);
  EXPECT_TRUE(content) << problem;
  if (!content) return std::nullopt;
  Expectation read;
  for (const JournalClient &client : content->clients) {
    std::string output;
    for (const JournalMessage &message : client.output) output += TextOf(message.bytes).substr(message.sent);
    read[client.id] = {TextOf(client.record), TextOf(client.input), output};
  }
  return read;
}

class JournalTest : public testing::Test {
 protected:
  void SetUp() override {
    journal_ = Journal::Create("test", {64, 8u << 20, kBuffer});
    ASSERT_NE(journal_, nullptr);
    journal_->SetComplete();
  }
  std::string Random(size_t most) {
    std::string text(1 + random_() % most, '\0');
    for (char &c : text) c = static_cast<char>(random_());
    return text;
  }
  // One random change of one random client.
  void Change() {
    if (clients_.empty() || (random_() % 40 == 0 && clients_.size() < 40)) {
      clients_.emplace_back(*journal_, ++lastId_);
      ASSERT_TRUE(clients_.back().slot.valid());
      return;
    }
    auto client = std::next(clients_.begin(), static_cast<long>(random_() % clients_.size()));
    switch (random_() % 12) {
      case 0:
        if (random_() % 8 == 0) clients_.erase(client);
        break;
      case 1:
        client->record = Random(1000);
        ASSERT_TRUE(client->slot.SetRecord(BytesOf(client->record)));
        break;
      case 2:
        client->slot.ClearInput();
        client->input.clear();
        [[fallthrough]];
      case 3:
        client->input += Random(6000);
        ASSERT_TRUE(
            client->slot.AppendInput(BytesOf(client->input).last(client->input.size() - client->slot.inputBytes())));
        break;
      case 4:
        Flush(*client);
        break;
      case 5:
        if (client->output.empty()) break;
        client->output.DropFront();
        TakeGone(*client);
        break;
      default:
        Push(*client);
    }
  }
  void Push(Modelled &client) {
    const std::string message = Random(random_() % 20 == 0 ? kLongest : 200);
    const size_t sent = client.output.empty() ? random_() % message.size() : 0;
    if (client.output.Push(BytesOf(message), sent)) client.expected += message.substr(sent);
  }
  // What the queue no longer has.
  static std::string TakeGone(Modelled &client) {
    const size_t gone = client.expected.size() - client.output.bytesLeft();
    const std::string text = client.expected.substr(0, gone);
    client.expected.erase(0, gone);
    return text;
  }
  // The peer reads what was queued. Also commits what was changed before.
  void Flush(Modelled &client) {
    client.output.Flush(client.ours.get());
    client.inSocket += TakeGone(client);
    std::string read(random_() % 100000, '\0');
    const ssize_t count = ::recv(client.theirs.get(), read.data(), read.size(), MSG_DONTWAIT);
    read.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    EXPECT_EQ(read, client.inSocket.substr(0, read.size()));
    client.inSocket.erase(0, read.size());
    journal_->Commit();
    committed_ = Now();
  }
  Expectation Now() const {
    Expectation now;
    for (const Modelled &client : clients_) now[client.id] = {client.record, client.input, client.expected};
    return now;
  }

  std::mt19937 random_{1};
  std::unique_ptr<Journal> journal_;
  std::list<Modelled> clients_;
  uint64_t lastId_ = 0;
  Expectation committed_;
};

TEST_F(JournalTest, HoldsWhatWasCommittedAtEveryMoment) {
  for (int change = 0; change < 20000 && !HasFailure(); ++change) {
    Change();
    if (random_() % 8 == 0) {
      journal_->Commit();
      committed_ = Now();
    }
    if (random_() % 16 != 0) continue;
    EXPECT_EQ(Read(*journal_), committed_) << "after change " << change;
  }
}

TEST_F(JournalTest, IsRefusedOrReadHoweverItIsDamaged) {
  for (int change = 0; change < 3000; ++change) Change();
  ASSERT_FALSE(clients_.empty());
  BeginTurn(clients_.front().slot);
  journal_->Commit();
  struct stat status = {};
  ASSERT_EQ(::fstat(journal_->fd(), &status), 0);
  const auto size = static_cast<size_t>(status.st_size);
  auto *bytes = static_cast<std::byte *>(::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, journal_->fd(), 0));
  ASSERT_NE(bytes, MAP_FAILED);
  // Most of the file is empty; what is not empty in its first part is worth damaging.
  std::vector<size_t> used;
  for (size_t at = 0; at < size; ++at) {
    if (bytes[at] != std::byte{0} && (at < 2000 || at % 4096 < 16 || random_() % 64 == 0)) used.push_back(at);
  }
  size_t refused = 0;
  constexpr int kRounds = 3000;
  for (int round = 0; round < kRounds; ++round) {
    std::map<size_t, std::byte> saved;
    for (uint32_t damage = random_() % 4 + 1; damage > 0; --damage) {
      const size_t at = random_() % 2 == 0 ? used[random_() % used.size()] : random_() % 2000;
      saved.emplace(at, bytes[at]);
      bytes[at] = static_cast<std::byte>(random_() % 3 == 0 ? 0xff : random_());
    }
    std::string problem;
    if (!ReadJournal(journal_->fd(), "test", problem)) ++refused;
    for (const auto &[at, byte] : saved) bytes[at] = byte;
  }
  ::munmap(bytes, size);
  EXPECT_GT(refused, kRounds / 50u);
  EXPECT_LT(refused, kRounds);
  std::string problem;
  EXPECT_FALSE(ReadJournal(journal_->fd(), "other", problem));
  EXPECT_EQ(::ftruncate(journal_->fd(), static_cast<off_t>(size / 2)), 0);
  EXPECT_FALSE(ReadJournal(journal_->fd(), "test", problem));
  EXPECT_EQ(::ftruncate(journal_->fd(), static_cast<off_t>(size)), 0);
}

TEST_F(JournalTest, IsBoundedAndGivesItsMemoryBack) {
  const auto memory = [&] {
    struct stat status = {};
    EXPECT_EQ(::fstat(journal_->fd(), &status), 0);
    return static_cast<size_t>(status.st_blocks) * 512;
  };
  const size_t before = memory();
  const std::string message(kLongest, 'm');
  size_t queued = 0;
  for (int client = 0; client < 16; ++client) {
    Modelled &full = clients_.emplace_back(*journal_, ++lastId_);
    for (; full.output.Push(BytesOf(message)); queued += message.size()) {
    }
  }
  journal_->Commit();
  EXPECT_GT(queued, 7u << 20) << "nearly all of it can be used";
  EXPECT_LT(queued, 8u << 20);
  // What has been sent in part must be followed by its rest.
  Modelled &partly = clients_.emplace_back(*journal_, ++lastId_);
  EXPECT_FALSE(partly.output.Push(BytesOf(message)));
  EXPECT_TRUE(partly.output.Push(BytesOf(message), 1));
  clients_.clear();
  journal_->Commit();
  EXPECT_LT(memory(), before + (1u << 20));
}

// Each step of a turn as the next server would find it.
TEST_F(JournalTest, KnowsHowFarATurnHasCome) {
  Modelled &from = clients_.emplace_back(*journal_, 1);
  Modelled &to = clients_.emplace_back(*journal_, 2);
  const auto turn = [&] {
    std::string problem;
    auto content = ReadJournal(journal_->fd(), "test", problem);
    EXPECT_TRUE(content) << problem;
    return content ? content->turn : JournalTurn{};
  };
  ASSERT_TRUE(from.slot.AppendInput(BytesOf("kept ")));
  ASSERT_EQ(::send(from.theirs.get(), "new", 3, 0), 3);
  BeginTurn(from.slot);
  EXPECT_EQ(TextOf(turn().buffer), "kept ");
  EXPECT_EQ(ReadInTurn(*journal_, from.ours.get(), {}), 3);
  EXPECT_EQ(TextOf(turn().buffer), "kept new");
  EXPECT_EQ(WriteInTurn(to.slot, to.ours.get(), 5, Receiver::kOnly), 5);
  EXPECT_EQ(turn().state.writeTo, to.slot.index());
  EXPECT_EQ(turn().written, 5u);
  CommitRouted(*journal_, 5, 2);
  EXPECT_EQ(turn().state.routed, 5u);
  EXPECT_EQ(turn().written, 0u);
  EXPECT_TRUE(EndTurn(from.slot, BytesOf("new")));
  EXPECT_EQ(turn().state.reader, journal::kNone);
  EXPECT_EQ(Read(*journal_)->at(1).input, "new");
  // A write that the kernel did not begin has written nothing.
  to.theirs.reset();
  BeginTurn(from.slot);
  EXPECT_EQ(WriteInTurn(to.slot, to.ours.get(), 3, Receiver::kOnly), -1);
  EXPECT_EQ(turn().written, 0u);
}

// Its receiver would take the next message for one without it.
TEST_F(JournalTest, ADescriptorFitsAQueueThatItsMessageHasFilled) {
  JournalSlot slot(*journal_, 1);
  OutputQueue output(slot, OutputQueue::CostOf(100));
  ASSERT_TRUE(output.Push(BytesOf(std::string(100, 'x'))));
  EXPECT_FALSE(output.Push(BytesOf("xx")));
  EXPECT_TRUE(output.Push(BytesOf("xx"), 0, UniqueFd(::dup(journal_->fd()))));
}

}  // namespace
}  // namespace zor::daemon
