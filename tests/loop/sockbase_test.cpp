#include <zor/sockbase.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <vector>

#include "loop/loop_fixture.h"

namespace zor::test {
namespace {

class SockBaseTest : public testing::Test {
 protected:
  ~SockBaseTest() override { ZOR_UV_LoopDestroy(ZOR_UV_LoopGetDefault()); }

  SockBase *Register(int fd, uint32_t mode, SOCK_EVENT_PROC eventProc = nullptr, void *data = nullptr) {
    SockBase *sockBase = nullptr;
    EXPECT_EQ(ZOR_UTIL_SockBaseReg(fd, 0, eventProc, mode, data, &sockBase), ZOR_OK);
    return sockBase;
  }

  const LoopSocketPair pair_;
};

TEST_F(SockBaseTest, ModesMeanDifferentThingsAtRegistrationAndLater) {
  const struct {
    uint32_t mode, registered, listened;
  } cases[] = {{ZOR_SOCK_MODE_NONE, 0, 0},
               {ZOR_SOCK_MODE_READ, UV_READABLE, UV_READABLE},
               {ZOR_SOCK_MODE_WRITE, UV_WRITABLE, UV_WRITABLE},
               {5, UV_EXCEPTIONAL, 0}};
  for (const auto &each : cases) {
    SockBase *sockBase = Register(::dup(pair_.near), each.mode);
    EXPECT_EQ(sockBase->io.events, each.registered) << each.mode;
    EXPECT_NE(sockBase->io.header.flags & UV_WATCHER_ACTIVE, 0u);
    ZOR_UTIL_SockBaseListen(sockBase, ZOR_SOCK_MODE_READ);
    EXPECT_EQ(ZOR_UTIL_SetWriteFd(sockBase), ZOR_OK);
    EXPECT_EQ(sockBase->io.events, UV_READABLE | UV_WRITABLE);
    EXPECT_EQ(ZOR_UTIL_ClearWriteFd(sockBase), ZOR_OK);
    EXPECT_EQ(ZOR_UTIL_SockBaseListen(sockBase, each.mode), ZOR_OK);
    EXPECT_EQ(sockBase->io.events, each.listened) << each.mode;
  }
}

TEST_F(SockBaseTest, AFailedRegistrationClearsTheSlotAndKeepsTheSocketOpen) {
  auto *slot = reinterpret_cast<SockBase *>(this);
  EXPECT_EQ(ZOR_UTIL_SockBaseReg(5000, 0, nullptr, ZOR_SOCK_MODE_READ, nullptr, &slot), ZOR_E_ARGUMENT);
  EXPECT_EQ(slot, nullptr);
  EXPECT_EQ(ZOR_UV_LoopGetDefault()->watchers, nullptr);
  EXPECT_EQ(ZOR_UTIL_SockbaseWaitSockResponseAsync(5000, 0, 10, nullptr, nullptr), nullptr);
}

TEST_F(SockBaseTest, AProcedureMayDeleteItsOwnSocketBaseWhichEndsThePass) {
  std::vector<uint64_t> turns;
  const SOCK_EVENT_PROC forceAndDelete = [](SockBase *self, uint32_t) {
    static_cast<std::vector<uint64_t> *>(self->io.header.data)->push_back(ZOR_UV_LoopGetCurIdx(nullptr));
    ZOR_UTIL_SockBaseDirectDo(self);
    ZOR_UTIL_SockBaseDelete(self);
    EXPECT_EQ(ZOR_UTIL_SockBaseForceLoop(self), ZOR_OK) << "closed: ignored";
  };
  const LoopSocketPair other;
  for (const LoopSocketPair *pair : {&pair_, &other}) {
    Register(pair->near, ZOR_SOCK_MODE_READ, forceAndDelete, &turns);
    pair->MakeReadable();
  }
  EXPECT_EQ(ZOR_UTIL_SockBaseStart(1), ZOR_E_TIMEOUT);
  EXPECT_THAT(turns, testing::ElementsAre(0, 1));
  EXPECT_EQ(::fcntl(pair_.near, F_GETFD), -1);
}

TEST_F(SockBaseTest, DeletingByNumberSparesPlainWatchers) {
  auto *plain = NewRecord<UvIO>();
  ZOR_UV_IOInit(nullptr, plain, pair_.near, nullptr);
  Register(pair_.far, ZOR_SOCK_MODE_READ);
  for (const int fd : {pair_.near, pair_.far, -1}) ZOR_UTIL_SockBaseDeleteNew(fd);
  EXPECT_NE(::fcntl(pair_.near, F_GETFD), -1);
  EXPECT_EQ(::fcntl(pair_.far, F_GETFD), -1);
}

TEST_F(SockBaseTest, AWaitForAResponseCallsOnceForItOrForTheTimeOut) {
  std::vector<uint32_t> timedOut;
  for (const bool arrives : {true, false}) {
    const LoopSocketPair pair;
    if (arrives) pair.MakeReadable();
    ZOR_UTIL_SockbaseWaitSockResponseAsync(
        pair.near, 0, arrives ? 60000 : 20, &timedOut, [](SockBase *sockBase, uint32_t) {
          auto *self = static_cast<SockAsyncWait *>(sockBase->io.header.data);
          static_cast<std::vector<uint32_t> *>(self->userData)->push_back(self->timedOut);
          EXPECT_EQ(self->timer == nullptr, self->timedOut != 0);
          ZOR_UTIL_SockbaseAsyncEvtDestroy(self);
        });
    EXPECT_EQ(ZOR_UTIL_SockBaseStart(1), ZOR_E_TIMEOUT);
    EXPECT_EQ(::fcntl(pair.near, F_GETFD), -1);
  }
  EXPECT_THAT(timedOut, testing::ElementsAre(0, 1));
}

}  // namespace
}  // namespace zor::test
