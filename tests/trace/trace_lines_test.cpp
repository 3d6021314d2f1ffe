#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zor/msg_head.h>
#include <zor/trace.h>

#include <string>

#include "support/capture.h"
#include "support/child.h"

namespace {

using testing::MatchesRegex;
using zor::test::Capture;

constexpr char kTime[] = "[0-9]{8,}[.][0-9]{6} [0-9]{8,}[.][0-9]{6}";

TEST(TraceLines, ALineNamesLevelTimeProcessModuleAndPlace) {
  m_aucAppName = "cms";
  ZOR_TRACE_SetPackageLevel("msg", ZOR_TRACE_INFO);
  Capture out;
  EXPECT_EQ(ZOR_TRACE_PrintInfo("a.cpp", 12, 0, "msg", ZOR_TRACE_INFO, "sent %d to %s", 7, "web"), 1u);
  const std::string pid = std::to_string(::getpid());
  EXPECT_THAT(out.Text(), MatchesRegex("\r\n\\[\\(info\\)" + std::string(kTime) + " cms:" + pid +
                                       ":msg a\\.cpp:12\\]: sent 7 to web"));
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

TEST(TraceLines, OnlyTheHeadIsCut) {
  const std::string file(600, 'f');
  const std::string message(5000, 'm');
  Capture out;
  EXPECT_EQ(ZOR_TRACE_PrintInfo(file.c_str(), 1, 1, "msg", 0, "%s", message.c_str()), 1u);
  EXPECT_EQ(out.Text().size(), 511u + 5000u);
  EXPECT_EQ(out.Text().substr(510, 2), "fm");
}

TEST(TraceLines, AForkedChildGoesOnUnderItsParentsNumber) {
  const int32_t parent = ZOR_UTIL_GetCurPid();
  EXPECT_EQ(parent, ::getpid());
  auto child = zor::test::Child::Function([parent] { return ZOR_UTIL_GetCurPid() == parent ? 0 : 1; });
  EXPECT_EQ(child.Wait(), 0);
}

}  // namespace
