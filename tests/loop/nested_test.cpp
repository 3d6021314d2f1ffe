// Callbacks that run the loop again, delete what is being walked, or destroy the loop. The sanitizers see every use of
// a record that was freed too early.
#include <cstring>
#include <string>

#include "loop/loop_fixture.h"

namespace zor::test {
namespace {

class Nested : public LoopTest {
 protected:
  // Runs the loop from inside a callback, until the watcher is swept.
  void RunUntilSwept(const void *watcher) {
    UvTimer *tick = AddTimer(1, 0, [this, watcher] {
      if (!IsListed(watcher)) Stop();
    });
    EXPECT_EQ(Run(), ZOR_OK);
    ZOR_UTIL_TimerDel(tick);
  }
};

TEST_F(Nested, ATimerIsNotCalledAgainWhileItsCallbackRuns) {
  int calls = 0;
  int others = 0;
  UvTimer *other = nullptr;
  UvTimer *timer = AddTimer(1, 0, [&] {
    ++calls;
    ZOR_UV_TimerDelete(timer);
    RunUntilSwept(timer);
    EXPECT_EQ(timer->intervalMs, 1u) << "the record outlives its callback";
    other->expirySeconds = 0;
    Stop();
  });
  other = AddTimer(1, 0, [&] { ++others; });
  timer->expirySeconds = other->expirySeconds = 0;
  EXPECT_EQ(Run(), ZOR_OK);
  EXPECT_EQ(calls, 1);
  EXPECT_GE(others, 2) << "other timers fire in the nested run and after it";
  EXPECT_FALSE(IsListed(timer));
}

TEST_F(Nested, AWalkGoesOnBehindWatchersThatWereSweptMeanwhile) {
  const LoopSocketPair pairs[3];
  for (const LoopSocketPair &pair : pairs) pair.MakeReadable();
  std::string calls;
  UvIO *watchers[3] = {};
  watchers[0] = AddWatcher(pairs[0].near, UV_READABLE, [&](uint32_t) {
    calls += '(';
    ZOR_UV_IODelete(watchers[0]);
    ZOR_UV_IODelete(watchers[1]);
    ZOR_UV_IOStop(watchers[2], UV_READABLE);
    RunUntilSwept(watchers[1]);
    EXPECT_EQ(watchers[0]->fd, -1);
    calls += ')';
  });
  watchers[1] = AddWatcher(pairs[1].near, UV_READABLE, [&](uint32_t) { calls += '1'; });
  watchers[2] = AddWatcher(pairs[2].near, UV_READABLE, [&](uint32_t) {
    calls += '2';
    Stop();
  });
  EXPECT_EQ(Run(), ZOR_OK);
  EXPECT_EQ(calls, "()2") << "stopped since the wait, but found ready by it";
  EXPECT_FALSE(IsListed(watchers[0]));
}

TEST_F(Nested, ForcedEventsOfSweptWatchersAreForgotten) {
  UvIO *swept = AddWatcher(-1, 0, [](uint32_t) { FAIL(); });
  UvIO *first = AddWatcher(-1, 0, [&](uint32_t) {
    ZOR_UV_IODelete(swept);
    ZOR_UV_IODelete(first);
    RunUntilSwept(swept);
    EXPECT_EQ(first->fd, -1);
    Stop();
  });
  ZOR_UV_IOForcedLoop(first, UV_READABLE);
  ZOR_UV_IOForcedLoop(swept, UV_READABLE);
  EXPECT_EQ(Run(), ZOR_OK);
  EXPECT_EQ(loop_.forcedEvents, nullptr);
}

TEST_F(Nested, DeferredBlocksSurviveRunsInsideTheTurnThatQueuedThem) {
  AddTimer(1, 1, [&] {
    auto *block = static_cast<char *>(std::malloc(8));
    ZOR_UV_LoopSafeFree(&loop_, block);
    UvIdle *hook = AddIdle([] {});
    ZOR_UV_IdleStop(hook);
    RunUntilSwept(hook);
    std::memset(block, 0, 8);
    Stop();
  });
  EXPECT_EQ(Run(), ZOR_OK);
}

TEST_F(Nested, TheLoopMayBeDestroyedByACallbackOfAnyKind) {
  const LoopSocketPair pair;
  pair.MakeReadable();
  const auto destroy = [&] {
    ZOR_UV_LoopDestroy(&loop_);
    Stop();
  };
  const std::function<void()> arrange[] = {
      [&] { AddTimer(1, 1, destroy); },
      [&] { AddIdle(destroy); },
      [&] { AddWatcher(pair.near, UV_READABLE, [&](uint32_t) { destroy(); }); },
      [&] { ZOR_UV_IOForcedLoop(AddWatcher(-1, 0, [&](uint32_t) { destroy(); }), UV_READABLE); },
  };
  for (const auto &add : arrange) {
    add();
    AddTimer(1, 0, [] {});
    AddWatcher(pair.far, 0, [](uint32_t) {});
    EXPECT_EQ(Run(), ZOR_OK);
    EXPECT_EQ(loop_.watchers, nullptr);
  }
}

TEST_F(Nested, AHookThatTheLastWatcherAddsWaitsForTheNextTurn) {
  uint64_t calledIn = 0;
  bool added = false;
  AddTimer(1, 0, [] {});
  AddIdle([&] {
    if (added) return;
    added = true;
    AddIdle([&] {
      calledIn = loop_.iteration;
      Stop();
    });
  });
  EXPECT_EQ(Run(), ZOR_OK);
  EXPECT_EQ(calledIn, 1u) << "or a hook that replaces itself would never let the pass end";
}

}  // namespace
}  // namespace zor::test
