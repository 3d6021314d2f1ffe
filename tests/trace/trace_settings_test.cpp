#include <gtest/gtest.h>
#include <zor/msg_head.h>
#include <zor/trace.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "support/temp_root.h"
#include "trace/trace.h"

namespace {

// A settings block as the message server sends it.
std::string Head(uint32_t outputIndex, const std::string &outputText, uint64_t fileMaxKiB = 0) {
  ZOR_TRACE_SETTINGS_HEAD head = {outputIndex, 0, fileMaxKiB, {}};
  outputText.copy(head.outputText, sizeof head.outputText);
  return {reinterpret_cast<const char *>(&head), sizeof head};
}

std::string Entry(const std::string &module, uint32_t level) {
  ZOR_TRACE_SETTINGS_ENTRY entry = {0, {}, level};
  module.copy(entry.module, sizeof entry.module);
  return {reinterpret_cast<const char *>(&entry), sizeof entry};
}

// From heap memory of exactly its length.
void Apply(const std::string &block, size_t cut = 0) {
  const std::vector<char> exact(block.begin(), block.end() - static_cast<std::ptrdiff_t>(cut));
  zor::TraceMsgInitRespProc(exact.data(), static_cast<uint32_t>(exact.size()));
}

uint32_t Enabled(const char *module, uint32_t level) {
  return ZOR_TRACE_IsModuleEnabled(module, level);
}

TEST(TraceSettings, LinesBearTheGrantedNameEvenWithoutABlock) {
  std::strcpy(g_stMsgCtx.appName, "cms");
  EXPECT_STREQ(m_aucAppName, "");
  zor::TraceMsgInitRespProc(nullptr, 0);
  EXPECT_STREQ(m_aucAppName, "cms");
}

TEST(TraceSettings, EntriesAreAppliedInOrder) {
  Apply(Head(0, "") + Entry("msg", 16) + Entry("all", 8) + Entry("loop", 16));
  EXPECT_EQ(Enabled("msg", 16), 0u);
  EXPECT_EQ(Enabled("msg", 8), 1u);
  EXPECT_EQ(Enabled("loop", 16), 1u);
}

TEST(TraceSettings, OnlyLevelsAreSwapped) {
  g_stMsgCtx.flags = ZOR_MSG_FLAG_SWAP;
  Apply(Head(0, "", 5000) + Entry("msg", zor::SwapU32(16)));
  EXPECT_EQ(Enabled("msg", 16), 1u);
  EXPECT_EQ(Enabled("msg", 17), 0u);
  EXPECT_EQ(ZOR_TRACE_GetFileMaxSize(), 5000u);
}

TEST(TraceSettings, ATornHeadOrEntryIsLeftOut) {
  Apply(Head(0, "", 5000), 1);
  EXPECT_EQ(ZOR_TRACE_GetFileMaxSize(), 1024u);
  for (size_t cut : {1u, 15u, 19u}) {
    Apply(Head(0, "") + Entry("msg", 8) + Entry("loop", 8), cut);
    EXPECT_EQ(Enabled("msg", 8), 1u) << cut;
    EXPECT_EQ(Enabled("loop", 8), 0u) << cut;
  }
}

TEST(TraceSettings, UnterminatedTextsEndWithTheirFields) {
  Apply(Head(0, std::string(32, 'x')) + Entry("abcdefghijkl", 8));
  EXPECT_EQ(Enabled("abcdefghijk", 8), 1u);
  EXPECT_EQ(ZOR_TRACE_GetOutput(), 0u);
}

TEST(TraceSettings, TheOutputTextHidesTheIndex) {
  zor::test::TempRoot root;
  std::filesystem::create_directories(root.Path("/online/log"));
  Apply(Head(1, ""));
  EXPECT_EQ(ZOR_TRACE_GetOutput(), 1u);
  Apply(Head(1, "stdout"));
  EXPECT_EQ(ZOR_TRACE_GetOutput(), 0u);
}

}  // namespace
