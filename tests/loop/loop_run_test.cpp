#include <sys/time.h>

#include <csignal>
#include <vector>

#include "loop/loop_fixture.h"

namespace zor::test {
namespace {

using LoopRun = LoopTest;

TEST_F(LoopRun, AStopIsSeenBeforeTheWaitOrAfterTheIteration) {
  UvTimer *timer = AddTimer(1, 1, [&] { Stop(); });
  timer->expirySeconds = 0;
  EXPECT_EQ(Run(), ZOR_OK);
  EXPECT_EQ(ZOR_UV_LoopGetCurIdx(&loop_), 0u);

  const LoopSocketPair pair;
  pair.MakeReadable();
  AddWatcher(pair.near, UV_READABLE, [&](uint32_t) { Stop(); });
  EXPECT_EQ(Run(), ZOR_OK);
  EXPECT_EQ(loop_.iteration, 1u);
  Stop();
  EXPECT_EQ(Run(), ZOR_OK);
  EXPECT_EQ(loop_.iteration, 0u) << "a stop beforehand ends the next run";
}

TEST_F(LoopRun, EndsWhenIdleUnlessATimerIsDueWithinTheWholeSeconds) {
  int fired = 0;
  UvTimer *timer = AddTimer(800, 0, [&] { ++fired; });
  EXPECT_EQ(Run(900), ZOR_E_TIMEOUT) << "less than a second counts as none: the first wait without events ends the run";
  EXPECT_EQ(fired, 0);
  EXPECT_EQ(loop_.iteration, 1u);

  ZOR_UTIL_TimerDel(timer);
  AddTimer(30, 1, [&] {
    ++fired;
    ZOR_UV_LoopSetIdleTime(&loop_, 50);
  });
  EXPECT_EQ(Run(1500), ZOR_E_TIMEOUT);
  EXPECT_EQ(fired, 1);
  EXPECT_EQ(ZOR_UV_LoopGetIdleTime(&loop_), 50u);
}

TEST_F(LoopRun, ReportsAFailedSelectAndGoesOnAfterASignal) {
  Capture output;
  AddIdle([&] {
    const UvTime negative = {-1, 0};
    if (loop_.iteration == 1) ZOR_UV_LoopUpdateSelectTimeout(&loop_, &negative);
  });
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  ::sigaction(SIGALRM, &action, nullptr);
  const struct itimerval everyTenth = {{0, 100000}, {0, 20000}};
  ::setitimer(ITIMER_REAL, &everyTenth, nullptr);
  EXPECT_EQ(Run(), ZOR_E_IO);
  const struct itimerval never = {};
  ::setitimer(ITIMER_REAL, &never, nullptr);
  EXPECT_EQ(loop_.iteration, 2u);
  EXPECT_EQ(output.Text(), "Sock base select err 22.\n");
}

TEST_F(LoopRun, LowersTheSelectTimeoutFieldByField) {
  const std::pair<UvTime, UvTime> cases[] = {{{7, 100}, {5, 100}}, {{4, 999}, {4, 999}}, {{6, 901}, {5, 900}}};
  for (const auto &[update, expected] : cases) {
    loop_.selectTimeout = {5, 900};
    ZOR_UV_LoopUpdateSelectTimeout(&loop_, &update);
    EXPECT_EQ(loop_.selectTimeout.seconds, expected.seconds);
    EXPECT_EQ(loop_.selectTimeout.microseconds, expected.microseconds);
  }
}

TEST_F(LoopRun, SweepsDeletedWatchersUnlessTheyAreStartedAgain) {
  UvIdle *revived = AddIdle([] {});
  UvIdle *deleted = AddIdle([] {});
  EXPECT_EQ(loop_.activeCount, 2u);
  ZOR_UV_IdleStop(revived);
  ZOR_UV_IdleStop(deleted);
  EXPECT_EQ(loop_.activeCount, 0u);
  ZOR_UV_WatcherStart(&revived->header);
  AddTimer(1, 2, [&] {
    if (!IsListed(deleted)) Stop();
  });
  EXPECT_EQ(Run(), ZOR_OK);
  EXPECT_TRUE(IsListed(revived));
  EXPECT_FALSE(IsListed(deleted));
}

TEST_F(LoopRun, DeferredBlocksOutliveTheTurnThatQueuedThem) {
  Trace trace({"loop"});
  EXPECT_EQ(ZOR_UV_LoopSafeFree(&loop_, std::malloc(8)), ZOR_OK) << "queued outside a run";
  EXPECT_EQ(ZOR_UV_LoopSafeFree(&loop_, nullptr), ZOR_OK);
  AddTimer(1, 1, [&] { EXPECT_EQ(ZOR_UV_LoopSafeFree(&loop_, std::malloc(8)), ZOR_OK); })->expirySeconds = 0;
  AddTimer(1, 0, [] {});
  std::vector<int> freed;
  AddIdle([&] {
    freed.push_back(trace.Count("Safe free data"));
    if (freed.size() == 2) Stop();
  });
  EXPECT_EQ(Run(), ZOR_OK);
  EXPECT_THAT(freed, testing::ElementsAre(2, 3));
  EXPECT_EQ(ZOR_UV_LoopSafeFree(&loop_, std::malloc(8)), ZOR_OK);
  ZOR_UV_LoopDestroy(&loop_);
  EXPECT_EQ(trace.Count("Safe free data"), 4);
  EXPECT_EQ(loop_.watchers, nullptr);
}

TEST(DefaultLoop, StandsForANullLoopExceptWhereStoppingIsAsked) {
  UvLoop *loop = ZOR_UV_LoopGetDefault();
  ZOR_UV_LoopSetIdleTime(nullptr, 7);
  EXPECT_EQ(loop->idleTimeMs, 7u);
  ZOR_UV_LoopStop(nullptr);
  EXPECT_EQ(loop->flags, UV_LOOP_INITIALISED);
  ZOR_UV_IdleStart(nullptr, [](UvIdle *idle, uint32_t) { ZOR_UV_LoopStop(idle->header.loop); });
  EXPECT_EQ(ZOR_UV_LoopRun(nullptr, 0), ZOR_OK);
  ZOR_UV_LoopDestroy(loop);
}

}  // namespace
}  // namespace zor::test
