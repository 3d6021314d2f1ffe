// The message server's state: what is written down is restored, and what is damaged does no harm.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <memory>

#include "msgsvr/input.h"
#include "msgsvr/recorded_time.h"
#include "msgsvr/restoration.h"
#include "programs/inheritance.h"
#include "programs/settings.h"
#include "support/temp_root.h"

namespace zor::msgsvr {
namespace {

AppName::Field Field(const char *name) {
  return AppName(name).field();
}

std::vector<std::byte> FrameOf(const char *to) {
  return BuildFrame(0x1234, 5, AppName(to), 6, std::as_bytes(std::span("body", 4)));
}

class MsgsvrState : public testing::Test {
 protected:
  MsgsvrState() {
    for (int &number : numbers_) {
      int ends[2];
      EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
      peers_.emplace_back(ends[0]);
      sockets_.emplace_back(ends[1]);
      number = ::fcntl(ends[1], F_DUPFD_CLOEXEC, 200);  // far from what a server opens
      reserved_.emplace_back(number);
    }
  }

  // With every member different from its default.
  ClientRecord Rich(uint64_t id, const char *name, uint64_t order) const {
    const int64_t now = Nanoseconds(Clock::now());
    ClientRecord record;
    record.standing = {
        id,
        Field(name),
        order,
        true,
        12,
        34,
        56,
        {0, 3, 255},
        true,
        7,
        now,
        true,
        {true, 8, 9, {{0x2DA05, 4}}},
        {{order, "/a"}, {order + 2, "/b|/c"}},
        BarrierRecord{order, Field("gate"), 1, 2, 3},
        Monitors::State{{"", 3, 1, 100}, 11},
        access::Identity{12, {{3, 4}}, "/usr/bin/" + std::string(name), "a.service", std::nullopt, std::nullopt}};
    record.queueBytes = 2000000;
    record.queue = {{FrameOf(name), 3, -1}, {FrameOf(name), 0, -1}};
    record.partial = std::vector<std::byte>(10, std::byte{1});
    record.lastTarget = 5;
    record.counters = {1, 2, 3, 4, 5};
    record.pending = {{AppName("other"), 1, 2, 3, 4}};
    record.deliveries = {{{50, 1, 2, 3, 5}}, {{9, "msg_file_1"}}, 9};
    record.flows.counts[1] = {5, 6, 7};
    record.flows.rates[2] = {6, 7, 8};
    record.refusals = {1, 2, 3, true, 4, true, true};
    record.reset = record.hungUp = record.stalled = true;
    record.flushes = 21;
    record.unsentWhenStalled = 22;
    record.pause = PauseRecord{5, now + 1000000000, now, 23, 24};
    return record;
  }
  ServerState RichState() const {
    ServerState state;
    state.bus.standing = {
        Nanoseconds(Clock::now()) - 5000000000, 9, {{Field("late"), {4, 5}}}, {Field("post")}, {{Field("gone"), 6}}};
    state.bus.counters = {7, 8, 9, 10, 11};
    state.bus.watch = {10, 11, true, {{{{5, 1}, {6, 2}}, true, true, 12, 13}}, {{{5, 6}, 14, 15, true, false}}};
    state.restartFor = RestartRequest{5, 16, 17};
    state.clients = {Rich(5, "one", 2), Rich(6, "one", 1), {}, Rich(8, "deaf", 0)};
    ClientRecord &newcomer = state.clients[2];
    newcomer.standing.id = 7;
    newcomer.standing.local = true;
    newcomer.standing.identity.emplace().board = 5;
    newcomer.standing.lastReport = newcomer.standing.since = 1;
    newcomer.halfDescriptor = numbers_[4];
    newcomer.partial = {std::byte{0}};
    newcomer.queueBytes = 2000000;
    newcomer.queue = {{std::vector<std::byte>(2), 0, numbers_[5]}};
    newcomer.registerBy = Nanoseconds(Clock::now()) + 1000000000;
    ClientRecord &deaf = state.clients[3];
    deaf.standing.registration = 0;
    deaf.standing.patterns.clear();
    deaf.standing.barrier.reset();
    deaf.standing.monitor.reset();
    deaf.deaf = true;
    deaf.standing.local = false;
    deaf.standing.throughTunnel = true;
    deaf.standing.board = "modem";
    deaf.standing.boardAddress = 18;
    deaf.standing.otherOrder = true;
    deaf.standing.identity = IdentityOf(TunnelledBoard{"modem", 18});
    for (size_t i = 0; i < state.clients.size(); ++i) state.clients[i].socket = numbers_[i];
    return state;
  }
  static std::vector<std::byte> BytesOf(const ServerState &state) {
    ServerStateWriter writer(state.listeners, state.bus, state.restartFor);
    for (const ClientRecord &client : state.clients) writer.Add(client);
    return ContentOf(writer);
  }
  static std::vector<std::byte> ContentOf(ServerStateWriter &writer) {
    const UniqueFd file = writer.Finish();
    const daemon::MappedState mapped(file.get());
    return {mapped.bytes().begin(), mapped.bytes().end()};
  }

