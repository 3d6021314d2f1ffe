#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zor/msg_head.h>
#include <zor/trace.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "support/capture.h"
#include "support/temp_root.h"
#include "trace/trace.h"
#include "trace/trace_line.h"

namespace {

using testing::MatchesRegex;
using zor::test::Capture;

uint32_t Enabled(const char *module, uint32_t level) {
  return ZOR_TRACE_IsModuleEnabled(module, level);
}

TEST(TraceLevels, CompareAsNumbersAndHaveNames) {
  EXPECT_STREQ(ZOR_TRACE_GetLevelStr(ZOR_TRACE_GetLevelByString("warning")), "warning");
  EXPECT_EQ(ZOR_TRACE_GetLevelByString("all"), 16u);
  for (const char *unknown : {"", "Info", "infos"}) EXPECT_EQ(ZOR_TRACE_GetLevelByString(unknown), 0u) << unknown;
  for (uint32_t unknown : {3u, 32u, 0xffffffffu}) EXPECT_STREQ(ZOR_TRACE_GetLevelStr(unknown), "none");
  EXPECT_EQ(Enabled("msg", 0), 0u);
  ZOR_TRACE_SetPackageLevel("msg", 4);
  for (uint32_t passed : {0u, 3u, 4u}) EXPECT_EQ(Enabled("msg", passed), 1u) << passed;
  for (uint32_t refused : {5u, 0xffffffffu}) EXPECT_EQ(Enabled("msg", refused), 0u) << refused;
}

TEST(TraceLevels, OfModulesWithoutSettingFollowAllWhoseSettingForgetsEveryOther) {
  ZOR_TRACE_SetPackageLevel(nullptr, 8);
  ZOR_TRACE_SetPackageLevel("msg", 1);
  EXPECT_EQ(Enabled("loop", 8), 1u);
  EXPECT_EQ(Enabled("msg", 8), 0u);
  ZOR_TRACE_SetPackageLevel("msg", 0);
  EXPECT_EQ(Enabled("msg", 8), 1u);
  ZOR_TRACE_SetPackageLevel("msg", 16);
  ZOR_TRACE_SetPackageLevel("all", 0);
  EXPECT_EQ(Enabled("msg", 1), 0u);
}

TEST(TraceLevels, ALongNameIsStoredCutAndNeverFoundAgain) {
  ZOR_TRACE_SetPackageLevel("notifyclient", 16);
  EXPECT_EQ(Enabled("notifyclient", 16), 0u);
  EXPECT_EQ(Enabled("notifyclien", 16), 1u);
  ZOR_TRACE_SetPackageLevel("notifyclient", 8);  // a second entry, after the effective one
  ZOR_TRACE_SetPackageLevel("notifyclient", 0);  // finds none to remove
  EXPECT_EQ(Enabled("notifyclien", 16), 1u);
  ZOR_TRACE_SetPackageLevel("notifyclien", 0);
  EXPECT_EQ(Enabled("notifyclien", 9), 0u);
  EXPECT_EQ(Enabled("notifyclien", 8), 1u);
}

TEST(TraceLines, NameLevelTimeProcessModuleAndPlaceWhichAloneAreCut) {
  constexpr char kTime[] = "[0-9]{8,}[.][0-9]{6} [0-9]{8,}[.][0-9]{6}";
  m_aucAppName = "cms";
  ZOR_TRACE_SetPackageLevel("msg", ZOR_TRACE_INFO);
  {
    Capture out;
    EXPECT_EQ(ZOR_TRACE_PrintInfo("a.cpp", 12, 0, "msg", ZOR_TRACE_INFO, "sent %d to %s", 7, "web"), 1u);
    EXPECT_THAT(out.Text(), MatchesRegex("\r\n\\[\\(info\\)" + std::string(kTime) +
                                         " cms:" + std::to_string(::getpid()) + ":msg a\\.cpp:12\\]: sent 7 to web"));
  }
  const std::string file(600, 'f');
  const std::string message(5000, 'm');
  Capture out;
  EXPECT_EQ(ZOR_TRACE_PrintInfo(file.c_str(), 1, 1, "msg", 0, "%s", message.c_str()), 1u);
  EXPECT_EQ(out.Text().size(), 511u + 5000u);
  EXPECT_EQ(out.Text().substr(510, 2), "fm");
}

TEST(TraceLines, OnlyAForcedLineIsPrintedWhateverTheSettingsAre) {
  ZOR_TRACE_SetPackageLevel("msg", ZOR_TRACE_ERROR);
  Capture out;
  EXPECT_EQ(ZOR_TRACE_PrintInfo("a.cpp", 1, 0, "msg", ZOR_TRACE_INFO, "x"), 0u);
  EXPECT_EQ(ZOR_TRACE_PrintInfoEx("msg", ZOR_TRACE_INFO, "x"), 0u);
  EXPECT_EQ(ZOR_TRACE_PrintInfoEx("msg", ZOR_TRACE_ERROR, "%s", "without head"), 1u);
  EXPECT_EQ(ZOR_TRACE_PrintInfo(nullptr, 1, 1, nullptr, 99, "x"), 1u);
  EXPECT_THAT(out.Text(), MatchesRegex("without head\r\n\\[\\(none\\).* :[0-9]+: :1\\]: x"));
}

TEST(TraceLines, OfTheLibraryNameTheFileAndLineTheyStandIn) {
  Capture out;
  ZOR_TRACE_SetPackageLevel("msg", ZOR_TRACE_INFO);
  zor::Trace("loop", ZOR_TRACE_INFO, "%d", 1);
  zor::Trace("msg", ZOR_TRACE_INFO, "%d", 2);
  EXPECT_THAT(out.Text(), MatchesRegex("\r\n[^\r]*:msg trace_test\\.cpp:" + std::to_string(__LINE__ - 1) + "\\]: 2"));
}

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

TEST(TraceSettings, ATornHeadOrEntryIsLeftOut) {
  Apply(Head(0, "", 5000), 1);
  EXPECT_EQ(ZOR_TRACE_GetFileMaxSize(), 1024u);
  for (size_t cut : {1u, 15u, 19u}) {
    Apply(Head(0, "") + Entry("msg", 8) + Entry("loop", 8), cut);
    EXPECT_EQ(Enabled("msg", 8), 1u) << cut;
    EXPECT_EQ(Enabled("loop", 8), 0u) << cut;
  }
}

TEST(TraceSettings, AreAppliedInOrderAndBringTheGrantedName) {
  std::strcpy(g_stMsgCtx.appName, "cms");
  zor::TraceMsgInitRespProc(nullptr, 0);
  EXPECT_STREQ(m_aucAppName, "cms");
  Apply(Head(0, std::string(32, 'x')) + Entry("msg", 16) + Entry("all", 8) + Entry("abcdefghijkl", 16));
  EXPECT_EQ(Enabled("msg", 16), 0u);
  EXPECT_EQ(Enabled("msg", 8), 1u);
  EXPECT_EQ(Enabled("abcdefghijk", 16), 1u) << "an unterminated name ends with its field";
  EXPECT_EQ(ZOR_TRACE_GetOutput(), 0u);
  g_stMsgCtx.flags = ZOR_MSG_FLAG_SWAP;
  Apply(Head(0, "", 5000) + Entry("msg", zor::SwapU32(16)));
  EXPECT_EQ(Enabled("msg", 16), 1u);
  EXPECT_EQ(Enabled("msg", 17), 0u);
  EXPECT_EQ(ZOR_TRACE_GetFileMaxSize(), 5000u) << "only levels are swapped";
  zor::test::TempRoot root;
  std::filesystem::create_directories(root.Path("/online/log"));
  Apply(Head(1, ""));
  EXPECT_EQ(ZOR_TRACE_GetOutput(), 1u);
  Apply(Head(1, "stdout"));
  EXPECT_EQ(ZOR_TRACE_GetOutput(), 0u) << "the text hides the index";
}

}  // namespace
