// Slow handlers: what is counted, for whom, and what is left alone.
#include <sys/stat.h>
#include <sys/wait.h>
#include <zor/event.h>
#include <zor/msg.h>
#include <zor/sockbase.h>
#include <zor/uv_lag.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>
#include <vector>

#include "common/lag_page.h"
#include "loop/loop_fixture.h"
#include "support/temp_root.h"

namespace zor::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kHoldUs = 3000;
constexpr uint32_t kSlowUs = 2000;

uint64_t MicrosecondsSince(Clock::time_point start) {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count());
}

void Hold() {
  for (const auto start = Clock::now(); MicrosecondsSince(start) < kHoldUs;) {
  }
}

ZOR_MSG_HEAD Message(uint32_t type, const char *source) {
  ZOR_MSG_HEAD msg = {};
  msg.type = type;
  std::strncpy(msg.source, source, sizeof msg.source - 1);
  return msg;
}

void Receive(uint32_t type, const char *source) {
  ZOR_MSG_HEAD msg = Message(type, source);
  ZOR_MSG_MsgFilterProc(&msg, 0);
}

struct Slow {
  uint32_t kind;
  uint32_t type;
  std::string name, source;
  uint32_t heldUs;
};

class Lag : public LoopTest {
 protected:
  ~Lag() override { ZOR_UV_LagStop(); }

  uint32_t Start(uint32_t thresholdUs = kSlowUs, uint32_t flags = 0) {
    const ZOR_UV_LAG_OPTIONS options = {thresholdUs, flags, OnSlow, this};
    return ZOR_UV_LagStart(&options);
  }
  static ZOR_UV_LAG Read() {
    ZOR_UV_LAG figures = {};
    EXPECT_EQ(ZOR_UV_LagRead(&figures), ZOR_OK);
    return figures;
  }
  void RunOnce(std::function<void()> action) {
    AddTimer(1, 1, [this, action] {
      action();
      Stop();
    });
    EXPECT_EQ(Run(), ZOR_OK);
  }
  // The first slow call of that kind and type; other callbacks may be slow too on a busy machine.
  const Slow *Find(uint32_t kind, uint32_t type) const {
    for (const Slow &each : slow_) {
      if (each.kind == kind && each.type == type) return &each;
    }
    return nullptr;
  }

  std::vector<Slow> slow_;
  std::function<void()> onSlow_;

 private:
  static void OnSlow(const ZOR_UV_LAG_CALLBACK *callback, uint32_t heldUs, void *data) {
    auto &self = *static_cast<Lag *>(data);
    self.slow_.push_back({callback->kind, callback->type, callback->name, callback->source, heldUs});
    if (self.onSlow_) self.onSlow_();
  }
};

// Each makes its kind of callback hold the loop.
struct Held {
  const char *what;
  uint32_t kind;
  uint32_t type;
  const char *source;
  void (*act)(UvLoop *loop);
};

void HoldInReply(UvLoop *loop) {
  static const LoopSocketPair pair;
  auto *watcher = NewRecord<UvMsgWatcher>();
  watcher->headerLength = ZOR_MSG_HEAD_SIZE;
  watcher->getPayloadLength = [](ZOR_MSG_HEAD *, uint32_t *) { return 0U; };
  watcher->matchReply = [](const ZOR_MSG_HEAD *, uint32_t, uint32_t) { return 1U; };
  ZOR_UV_MsgInit(loop, watcher, pair.near, nullptr);
  ZOR_UV_MsgStart(watcher);
  ZOR_UV_MsgStartWatcher(watcher, 0, 0, 600000, loop, [](ZOR_MSG_HEAD *, uint32_t, void *data) {
    Hold();
    ZOR_UV_LoopStop(static_cast<UvLoop *>(data));
  });
  const ZOR_MSG_HEAD reply = Message(0x4001, "cook");
  if (::write(pair.far, &reply, sizeof reply) != sizeof reply) std::abort();
}

void HoldInIdle(UvLoop *loop) {
  ZOR_UV_IdleStart(loop, [](UvIdle *hook, uint32_t) {
    Hold();
    ZOR_UV_LoopStop(hook->header.loop);
  });
}

