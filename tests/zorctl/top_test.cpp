// The screen of `top`, without a terminal.
#include "zorctl/top.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "zorctl/quantity.h"
#include "zorctl/text.h"

namespace zor::test {
namespace {

using namespace ctl;
using std::chrono::seconds;
using testing::HasSubstr;
using testing::Not;

std::string Client(const std::string &name, int in, const std::string &more = "") {
  return R"({"name":")" + name + R"(","pid":7,"since":100,"out":0,"in":)" + std::to_string(in) + more + "}";
}

TopData Data(const std::string &before, const std::string &now) {
  const auto sample = [](const std::string &clients, int second) {
    return *busview::ReadSample(R"({"server":{"name":"msgsvr"},"clients":[)" + clients + "]}",
                                busview::Clock::time_point(seconds(second)), [](int pid) {
                                  return daemon::ProcessState{pid == 9 ? 'T' : 'S', false, 5, 0, 0};
                                });
  };
  const busview::Sample first = sample(before, 10);
  TopData data{sample(now, 11), {}, {18'200, std::chrono::microseconds(8'000), Milliseconds(2000)}};
  data.view = MakeView(&first, data.sample);
  return data;
}

TopData Storm() {
  const std::string flows = R"(,"flows":[{"to":"peer-b","type":24833,"per_second":72500}])";
  return Data(Client("peer-b", 0) + "," + Client("aside", 0) + "," + Client("peer-a", 0),
              Client("peer-b", 72'500, R"(,"flows":[{"to":"peer-a","type":24833,"per_second":72500}])") + "," +
                  Client("aside", 3) + "," + Client("peer-a", 72'600, flows));
}

TopData Many(int count) {
  std::string clients;
  for (int i = 100; i < 100 + count; ++i) clients += (i == 100 ? "" : ",") + Client("d" + std::to_string(i), 0);
  return Data(clients, clients);
}

std::string TextOf(const Screen &screen) {
  std::string text;
  for (const Line &line : screen) text += TextOfLine(line) + "\n";
  return text;
}

void Type(Top &top, const std::string &keys) {
  for (const char key : keys) top.Take({Key::kCharacter, key});
}

TEST(Quantity, FitsIntoSevenColumns) {
  const std::pair<std::optional<double>, const char *> rates[] = {
      {std::nullopt, "-"},   {0.0, "0"},          {0.5, "0.5"},  {9.96, "10"},
      {145'000.0, "145000"}, {999'999.6, "1.0M"}, {2e15, "2.0P"}};
  for (const auto &[rate, text] : rates) EXPECT_EQ(RateText(rate), text);
  EXPECT_EQ(BytesText(999.0), "999");
  EXPECT_EQ(BytesText(18'249.0), "18.2k");
}

TEST(TopScreen, NamesTheTwoThatKeepEachOtherBusyAtAnyWidth) {
  for (const size_t columns : {40u, 80u, 200u}) {
    Top top(SortKey::kRate, "");
    top.Show(Storm());
    const Screen screen = top.Draw({24, columns});
    EXPECT_THAT(TextOfLine(screen[1]), testing::StartsWith("storm: peer-")) << columns;
    EXPECT_THAT(TextOfLine(screen[1]), HasSubstr(" <-> ")) << columns;
    EXPECT_THAT(TextOfLine(screen[1]), HasSubstr(" 145000/s")) << columns;
    EXPECT_EQ(screen[1][0].style, Style::kAlarm);
    EXPECT_THAT(TextOfLine(screen[3]), testing::ContainsRegex("^peer-a .*72600")) << columns;
    EXPECT_THAT(TextOfLine(screen[5]), testing::ContainsRegex("^aside .*3.0")) << columns;
  }
}

TEST(TopScreen, FitsEverySize) {
  const TopData datas[] = {TopData(), Storm(), Many(200), Data("", "")};
  const std::vector<Press> modes[] = {{}, {{Key::kCharacter, '?'}}, {{Key::kCharacter, '/'}}, {{Key::kEnter}}};
  for (const TopData &data : datas) {
    for (const auto &mode : modes) {
      for (size_t rows = 0; rows < 12; ++rows) {
        for (const size_t columns : {0u, 1u, 2u, 11u, 39u, 40u, 41u, 79u, 80u, 300u}) {
          Top top(SortKey::kRate, "");
          if (!data.empty()) top.Show(data);
          top.SetTrouble(rows % 2 == 0 ? "" : "the message server has disconnected");
          for (const Press &press : mode) top.Take(press);
          const Screen screen = top.Draw({rows, columns});
          ASSERT_LE(screen.size(), rows);
          for (const Line &line : screen) ASSERT_LE(Width(TextOfLine(line)), columns) << TextOfLine(line);
        }
      }
    }
  }
}

TEST(TopScreen, KeepsTheUsefulColumnsWhenNarrow) {
  Top top(SortKey::kRate, "");
  top.Show(Storm());
  EXPECT_EQ(TextOfLine(top.Draw({24, 40})[2]), "NAME          MSG/S WAITING OLDEST  CPU%");
  EXPECT_THAT(TextOfLine(top.Draw({24, 80})[2]), testing::AllOf(HasSubstr("BYTES/S"), HasSubstr("STATE")));
}

TEST(TopScreen, ScrollsToTheSelectedDaemonAndFollowsIt) {
  Top top(SortKey::kName, "");
  top.Show(Many(200));
  EXPECT_THAT(TextOf(top.Draw({10, 80})), testing::AllOf(HasSubstr("d100"), Not(HasSubstr("d120"))));
  for (int i = 0; i < 2; ++i) top.Take({Key::kPageDown});
  EXPECT_THAT(TextOf(top.Draw({10, 80})), testing::AllOf(HasSubstr("d120"), Not(HasSubstr("d100"))));
  top.Take({Key::kEnd});
  EXPECT_THAT(TextOf(top.Draw({10, 80})), HasSubstr("d299"));
  top.Take({Key::kUp});
  top.Show(Many(199));
  top.Take({Key::kEnter});
  EXPECT_THAT(TextOfLine(top.Draw({10, 80})[0]), HasSubstr("d298, pid 7"));
  top.Show(Many(100));
  EXPECT_THAT(TextOfLine(top.Draw({10, 80})[0]), HasSubstr("d298 has left the bus"));
  // A process may be there several times.
  top = Top(SortKey::kName, "");
  const std::string twins = Client("a", 0) + "," + Client("a", 0) + "," + Client("a", 0) + "," + Client("z", 0);
  top.Show(Data(twins, twins));
  for (int i = 0; i < 3; ++i) top.Take({Key::kDown});
  top.Take({Key::kEnter});
  EXPECT_THAT(TextOf(top.Draw({10, 80})), testing::AllOf(HasSubstr("z, pid 7"), HasSubstr("sampling: at most 0.4 %")));
}

TEST(TopScreen, FiltersAsOneTypesAndSortsByKeys) {
  Top top(SortKey::kName, "");
  top.Show(Storm());
  Type(top, "/PEERx");
  EXPECT_THAT(TextOf(top.Draw({24, 80})), testing::AllOf(HasSubstr("/PEERx_"), Not(HasSubstr("\npeer-a"))));
  top.Take({Key::kBackspace});
  top.Take({Key::kEnter});
  EXPECT_THAT(TextOf(top.Draw({24, 80})), testing::AllOf(HasSubstr("\npeer-a"), Not(HasSubstr("\naside"))));
  Type(top, "r");
  EXPECT_THAT(TextOf(top.Draw({24, 80})), HasSubstr("by rate"));
  top.Take({Key::kEscape});
  EXPECT_THAT(TextOf(top.Draw({24, 80})), HasSubstr("\naside"));
  EXPECT_FALSE(top.finished());
  Type(top, "q");
  EXPECT_TRUE(top.finished());
}

TEST(TopScreen, ShowsADaemonsPeersWaitsAndSubscriptions) {
  const std::string now =
      Client("web", 5, R"(,"pending":[{"to":"cms","type":16385,"age_ms":3200}],"patterns":["/api\u001b[2J"],
             "flows":[{"to":"","type":9,"per_second":4}])") +
      "," + Client("cms", 0, R"(,"waiting":{"messages":4,"bytes":40,"oldest_ms":3000,"at_least":true})") + "," +
      R"({"name":"still","pid":9,"since":1})";
  Top top(SortKey::kRate, "");
  top.Show(Data(Client("web", 0), now));
  const std::string list = TextOf(top.Draw({24, 120}));
  EXPECT_THAT(list, testing::AllOf(HasSubstr("still is stopped"), HasSubstr("waits for cms"), HasSubstr(">4"),
                                   HasSubstr("busiest: web -> msgsvr 4.0/s"),
                                   HasSubstr("8.0 ms, at most 0.4 % of the server's processor")));
  top.Take({Key::kEnter});
  const std::string detail = TextOf(top.Draw({24, 120}));
  EXPECT_THAT(detail, testing::AllOf(HasSubstr("sent     5.0/s"), HasSubstr("waits for cms (0x4001) for 3.2 s"),
                                     HasSubstr("web -> msgsvr 4.0/s"), HasSubstr("/api\\x1b[2J")));
  top.Take({Key::kEscape});
  Type(top, "wr");
  EXPECT_THAT(TextOf(top.Draw({24, 120})), HasSubstr("by rate"));
}

TEST(TopScreen, EscapesNames) {
  Top top(SortKey::kRate, "");
  const std::string hostile = Client("\\u001b[2J\\n", 1, R"(,"flows":[{"to":"\u202ex","type":1,"per_second":9}])");
  top.Show(Data(hostile, hostile));
  for (const bool detail : {false, true}) {
    if (detail) top.Take({Key::kEnter});
    for (const Line &line : top.Draw({24, 80})) {
      EXPECT_TRUE(IsPrintable(TextOfLine(line))) << TextOfLine(line);
    }
  }
}

}  // namespace
}  // namespace zor::test
