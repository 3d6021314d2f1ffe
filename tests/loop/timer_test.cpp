#include <zor/systime.h>

#include <string>
#include <utility>

#include "loop/loop_fixture.h"

namespace zor::test {
namespace {

using Fields = std::pair<int32_t, int32_t>;

class Timer : public LoopTest {
 protected:
  // One timer pass at the given time.
  Fields PassAt(UvTime now) {
    loop_.now = now;
    UvTime timeout = {};
    EXPECT_EQ(ZOR_UV_RunTimers(&loop_, &timeout), ZOR_OK);
    return {timeout.seconds, timeout.microseconds};
  }
  static void Expire(UvTimer *timer, UvTime when) {
    timer->expirySeconds = when.seconds;
    timer->expiryMicroseconds = when.microseconds;
  }
};

TEST_F(Timer, AllThatAreDueFireInTheOrderOfRegistration) {
  std::string order;
  UvTimer *first = AddTimer(700, 0, [&] { order += 'a'; });
  UvTimer *second = AddTimer(1500, 2, [&] { order += 'b'; });
  UvTimer *third = AddTimer(400, 0, [&] { order += 'c'; });
  Expire(first, {100, 5});
  Expire(second, {90, 999999});
  Expire(third, {100, 6});
  EXPECT_EQ(PassAt({100, 5}), (Fields{0, 1})) << "what expires now is due, a microsecond later is not";
  EXPECT_EQ(order, "ab");
  EXPECT_EQ(first->expirySeconds, 100);
  EXPECT_EQ(first->expiryMicroseconds, 700005);
  EXPECT_EQ(second->repeatCount, 1u);
  EXPECT_EQ(second->expirySeconds, 101) << "1500 ms after the start of the iteration, however late it fired";
}

TEST_F(Timer, TheWaitLastsUntilTheNextExpiryOrTheIdleTime) {
  EXPECT_EQ(PassAt({5, 0}), (Fields{0x7fffffff, 0}));
  loop_.idleTimeMs = 2500;
  EXPECT_EQ(PassAt({5, 0}), (Fields{2, 500000}));
  AddTimer(0, 0, [] { FAIL() << "an interval of 0 never fires"; });
  EXPECT_EQ(PassAt({0x7fffffff, 0}), (Fields{2, 500000}));
  Expire(AddTimer(10, 1, [] {}), {7, 400000});
  EXPECT_EQ(PassAt({5, 300000}), (Fields{2, 100000}));
  EXPECT_EQ(ZOR_UV_RunTimers(&loop_, nullptr), ZOR_E_ARGUMENT);
}

TEST_F(Timer, OneThatACallbackStartsStillShortensTheWait) {
  UvTimer *parked = AddTimer(0, 0, [] {});
  const std::function<void()> starts[] = {
      [&] { ZOR_UTIL_TimerChgPeriod(parked, 300); },  // the walk is past it
      [&] { AddTimer(300, 1, [] {}); },
  };
  ZOR_SYS_TIME now, after;
  ZOR_UTIL_GetSysTime(&now);
  for (const auto &start : starts) {
    ZOR_UTIL_TimerChgPeriod(parked, 0);
    Expire(AddTimer(5000, 1, start), {0, 0});
    const auto wait = PassAt({static_cast<int32_t>(now.seconds), static_cast<int32_t>(now.microseconds)});
    ZOR_UTIL_GetSysTime(&after);
    EXPECT_LT(wait.first, 5 + static_cast<int64_t>(after.seconds) - static_cast<int64_t>(now.seconds));
  }
}

TEST_F(Timer, OneThatTheLastWatcherAddsIsVisitedInTheSamePass) {
  UvTimer *added = nullptr;
  Expire(AddTimer(10, 1,
                  [&] {
                    added = AddTimer(300, 1, [] {});
                    ZOR_UTIL_TimerDel(added);
                  }),
         {0, 0});
  PassAt({1, 0});
  EXPECT_NE(added->header.flags & UV_WATCHER_DELETED, 0u) << "it has no callback, which every visit notices";
}

TEST_F(Timer, TheIdleTimeOfAPassIsTheOneFromBeforeItsCallbacks) {
  const std::function<void()> changes[] = {
      [&] { ZOR_UV_LoopSetIdleTime(&loop_, 1000); },
      [&] {
        AddIdle([&] { Stop(); });
        EXPECT_EQ(Run(1000), ZOR_OK);
      },
  };
  for (const auto &change : changes) {
    loop_.idleTimeMs = 2000;
    Expire(AddTimer(5000, 1, change), {0, 0});
    EXPECT_EQ(PassAt({1, 0}), (Fields{2, 0}));
    EXPECT_EQ(ZOR_UV_LoopGetIdleTime(&loop_), 1000u) << "the next pass";
  }
}

TEST_F(Timer, OneThatAnIdleHookStartsEndsTheWait) {
  bool started = false;
  AddIdle([&] {
    if (!std::exchange(started, true)) AddTimer(1, 1, [&] { Stop(); });
  });
  EXPECT_EQ(Run(), ZOR_OK);
}

TEST_F(Timer, MayStopParkOrRestartItselfWhileItFires) {
  int stopped = 0;
  UvTimer *stopping = AddTimer(10, 0, [&] {
    ++stopped;
    ZOR_UTIL_TimerDel(stopping);
  });
  UvTimer *parking = AddTimer(10, 0, [&] { ZOR_UTIL_TimerChgPeriod(parking, 0); });
  UvTimer *restarting =
      AddTimer(10, 1, [&] { ZOR_UV_TimerStart(restarting, 20, 3, restarting->callback, restarting->header.data); });
  for (UvTimer *timer : {stopping, parking, restarting}) Expire(timer, {1, 0});
  PassAt({1, 0});
  EXPECT_EQ(restarting->repeatCount, 2u);
  EXPECT_EQ(parking->expirySeconds, 0x7fffffff);
  EXPECT_EQ(PassAt({1, 15000}), (Fields{0, 5000}));
  EXPECT_EQ(stopped, 1);
  EXPECT_NE(stopping->header.flags & UV_WATCHER_DELETED, 0u);
}

TEST_F(Timer, AChangedPeriodBoundsTheFirstExpiryOnly) {
  const std::pair<uint32_t, int64_t> cases[] = {{3, 10}, {20000, 20000}, {0x80000000, 0x7fffffff}};
  UvTimer *timer = AddTimer(1000, 7, [] {});
  for (const auto &[periodMs, firstMs] : cases) {
    ZOR_SYS_TIME before, after;
    ZOR_UTIL_GetSysTime(&before);
    ZOR_UTIL_TimerChgPeriod(timer, periodMs);
    ZOR_UTIL_GetSysTime(&after);
    const auto since = [&](const ZOR_SYS_TIME &time) {
      return (int64_t{timer->expirySeconds} - time.seconds) * 1000 +
             (int64_t{timer->expiryMicroseconds} - time.microseconds) / 1000;
    };
    EXPECT_LE(since(after), firstMs + 1);
    EXPECT_GE(since(before), firstMs - 1000);
  }
  ZOR_UTIL_TimerChgPeriod(timer, 0);
  EXPECT_EQ(timer->expirySeconds, 0x7fffffff);
  EXPECT_EQ(timer->repeatCount, 7u);
}

TEST(TimerGetIntv, ClampsEachFieldByItself) {
  const struct {
    UvTime later, earlier;
    Fields expected;
  } cases[] = {{{5, 200}, {4, 300}, {0, 999900}}, {{5, 300}, {4, 200}, {1, 100}}, {{4, 300}, {5, 200}, {0, 100}}};
  for (const auto &each : cases) {
    UvTime inPlace = each.later;
    ZOR_UTIL_TimerGetIntv(&inPlace, &each.earlier, &inPlace);
    EXPECT_EQ((Fields{inPlace.seconds, inPlace.microseconds}), each.expected);
  }
}

}  // namespace
}  // namespace zor::test