void HoldInDescriptor(UvLoop *loop) {
  auto *watcher = NewRecord<UvIO>();
  ZOR_UV_IOInit(loop, watcher, -1, [](UvIO *io, uint32_t) {
    Hold();
    ZOR_UV_LoopStop(io->header.loop);
  });
  ZOR_UV_IOForcedLoop(watcher, UV_READABLE);
}

void HoldInProcedure(UvLoop *loop) {
  ZOR_MSG_RegisterMsgProc([](ZOR_MSG_HEAD *, uint32_t) { Hold(); });
  Receive(0x4002, "waiter");
  ZOR_UV_LoopStop(loop);
}

void HoldInHandler(UvLoop *loop) {
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  const auto handler = [](ZOR_MSG_HEAD *msg) {
    Hold();
    *msg = Message(0x5555, "liar");  // for its reply
  };
  ZOR_MSG_RegMsgProc(0x4003, handler, 0, nullptr);
  Receive(0x4003, "guest");
  ZOR_UV_LoopStop(loop);
}

void HoldInEvent(UvLoop *loop) {
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_EVT_SubscribeAllEventCallBack([](uint32_t, const char *, uint32_t) {
    Hold();
    return ZOR_OK;
  });
  Receive(ZOR_EVT_JSON_FIRST, "");
  ZOR_UV_LoopStop(loop);
}

void HoldInChild(UvLoop *loop) {
  char name[] = "true";
  char *arguments[] = {name, nullptr};
  UvProcessOptions options = {};
  options.file = name;
  options.args = arguments;
  options.data = loop;
  options.exitCallback = [](UvProcess *process, int32_t, int32_t, int32_t) {
    Hold();
    ZOR_UV_LoopStop(static_cast<UvLoop *>(process->header.data));
  };
  if (ZOR_UV_ProcessSpawn(nullptr, nullptr, &options) != ZOR_OK) std::abort();
  ZOR_UV_LoopRun(nullptr, 0);
}

TEST_F(Lag, EveryKindOfCallbackIsNamed) {
  constexpr Held kAll[] = {
      {"reply", ZOR_UV_LAG_REPLY, 0x4001, "cook", HoldInReply},
      {"idle", ZOR_UV_LAG_IDLE, 0, "", HoldInIdle},
      {"descriptor", ZOR_UV_LAG_DESCRIPTOR, 0, "", HoldInDescriptor},
      {"procedure", ZOR_UV_LAG_PROCEDURE, 0x4002, "waiter", HoldInProcedure},
      {"handler", ZOR_UV_LAG_HANDLER, 0x4003, "guest", HoldInHandler},
      {"event", ZOR_UV_LAG_HANDLER, ZOR_EVT_JSON_FIRST, "", HoldInEvent},
  };
  for (const Held &held : kAll) {
    SCOPED_TRACE(held.what);
    slow_.clear();
    ASSERT_EQ(Start(), ZOR_OK);
    const auto start = Clock::now();
    AddTimer(1, 1, [&] { held.act(&loop_); });
    EXPECT_EQ(Run(), ZOR_OK);
    const uint64_t elapsedUs = MicrosecondsSince(start);
    const Slow *slow = Find(held.kind, held.type);
    ASSERT_NE(slow, nullptr);
    EXPECT_GE(slow->heldUs, kHoldUs);
    EXPECT_EQ(slow->source, held.source);
    EXPECT_THAT(slow->name, testing::MatchesRegex("test_loop\\+0x[0-9a-f]+"));
    const ZOR_UV_LAG figures = Read();
    uint64_t sumUs = 0;
    for (uint32_t kind = ZOR_UV_LAG_TIMER; kind < ZOR_UV_LAG_KINDS; ++kind) sumUs += figures.times[kind].totalUs;
    EXPECT_LE(sumUs, elapsedUs) << "every moment counts once";
    EXPECT_GE(figures.times[held.kind].slowCount, 1u);
    EXPECT_GE(figures.times[held.kind].longestUs, kHoldUs);
    ZOR_UV_LoopDestroy(&loop_);
  }
  ASSERT_EQ(Start(), ZOR_OK);
  HoldInChild(ZOR_UV_LoopGetDefault());
  EXPECT_NE(Find(ZOR_UV_LAG_CHILD, 0), nullptr);
}

