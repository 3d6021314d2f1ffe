#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zor/notifier.h>
#include <zor/status.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/temp_root.h"

namespace {

using testing::ElementsAre;

std::vector<uintptr_t> g_ran;
ZOR_NOTIFIER_CHAIN *g_chain;
ZOR_NOTIFIER_NODE *g_victim;

uint32_t Record(uintptr_t, uintptr_t data) {
  g_ran.push_back(data);
  return ZOR_OK;
}

uint32_t Fail(uintptr_t context, uintptr_t data) {
  Record(context, data);
  return ZOR_E_ARGUMENT;
}

uint32_t RemoveVictim(uintptr_t context, uintptr_t data) {
  EXPECT_EQ(ZOR_UTIL_NotifierUnRegister(g_chain, g_victim), ZOR_OK);
  return Record(context, data);
}

class NotifierTest : public testing::Test {
 protected:
  NotifierTest() {
    EXPECT_EQ(ZOR_UTIL_NotifierInit(7, &g_chain), ZOR_OK);
    g_ran.clear();
  }
  ~NotifierTest() override {
    while (g_chain->nodes != nullptr) ZOR_UTIL_NotifierUnRegister(g_chain, g_chain->nodes);
    std::free(g_chain);
  }
  ZOR_NOTIFIER_NODE *Add(ZOR_NOTIFIER_CALLBACK callback, uint32_t priority, uintptr_t data) {
    ZOR_NOTIFIER_NODE *node = nullptr;
    EXPECT_EQ(ZOR_UTIL_NotifierRegister(g_chain, callback, priority, data, &node), ZOR_OK);
    return node;
  }
};

TEST_F(NotifierTest, RunsByPriorityAndKeepsTheOrderOfEqualOnes) {
  Add(Record, 5, 1);
  Add(Record, 1, 2);
  Add(Record, 5, 3);
  Add(Record, 3, 4);
  EXPECT_EQ(ZOR_UTIL_NotifierDoNotifyEx(g_chain, 0, nullptr), ZOR_OK);
  EXPECT_THAT(g_ran, ElementsAre(2, 4, 1, 3));
}

TEST_F(NotifierTest, ReverseRegistrationRunsDescendingWithTheLatestEqualOneFirst) {
  const uint32_t priorities[] = {5, 1, 5, 3};
  for (uintptr_t i = 0; i < 4; ++i) {
    EXPECT_EQ(ZOR_UTIL_NotifierReverseRegister(g_chain, Record, priorities[i], i, nullptr), ZOR_OK);
  }
  ZOR_UTIL_NotifierDoNotifyEx(g_chain, 0, nullptr);
  EXPECT_THAT(g_ran, ElementsAre(2, 0, 3, 1));
}

TEST_F(NotifierTest, TheLastStatusCountsUnlessTheRunStopsOnAnError) {
  Add(Fail, 1, 1);
  Add(Record, 2, 2);
  EXPECT_EQ(ZOR_UTIL_NotifierDoNotifyEx(g_chain, 0, nullptr), ZOR_OK);
  EXPECT_EQ(ZOR_UTIL_NotifierDoNotifyEx(g_chain, 1, nullptr), ZOR_E_ARGUMENT);
  EXPECT_THAT(g_ran, ElementsAre(1, 2, 1));
}

TEST_F(NotifierTest, ACallbackMayRemoveItselfOrTheNextOne) {
  auto *self = Add(RemoveVictim, 1, 1);
  auto *next = Add(Record, 2, 2);
  Add(Record, 3, 3);
  ZOR_NOTIFIER_HOOKS hooks = {};
  static uintptr_t seen;
  hooks.after = [](uintptr_t, ZOR_NOTIFIER_NODE *node, uint32_t) { seen += node->data; };
  g_victim = next;
  ZOR_UTIL_NotifierDoNotifyEx(g_chain, 0, &hooks);
  EXPECT_THAT(g_ran, ElementsAre(1, 3));
  g_victim = self;
  g_ran.clear();
  ZOR_UTIL_NotifierDoNotifyEx(g_chain, 0, &hooks);
  EXPECT_THAT(g_ran, ElementsAre(1, 3));
  EXPECT_EQ(seen, 8u) << "the after hook reads nodes that their own callback removed";
}

TEST_F(NotifierTest, TracksTheBootOnlyWhenTheFlagIsOne) {
  const zor::test::TempRoot root;
  std::ofstream(root.Path("/var/zor_boot_track.log")) << "old|";
  Add(Fail, 1, 1);
  ZOR_UTIL_NotifierDoNotifyExWithCmsInit(g_chain, 0, nullptr, 2);
  ZOR_UTIL_NotifierDoNotifyExWithCmsInit(g_chain, 0, nullptr, 1);
  std::stringstream log;
  log << std::ifstream(root.Path("/var/zor_boot_track.log")).rdbuf();
  EXPECT_THAT(log.str(), testing::ContainsRegex(
                             "^old\\|\\[tv_sec:[0-9]{3,} tv_usec:[0-9]{6}\\] \\[start cmsmodinit\\] init notify "
                             "0:0x[0-9a-f]+ for \\[\\]\\.\r\n\\[tv_sec:[0-9]{3,} tv_usec:[0-9]{6}\\] "
                             "\\[end cmsmodinit\\] init notify 0:0x[0-9a-f]+ for \\[\\] return 0x10001\\.\r\n$"));
}

}  // namespace