  // A server that takes over a state.
  struct Successor {
    Successor(const MsgsvrState &test, const ServerState &state)
        : bus(test.settings_, *journal, test.root_.Path("/messages/"), test.log_) {
      for (size_t i = 0; i < test.numbers_.size(); ++i) {
        descriptors.Add(UniqueFd(::dup3(test.sockets_[i].get(), test.numbers_[i], O_CLOEXEC)));
      }
      Restoration(parts, descriptors).Run(state);
    }
    std::unique_ptr<daemon::Journal> journal = daemon::Journal::Create("msgsvr", {10, 1 << 20, kInputBuffer});
    std::vector<std::byte> WriteDown() {
      ServerStateWriter writer({}, BusRecordOf(bus, watch), bus.restartFor);
      AddClients(parts, writer);
      return ContentOf(writer);
    }
    Bus bus;
    Newcomers newcomers{std::chrono::seconds(10)};
    PausedSenders pausedSenders;
    TrafficWatch watch{bus};
    ServerParts parts{bus, newcomers, pausedSenders, watch};
    daemon::DescriptorSet descriptors;
  };

  test::TempRoot root_;
  mutable daemon::ProblemLog log_{"msgsvr"};
  daemon::Settings file_ = daemon::Settings::FromFile(root_.Path("/none"), false);
  BusSettings settings_ = ReadSettings(file_);
  std::vector<UniqueFd> peers_, sockets_, reserved_;
  std::array<int, 6> numbers_{};
};

TEST_F(MsgsvrState, IsWholeAfterARestoration) {
  ServerState state = RichState();
  std::string problem;
  const auto bytes = BytesOf(state);
  const auto read = ReadState(bytes, problem);
  ASSERT_TRUE(read) << problem;
  EXPECT_EQ(ProblemOf(*read), "");
  for (UniqueFd &fd : reserved_) fd.reset();
  Successor successor(*this, *read);
  EXPECT_EQ(successor.bus.names.Oldest(AppName("one")), successor.bus.Find(6)) << "it has registered first";
  EXPECT_EQ(successor.bus.Find(8)->deaf, true);
  EXPECT_EQ(successor.WriteDown(), bytes);
}

TEST_F(MsgsvrState, WithoutAnIdentityOnlyTheSocketIsBelieved) {
  ServerState state = RichState();
  state.clients[0].standing.uid = ::geteuid();
  state.clients[1].standing.uid = ::geteuid() + 1;
  for (ClientRecord &client : state.clients) client.standing.identity.reset();
  for (UniqueFd &fd : reserved_) fd.reset();
  Successor successor(*this, state);
  const auto identity = [&](uint64_t id) {
    return successor.bus.guard.IdentityOf(successor.bus.Find(id)->admission.subject());
  };
  EXPECT_EQ(identity(5).user, ::geteuid());
  EXPECT_TRUE(identity(5).groups);
  EXPECT_FALSE(identity(5).unit || identity(5).executable) << "the process may be another one by now";
  EXPECT_EQ(identity(6), access::Identity()) << "the record names another user";
  EXPECT_EQ(identity(8).certificate, "modem");
}

// The sanitizers notice what is read out of bounds. Whatever reads as a state is taken over and ended again.
TEST_F(MsgsvrState, DoesNoHarmWhenItIsDamaged) {
  for (UniqueFd &fd : reserved_) fd.reset();
  const auto intact = BytesOf(RichState());
  size_t understood = 0;
  for (size_t bit = 0; bit < intact.size() * 8; bit += 19) {
    auto damaged = intact;
    damaged[bit / 8] ^= std::byte{1} << (bit % 8);
    std::string problem;
    const auto state = ReadState(damaged, problem);
    EXPECT_EQ(state.has_value(), problem.empty());
    if (!state) continue;
    ++understood;
    Successor successor(*this, *state);
    const auto bytes = successor.WriteDown();
    const auto restored = ReadState(bytes, problem);
    ASSERT_TRUE(restored) << bit << ": " << problem;
    EXPECT_EQ(ProblemOf(*restored), "") << bit;
    for (Client &client : successor.bus.clients) successor.bus.End(client);
    successor.bus.Sweep();
  }
  EXPECT_GT(understood, intact.size() / 8);
}

}  // namespace
}  // namespace zor::msgsvr
