// The bus as a picture: rates, edges and waits from two lists.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "programs/bus_view/view.h"

namespace zor::test {
namespace {

using busview::Clock;
using busview::Sample;
using busview::View;
using std::chrono::seconds;

std::string List(const std::string &clients) {
  return R"({"server":{"name":"msgsvr","pid":1,"uptime_ms":5},"clients":[)" + clients + "]}";
}

std::string Client(const std::string &name, const std::string &members, int pid = 7, int since = 100) {
  return R"({"name":")" + name + R"(","pid":)" + std::to_string(pid) + R"(,"since":)" + std::to_string(since) + "," +
         members + "}";
}

// Each process has used the time that the sample is given.
Sample Take(const std::string &clients, int second, daemon::ProcessState process = {}) {
  const auto sample =
      busview::ReadSample(List(clients), Clock::time_point(seconds(second)), [=](int) { return process; });
  EXPECT_TRUE(sample);
  return sample.value_or(Sample());
}

View Between(const std::string &before, const std::string &now, daemon::ProcessState first = {},
             daemon::ProcessState second = {}) {
  const Sample early = Take(before, 10, first);
  return MakeView(&early, Take(now, 12, second));
}

TEST(BusView, RatesAreThoseOfCountersThatBelongTogether) {
  struct Case {
    std::string before, now;
    std::vector<busview::Rate> sent;
  };
  constexpr auto kNone = std::nullopt;
  const Case cases[] = {
      {Client("web", R"("in":10)"), Client("web", R"("in":30)"), {10.0}},
      {Client("web", R"("in":30)"), Client("web", R"("in":10)"), {kNone}},          // the server was started again
      {Client("web", R"("in":10)"), Client("web", R"("in":30)", 7, 101), {kNone}},  // it has registered again
      {Client("web", R"("in":10)"), Client("web", R"("in":30)", 8), {kNone}},       // another process
      {Client("web", R"("out":10)"), Client("web", R"("in":30)"), {kNone}},         // no counter before
      {Client("web", R"("in":10)"), Client("web", R"("in":-30)"), {kNone}},
      {Client("web", R"("in":10)"), Client("web", R"("in":"30")"), {kNone}},
      {Client("web", R"("in":1)"), Client("cms", R"("in":9)") + "," + Client("web", R"("in":5)"), {kNone, 2.0}},
      {Client("web", R"("in":1)") + "," + Client("web", R"("in":100)"),
       Client("web", R"("in":5)") + "," + Client("web", R"("in":106)"),
       {2.0, 3.0}},
      {Client("web", R"("in":1)", 7) + "," + Client("web", R"("in":100)", 8),
       Client("web", R"("in":106)", 8) + "," + Client("web", R"("in":5)", 9),
       {3.0, kNone}},
  };
  for (const Case &each : cases) {
    std::vector<busview::Rate> sent;
    for (const busview::Rates &rates : Between(each.before, each.now).daemons) sent.push_back(rates.sent);
    EXPECT_EQ(sent, each.sent) << each.before << "\n" << each.now;
  }
}

TEST(BusView, ProcessorTimeIsThatOfTheSameProcess) {
  const std::string client = Client("web", R"("in":10)");
  EXPECT_EQ(Between(client, client, {'S', true, 50, 100, 0}, {'S', true, 50, 1100, 0}).daemons[0].cpu, 0.5);
  EXPECT_EQ(Between(client, client, {'S', true, 50, 100, 0}, {'S', true, 51, 1100, 0}).daemons[0].cpu, std::nullopt);
  EXPECT_EQ(Between(client, client).daemons[0].cpu, std::nullopt);
}

TEST(BusView, TheFirstSampleHasNoRatesAndNoTimeHasPassedGivesNone) {
  const Sample sample = Take(Client("web", R"("in":10)"), 1);
  EXPECT_EQ(MakeView(nullptr, sample).daemons.at(0).sent, std::nullopt);
  EXPECT_EQ(MakeView(&sample, sample).daemons.at(0).sent, std::nullopt);
}

TEST(BusView, EdgesOfOneNameCountTogetherAndPairsCountBothDirections) {
  const View view = Between("", Client("a", R"("flows":[{"to":"b","type":7,"per_second":10}])", 1) + "," +
                                    Client("a", R"("flows":[{"to":"b","type":7,"per_second":5},9,null,{"to":3}])", 2) +
                                    "," + Client("b", R"("flows":[{"to":"a","type":8,"per_second":40},
                                       {"to":"","type":9,"per_second":3},{"to":"c","type":1e300,"per_second":-1}])"));
  ASSERT_EQ(view.edges.size(), 3u);
  EXPECT_EQ(view.edges[0].from + view.edges[0].to, "ba");
  EXPECT_EQ(view.edges[1].perSecond, 15);
  EXPECT_EQ(view.edges[2].to, "");
  ASSERT_EQ(view.pairs.size(), 2u);
  EXPECT_EQ(view.pairs[0].first + view.pairs[0].second, "ba");
  EXPECT_EQ(view.pairs[0].there, 40);
  EXPECT_EQ(view.pairs[0].perSecond(), 55);
}

std::string Asks(const std::string &name, const std::string &to, int ageMs) {
  return Client(name, R"("pending":[{"to":")" + to + R"(","type":16385,"age_ms":)" + std::to_string(ageMs) + "}]");
}

TEST(BusView, WaitsMarkTheCyclesThatLast) {
  const std::string cycle = Asks("a", "b", 2000) + "," + Asks("b", "c", 2000) + "," + Asks("c", "b", 2000);
  struct Case {
    std::string clients;
    std::string inCycle;  // their senders
    size_t cycles;
  };
  const Case cases[] = {
      {cycle, "bc", 1},
      {Asks("a", "a", 2000), "a", 1},
      {Asks("a", "b", 2000) + "," + Asks("b", "a", 5), "", 0},  // requests under way
      {Asks("a", "b", 2000) + "," + Asks("b", "gone", 2000), "", 0},
      {cycle + "," + Asks("x", "y", 3000) + "," + Asks("y", "x", 3000) + "," + Asks("z", "b", 9000), "bcxy", 2},
      {Asks("a", "b", 2000) + "," + Client("b", R"("in":1)") + "," + Asks("b", "a", 2000), "", 0},  // not the oldest b
  };
  for (const Case &each : cases) {
    const Sample sample = Take(each.clients, 1);
    const View view = MakeView(nullptr, sample);
    std::string inCycle;
    for (const busview::Wait &wait : view.waits) {
      if (wait.inCycle) inCycle += sample.clients[wait.from].daemon.name;
    }
    EXPECT_EQ(inCycle, each.inCycle) << each.clients;
    EXPECT_EQ(view.cycles.size(), each.cycles) << each.clients;
  }
}

TEST(BusView, AListIsTakenForHostile) {
  for (const char *text : {"", "7", "[]", "{}", "{\"clients\":7}", "{\"clients\":[", "\xff"}) {
    EXPECT_FALSE(busview::ReadSample(text, {})) << text;
  }
  const auto sample = busview::ReadSample(R"({"server":[],"clients":[7,null,{},{"name":7,"pid":1e40,"pending":7,
      "events":"x","patterns":{"a":1},"flows":"none","waiting":3},{"name":"own","self":true}]})",
                                          {});
  ASSERT_TRUE(sample);
  EXPECT_EQ(sample->clients.size(), 2u);
  EXPECT_EQ(MakeView(&*sample, *sample).edges.size(), 0u);
}

}  // namespace
}  // namespace zor::test
