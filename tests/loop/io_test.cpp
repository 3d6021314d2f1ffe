#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "loop/loop_fixture.h"

namespace zor::test {
namespace {

using testing::ElementsAre;

class Io : public LoopTest {
 protected:
  // Runs until the loop has waited the given number of times with events to report.
  void RunTurns(uint64_t turns) {
    AddIdle([this, turns] {
      if (loop_.iteration >= turns) Stop();
    });
    EXPECT_EQ(Run(), ZOR_OK);
  }
};

// A loopback connection with a byte, an urgent byte and room to write: all three events at once.
int BusySocket() {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int near = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
  socklen_t length = sizeof address;
  auto *generic = reinterpret_cast<sockaddr *>(&address);
  const bool connected = ::bind(listener, generic, length) == 0 && ::listen(listener, 1) == 0 &&
                         ::getsockname(listener, generic, &length) == 0 && ::connect(near, generic, length) == 0;
  if (!connected || ::send(::accept(listener, nullptr, nullptr), "x!", 2, MSG_OOB) != 2) std::abort();
  pollfd urgent = {near, POLLPRI, 0};
  return ::poll(&urgent, 1, 5000) == 1 ? near : -1;
}

TEST_F(Io, RefusesWhatSelectCannotWaitForAndChangesNothing) {
  auto *watcher = NewRecord<UvIO>();
  EXPECT_EQ(ZOR_UV_IOInit(&loop_, watcher, 1024, nullptr), ZOR_E_ARGUMENT);
  EXPECT_EQ(loop_.watchers, nullptr);
  EXPECT_EQ(ZOR_UV_IOStart(watcher, UV_READABLE), ZOR_E_ARGUMENT);
  EXPECT_EQ(ZOR_UV_IOInit(&loop_, watcher, 1023, nullptr), ZOR_OK);
  EXPECT_EQ(ZOR_UV_LoopGetMaxFd(&loop_), 1023);
}

TEST_F(Io, DeletingClosesAndADeletedWatcherKeepsNoDescriptor) {
  const LoopSocketPair pair;
  UvIO *watcher = AddWatcher(pair.near, UV_READABLE, [](uint32_t) { FAIL(); });
  pair.MakeReadable();
  EXPECT_EQ(ZOR_UV_IOFindByFd(&loop_, pair.near), watcher);
  EXPECT_EQ(ZOR_UV_IODelete(watcher), ZOR_OK);
  EXPECT_EQ(::fcntl(pair.near, F_GETFD), -1);
  EXPECT_EQ(ZOR_UV_IOFindByFd(&loop_, pair.near), nullptr);
  EXPECT_EQ(ZOR_UV_IOFindByFd(&loop_, -1), watcher);
  EXPECT_EQ(ZOR_UV_IODelete(watcher), ZOR_OK);
  EXPECT_EQ(Run(10), ZOR_E_TIMEOUT);
}

TEST_F(Io, CallsForReadingThenExceptionsThenWriting) {
  std::vector<uint32_t> events;
  AddWatcher(BusySocket(), 7, [&](uint32_t event) { events.push_back(event); });
  RunTurns(1);
  EXPECT_THAT(events, ElementsAre(UV_READABLE, UV_EXCEPTIONAL, UV_WRITABLE));
}

TEST_F(Io, ADeletedWatcherIsFreedByTheNextPassOfTheSameTurn) {
  const LoopSocketPair pair;
  pair.MakeReadable();
  const UvIO *self = AddWatcher(pair.near, UV_READABLE, [&](uint32_t) {
    ZOR_UV_IODelete(ZOR_UV_IOFindByFd(&loop_, pair.near));
    Stop();
  });
  EXPECT_EQ(Run(), ZOR_OK);
  EXPECT_FALSE(IsListed(self));
}

TEST_F(Io, AWatcherClosedBehindTheLoopIsNotCalledAndThenDisarmed) {
  const LoopSocketPair one, other;
  one.MakeReadable();
  other.MakeReadable();
  AddWatcher(one.near, UV_READABLE, [&](uint32_t) { ::close(other.near); });
  UvIO *closed = AddWatcher(other.near, UV_READABLE, [](uint32_t) { FAIL(); });
  RunTurns(2);
  EXPECT_EQ(closed->fd, -1);
  EXPECT_TRUE(IsListed(closed));
  EXPECT_FALSE(FD_ISSET(other.near, &loop_.readSet));
}

TEST_F(Io, ABadDescriptorInTheOtherSetsDoesNotSpinTheLoop) {
  const LoopSocketPair pair;
  AddWatcher(pair.near, UV_WRITABLE | UV_EXCEPTIONAL, [](uint32_t) { FAIL(); });
  ::close(pair.near);
  EXPECT_EQ(Run(20), ZOR_E_TIMEOUT);
  EXPECT_EQ(loop_.iteration, 3u) << "one to disarm the watcher, one to drop its bits, one that waits";
}

TEST_F(Io, AForcedEventRunsOnceInTheNextTurnAndHoldsBackReadyDescriptors) {
  const LoopSocketPair pair;
  pair.MakeReadable();
  std::vector<uint64_t> turns;
  AddWatcher(pair.near, UV_READABLE, [&](uint32_t) { turns.push_back(100 + loop_.iteration); });
  UvIO *forced = AddWatcher(-1, 0, [&](uint32_t event) {
    turns.push_back(event * 10 + loop_.iteration);
    if (turns.size() < 3) ZOR_UV_IOForcedLoop(forced, 2);
  });
  EXPECT_EQ(ZOR_UV_IOForcedLoop(forced, 6), ZOR_OK);
  RunTurns(4);
  EXPECT_THAT(turns, ElementsAre(60, 21, 22, 103));
}

TEST_F(Io, ARealEventTakesTheForcedOneAwayAndADeletedWatcherGetsNone) {
  const LoopSocketPair pairs[3];
  for (const LoopSocketPair &pair : pairs) pair.MakeReadable();
  int calls = 0;
  UvIO *watchers[3] = {};
  watchers[0] = AddWatcher(pairs[0].near, UV_READABLE, [&](uint32_t) {
    if (loop_.iteration != 0) return;
    for (UvIO *watcher : watchers) ZOR_UV_IOForcedLoop(watcher, UV_READABLE);
    ZOR_UV_IODelete(watchers[2]);
  });
  watchers[1] = AddWatcher(pairs[1].near, UV_READABLE, [&](uint32_t) { ++calls; });
  watchers[2] = AddWatcher(pairs[2].near, UV_READABLE, [](uint32_t) { FAIL(); });
  RunTurns(2);
  EXPECT_EQ(calls, 1) << "the second turn was the forced event of the first watcher";
  EXPECT_EQ(loop_.forcedEvents, nullptr);
  EXPECT_FALSE(IsListed(watchers[2]));
}

}  // namespace
}  // namespace zor::test