// What a callback waits for in the same loop is not its own time; what it waits for elsewhere is.
TEST_F(Lag, WaitsOfTheSameLoopCountForNobody) {
  constexpr uint32_t kWaitMs = 200;
  const auto ownUs = [&](UvLoop *inner) {
    EXPECT_EQ(Start(1), ZOR_OK);
    RunOnce([&] {
      auto *timer = NewRecord<UvTimer>();
      ZOR_UV_TimerInit(inner, timer);
      ZOR_UV_TimerStart(
          timer, kWaitMs, 1, [](void *data) { ZOR_UV_LoopStop(static_cast<UvLoop *>(data)); }, inner);
      ZOR_UV_LoopRun(inner, 0);
    });
    return Read().callbacks[0].longestUs;
  };
  UvLoop other;
  ZOR_UV_LoopInit(&other);
  EXPECT_GE(ownUs(&other), kWaitMs * 1000);
  ZOR_UV_LoopDestroy(&other);
  uint32_t shortestUs = ownUs(&loop_);  // a busy machine may take all of the time itself, but not again and again
  for (int i = 0; i < 20 && shortestUs >= kWaitMs * 500; ++i) shortestUs = std::min(shortestUs, ownUs(&loop_));
  EXPECT_LT(shortestUs, kWaitMs * 500);
}

TEST_F(Lag, ItIsOffUntilStartedAndEndsWithStop) {
  ZOR_UV_LAG untouched = {};
  untouched.thresholdUs = 7;
  EXPECT_EQ(ZOR_UV_LagRead(&untouched), ZOR_E_ARGUMENT);
  EXPECT_EQ(Start(1, 2), ZOR_E_ARGUMENT);
  ZOR_UV_LagStop();
  RunOnce(Hold);
  ASSERT_EQ(ZOR_UV_LagStart(nullptr), ZOR_OK);
  EXPECT_EQ(ZOR_UV_LagRead(nullptr), ZOR_E_ARGUMENT);
  EXPECT_EQ(Read().thresholdUs, ZOR_UV_LAG_THRESHOLD_US);
  EXPECT_EQ(Read().callbackCount, 0u);
  uint32_t status = 0;
  std::thread([&] { status = ZOR_UV_LagStart(nullptr); }).join();
  EXPECT_EQ(status, ZOR_E_BUSY);
  RunOnce(Hold);
  EXPECT_EQ(Read().callbackCount, 1u);
  EXPECT_GE(Read().times[ZOR_UV_LAG_TURN].totalUs, kHoldUs);
  ZOR_UV_LagStop();
  EXPECT_EQ(ZOR_UV_LagRead(&untouched), ZOR_E_ARGUMENT);
  EXPECT_EQ(untouched.thresholdUs, 7u);
  std::thread([&] {
    status = ZOR_UV_LagStart(nullptr);
    ZOR_UV_LagStop();
  }).join();
  EXPECT_EQ(status, ZOR_OK);
}

// A callback on the stack, and the procedure that hears of it, may switch measuring as they like.
TEST_F(Lag, CallbacksMaySwitchIt) {
  ASSERT_EQ(Start(), ZOR_OK);
  RunOnce([&] {
    RunOnce([&] { ASSERT_EQ(Start(), ZOR_OK); });
    Hold();
  });
  EXPECT_EQ(Read().times[ZOR_UV_LAG_TIMER].count, 0u) << "both calls had begun before";
  onSlow_ = [] { ZOR_UV_LagStop(); };
  RunOnce([&] {
    AddTimer(1, 1, [] { Hold(); });
    RunOnce([] { Hold(); });
    Hold();
  });
  EXPECT_EQ(slow_.size(), 1u);
  onSlow_ = [&] {
    ZOR_UV_LoopDestroy(&loop_);
    Stop();
  };
  ASSERT_EQ(Start(), ZOR_OK);
  AddIdle([] { Hold(); });
  EXPECT_EQ(Run(), ZOR_OK);
  EXPECT_NE(Find(ZOR_UV_LAG_IDLE, 0), nullptr);
}

