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

// A settings block as the message server sends it, in heap memory of exactly its length.
class Settings {
 public:
  Settings(uint32_t outputIndex, const std::string &outputText, uint64_t fileMaxKiB = 0) {
    ZOR_TRACE_SETTINGS_HEAD head = {};
    head.outputIndex = outputIndex;
    head.fileMaxKiB = fileMaxKiB;
    std::memcpy(head.outputText, outputText.data(), outputText.size());
    Add(&head, sizeof head);
  }
  Settings &Entry(const std::string &module, uint32_t level) {
    ZOR_TRACE_SETTINGS_ENTRY entry = {};
    std::memcpy(entry.module, module.data(), module.size());
    entry.level = level;
    Add(&entry, sizeof entry);
    return *this;
  }
  void Apply(size_t cut = 0) const {
    const std::vector<char> exact(bytes_.begin(), bytes_.end() - static_cast<std::ptrdiff_t>(cut));
    zor::TraceMsgInitRespProc(exact.data(), static_cast<uint32_t>(exact.size()));
  }

 private:
  void Add(const void *from, size_t size) {
    const auto *bytes = static_cast<const char *>(from);
    bytes_.insert(bytes_.end(), bytes, bytes + size);
  }
  std::vector<char> bytes_;
};

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
  Settings(0, "", 5000).Entry("msg", 16).Entry("all", 8).Entry("loop", 16).Apply();
  EXPECT_EQ(ZOR_TRACE_GetFileMaxSize(), 5000u);
  EXPECT_EQ(Enabled("msg", 16), 0u);
  EXPECT_EQ(Enabled("msg", 8), 1u);
  EXPECT_EQ(Enabled("loop", 16), 1u);
}

TEST(TraceSettings, OnlyLevelsAreSwapped) {
  g_stMsgCtx.flags = ZOR_MSG_FLAG_SWAP;
  Settings(0, "", 5000).Entry("msg", zor::SwapU32(16)).Apply();
  EXPECT_EQ(Enabled("msg", 16), 1u);
  EXPECT_EQ(Enabled("msg", 17), 0u);
  EXPECT_EQ(ZOR_TRACE_GetFileMaxSize(), 5000u);
}

TEST(TraceSettings, ATornEntryIsLeftOut) {
  for (size_t cut : {1u, 4u, 15u, 19u}) {
    Settings(0, "").Entry("msg", 8).Entry("loop", 8).Apply(cut);
    EXPECT_EQ(Enabled("msg", 8), 1u) << cut;
    EXPECT_EQ(Enabled("loop", 8), 0u) << cut;
  }
}

TEST(TraceSettings, ATornHeadSetsNothing) {
  Settings(0, "", 5000).Apply(1);
  EXPECT_EQ(ZOR_TRACE_GetFileMaxSize(), 1024u);
}

TEST(TraceSettings, UnterminatedTextsEndWithTheirFields) {
  Settings(0, std::string(32, 'x')).Entry("abcdefghijkl", 8).Apply();
  EXPECT_EQ(Enabled("abcdefghijk", 8), 1u);
  EXPECT_EQ(ZOR_TRACE_GetOutput(), 0u);
}

TEST(TraceSettings, TheOutputTextHidesTheIndex) {
  zor::test::TempRoot root;
  std::filesystem::create_directories(root.Path("/online/log"));
  Settings(1, "").Apply();
  EXPECT_EQ(ZOR_TRACE_GetOutput(), 1u);
  Settings(1, "stdout").Apply();
  EXPECT_EQ(ZOR_TRACE_GetOutput(), 0u);
}

}  // namespace
