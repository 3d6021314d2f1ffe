#include "common/settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/capture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using zor::daemon::ProblemLog;
using zor::daemon::Settings;
using zor::test::Capture;

TEST(DaemonSettings, ReadsKeysAndKeepsTheFallbackOfTheOthers) {
  Settings settings = Settings::FromText(
      "# comment\n\n  text =  two words \nnumber=0x10\r\nyes = yes\nempty =\nroute.b = 2\nroute.a = 1", "file");
  EXPECT_EQ(settings.Text("text", "x"), "two words");
  EXPECT_EQ(settings.Text("empty", "x"), "");
  EXPECT_EQ(settings.Text("none", "x"), "x");
  EXPECT_EQ(settings.Number("number", 1, 0, 16), 16u);
  EXPECT_TRUE(settings.Flag("yes", false));
  EXPECT_THAT(settings.WithPrefix("route."), ElementsAre(Pair("b", "2"), Pair("a", "1")));
  ProblemLog log("test");
  EXPECT_TRUE(settings.CheckAndReport(log));
}

TEST(DaemonSettings, ReportsEveryMistakeWithItsLine) {
  Settings settings = Settings::FromText(
      "words\n= x\nsame = 1\nsame = 2\nlow = 1\nhigh = 99\nbad = 1x\nflag = 1\nunknown = 1\n", "file");
  settings.Text("same", "");
  for (const char *key : {"low", "high", "bad"}) EXPECT_EQ(settings.Number(key, 5, 2, 9), 5u);
  settings.Flag("flag", false);
  Capture errors(2);
  ProblemLog log("test");
  EXPECT_FALSE(settings.CheckAndReport(log));
  for (const char *line :
       {"test: file:1: not of", "file:2: not of", "file:4: same is set in line 3", "file:5: low must",
        "file:6: high must", "file:7: bad must", "file:8: flag must", "file:9: no such setting"}) {
    EXPECT_THAT(errors.Text(), HasSubstr(line));
  }
}

TEST(DaemonProblemLog, PrintsABurstAndThenCounts) {
  Capture errors(2);
  {
    ProblemLog log("test");
    for (int i = 0; i < 100; ++i) log.Print("line %d\n\x1b[31m", i);
  }
  EXPECT_THAT(errors.Text(), testing::StartsWith("test: line 0??[31m\n"));
  EXPECT_THAT(errors.Text(), testing::EndsWith(" more problems not shown\n"));
  EXPECT_THAT(errors.Text(), testing::Not(HasSubstr("line 99")));
}

}  // namespace