TEST_F(Lag, OfManyCallbacksTheSlowestStay) {
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  constexpr uint32_t kFirst = 0x4100, kLast = kFirst + 2 * ZOR_UV_LAG_CALLBACKS;
  for (uint32_t type = kFirst; type <= kLast; ++type) {
    const auto handler = [](ZOR_MSG_HEAD *msg) {
      if (msg->type == kLast) std::this_thread::sleep_for(std::chrono::milliseconds(300));
    };
    ZOR_MSG_RegMsgProc(type, handler, 0, nullptr);
  }
  ASSERT_EQ(Start(250000), ZOR_OK);
  for (uint32_t type = kFirst; type <= kLast; ++type) Receive(type, "guest");
  const ZOR_UV_LAG figures = Read();
  EXPECT_EQ(figures.callbackCount, uint32_t{ZOR_UV_LAG_CALLBACKS});
  EXPECT_EQ(figures.times[ZOR_UV_LAG_HANDLER].count, kLast - kFirst + 1);
  const auto *begin = figures.callbacks, *end = begin + figures.callbackCount;
  EXPECT_TRUE(std::is_sorted(begin, end, [](auto &one, auto &other) { return one.longestUs > other.longestUs; }));
  EXPECT_TRUE(std::any_of(begin, end, [](auto &each) { return each.type == kLast; }));
  EXPECT_NE(Find(ZOR_UV_LAG_HANDLER, kLast), nullptr);
  ASSERT_EQ(Start(), ZOR_OK);
  Receive(0x5000, "guest");
  EXPECT_STREQ(Read().callbacks[0].name, "ZOR_MSG_DefaultMsgProc") << "an exported function has a name";
}

TEST_F(Lag, OfferedFiguresAreAFileOfTheProcess) {
  const TempRoot root;
  const auto pathOf = [&](pid_t pid) { return root.Path("/var/run/msg/lag_" + std::to_string(pid)); };
  const std::string path = pathOf(::getpid());
  std::filesystem::remove(root.Path("/var/run/msg"));
  EXPECT_EQ(Start(1, ZOR_UV_LAG_OFFER), ZOR_E_IO) << "there is no directory";
  std::filesystem::create_directories(root.Path("/var/run/msg"));
  std::filesystem::create_symlink(root.Path("/victim"), path);
  ASSERT_EQ(Start(1, ZOR_UV_LAG_OFFER), ZOR_OK);
  EXPECT_FALSE(std::filesystem::exists(root.Path("/victim")));
  struct stat status = {};
  ASSERT_EQ(::lstat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFREG | 0640));
  EXPECT_EQ(status.st_size, static_cast<off_t>(sizeof(lag::Page)));

  const pid_t child = ::fork();
  if (child == 0) {
    ZOR_UV_LAG figures;
    if (ZOR_UV_LagRead(&figures) != ZOR_E_ARGUMENT) ::_exit(1);
    if (Start(1, ZOR_UV_LAG_OFFER) != ZOR_OK || !std::filesystem::exists(pathOf(::getpid()))) ::_exit(2);
    std::exit(0);
  }
  int end = -1;
  ASSERT_EQ(::waitpid(child, &end, 0), child);
  EXPECT_EQ(end, 0);
  EXPECT_FALSE(std::filesystem::exists(pathOf(child))) << "the end of the process removes its file";
  EXPECT_TRUE(std::filesystem::exists(path)) << "but no other's";
  ZOR_UV_LagStop();
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(LagScale, PercentilesAreAtMostAnEighthTooHigh) {
  for (uint32_t bit = 0; bit < 32; ++bit) {
    for (const uint32_t us : {(1U << bit) - 1, 1U << bit, (1U << bit) + 1, (1U << bit) / 2 * 3}) {
      const uint64_t shown = lag::LongestIn(lag::BucketOf(us));
      EXPECT_GE(shown, us);
      EXPECT_LE(shown, us + uint64_t{us} / 8);
    }
  }
  std::array<uint64_t, lag::kBuckets> buckets{};
  const auto percentile = [&](uint32_t percent) {
    return lag::PercentileOf(std::span<const uint64_t, lag::kBuckets>(buckets), percent);
  };
  EXPECT_EQ(percentile(50), 0u) << "nothing was counted";
  buckets[lag::BucketOf(1)] = 89;
  buckets[lag::BucketOf(3)] = 10;
  buckets[lag::BucketOf(7)] = 1;
  EXPECT_EQ(percentile(50), 1u);
  EXPECT_EQ(percentile(90), 3u);
  EXPECT_EQ(percentile(99), 3u);
  EXPECT_EQ(percentile(100), 7u);
}

}  // namespace
}  // namespace zor::test
