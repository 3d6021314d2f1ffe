// Details of the work on fleets that golden tests do not show.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "programs/metrics/metrics.h"
#include "zorctl/fleet_sum.h"
#include "zorctl/foreign_json.h"
#include "zorctl/pattern.h"
#include "zorctl/progress.h"

namespace zor::ctl {
namespace {

TEST(Pattern, MatchesWholeNames) {
  struct Case {
    const char *pattern, *text;
    bool matches;
  };
  for (const Case &each : {Case{"gw*", "gw", true},
                           {"gw*", "agw", false},
                           {"*a*b?", "xaabbc", true},
                           {"*a*b?", "xaab", false},
                           {"?", "", false},
                           {"**", "", true},
                           {"a*a", "a", false},
                           {"gw[1]", "gw1", false}}) {
    EXPECT_EQ(Matches(each.pattern, each.text), each.matches) << each.pattern << " " << each.text;
  }
  EXPECT_FALSE(Matches(std::string(64, '*') + "b", std::string(100'000, 'a'))) << "in little time";
}

TEST(Progress, FitsTheWidth) {
  EXPECT_EQ(ProgressBar(1, 4, 10), "[##......]");
  EXPECT_EQ(ProgressBar(9, 4, 6), "[####]");
  EXPECT_EQ(ProgressBar(1, 4, 2), "");
  EXPECT_EQ(ProgressBar(0, 0, 80), "");
  EXPECT_EQ(ProgressBar(1, 2, 1000).size(), 50u);
}

TEST(FleetSum, NamesTenGatewaysAndCountsTheOthers) {
  FleetSum sum;
  EXPECT_EQ(sum.Text(), "0 gateways");
  for (char name = 'a'; name <= 'm'; ++name) sum.Count({name}, Outcome::kNoReply);
  sum.Count("\x1b", Outcome::kOffline);
  sum.Count("x", Outcome::kDone);
  sum.Count("y", Outcome::kRefused);
  EXPECT_EQ(
      sum.Text(),
      "16 gateways: 1 done, 1 refused, 13 did not reply: a, b, c, d, e, f, g, h, i, j and 3 more; 1 offline: \\x1b");
  EXPECT_EQ(sum.AsJson()["sum"]["no_reply"].size(), 13u);
  EXPECT_EQ(sum.code(), kExitTimeOver);
}

TEST(ForeignJson, GivesNothingForWrongTypes) {
  const auto json = ForeignJson::parse(R"({"text":7,"count":-1,"large":1e300,"half":1.5,"fine":1e3,"texts":["a",7],
    "time":"2026-01-02T03:04:05.678Z","local":"2026-01-02T03:04:05","long":"99999-01-02T03:04:05Z",
    "late":"9999-01-02T03:04:05Z","early":"0001-01-02T03:04:05Z"})");
  EXPECT_EQ(TextOf(json, "text"), "");
  for (const char *name : {"count", "large", "half", "texts", "none"}) EXPECT_EQ(CountOf(json, name), 0u) << name;
  EXPECT_EQ(CountOf(json, "fine"), 1000u);
  EXPECT_THAT(TextsOf(json, "texts"), testing::ElementsAre("a"));
  EXPECT_EQ(TimeOf(json, "time"), std::chrono::system_clock::from_time_t(1767323045));
  for (const char *name : {"local", "long", "text", "late", "early"}) EXPECT_FALSE(TimeOf(json, name)) << name;
}

TEST(ForeignJson, OfAListKeepsWhatHasTheRightType) {
  const auto list = ForeignJson::parse(R"({"server":{"in":"many","out":2,"access":7},"daemons":[7,null,[],
    {"name":"web","self":true,"since":1e400,"pid":-1,"waiting":[],"events":[1,"x"],"pending":[{"to":7,"type":8},9]},
    {"pending":"none"}]})",
                                       nullptr, false);
  EXPECT_TRUE(list.is_discarded()) << "a number beyond all limits";
  EXPECT_EQ(CheckedList(list).dump(), R"({"clients":[],"server":{"access":{}}})");
  EXPECT_EQ(CheckedList(ForeignJson::parse(R"({"server":{"in":"many","out":2,"access":7},"daemons":[7,null,[],
    {"name":"web","self":true,"since":1e99,"pid":-1,"waiting":[],"events":[1,"x"],"pending":[{"to":7,"type":8},9]}]})"))
                .dump(),
            R"({"clients":[{"events":[1],"name":"web","pending":[{"type":8}],"pid":-1,"waiting":{}}],)"
            R"("server":{"access":{},"out":2}})");
}

TEST(Metrics, EscapeLabelsAndAddUp) {
  constexpr metrics::MetricFamily kFamily = {"zor_seen", metrics::MetricFamily::Type::kCounter, "", "What was seen."};
  metrics::Metrics all;
  all.SetCommon({{"gateway", "a\"\\\n\xff"}});
  all.Add(kFamily, {{"daemon", "web"}}, 1e15);
  all.Add(kFamily, {{"daemon", "web"}}, 0.5);
  EXPECT_EQ(all.Text(),
            "# HELP zor_seen What was seen.\n# TYPE zor_seen counter\n"
            "zor_seen_total{gateway=\"a\\\"\\\\\\\\\\\\x0a\\\\xff\",daemon=\"web\"} 1000000000000000.5\n# EOF\n");
}

}  // namespace
}  // namespace zor::ctl
