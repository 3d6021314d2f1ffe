// The bus as a picture.
#include "zorctl/graph.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "zorctl/text.h"

namespace zor::test {
namespace {

using namespace ctl;
using testing::HasSubstr;
using testing::Not;

Graph Make(const std::string &clients) {
  TopData data{*busview::ReadSample(R"({"server":{"name":"msgsvr"},"clients":[)" + clients + "]}", {},
                                    [](int pid) {
                                      return daemon::ProcessState{pid == 9 ? 'T' : 'S', false, 5, 0, 0};
                                    }),
               {},
               {}};
  data.view = MakeView(nullptr, data.sample);
  return GraphOf(data);
}

std::string Flow(const std::string &name, const std::string &to, int rate, int pid = 7) {
  return R"({"name":")" + name + R"(","pid":)" + std::to_string(pid) + R"(,"flows":[{"to":")" + to +
         R"(","type":1,"per_second":)" + std::to_string(rate) + "}]}";
}

TEST(Graph, HasADaemonOfEachNameAndAnArrowForEachDirection) {
  const Graph graph = Make(Flow("a", "b", 100) + "," + Flow("a", "b", 900) + "," + Flow("b", "a", 5, 9) + "," +
                           Flow("c", "", 1) + "," + Flow("d", "gone", 1));
  std::vector<std::string> nodes;
  for (const GraphNode &node : graph.nodes) {
    nodes.push_back(node.name + " " + node.note + " " + std::to_string(static_cast<int>(node.kind)));
  }
  const auto kind = [](GraphNode::Kind each) { return std::to_string(static_cast<int>(each)); };
  EXPECT_THAT(nodes,
              testing::UnorderedElementsAre(
                  "a 2 processes " + kind(GraphNode::Kind::kDaemon), "b stopped " + kind(GraphNode::Kind::kStopped),
                  "c  " + kind(GraphNode::Kind::kDaemon), "d  " + kind(GraphNode::Kind::kDaemon),
                  "msgsvr  " + kind(GraphNode::Kind::kServer), "gone absent " + kind(GraphNode::Kind::kAbsent)));
  ASSERT_EQ(graph.arrows.size(), 4u);
  const auto widest = std::max_element(graph.arrows.begin(), graph.arrows.end(),
                                       [](const auto &a, const auto &b) { return a.width < b.width; });
  EXPECT_EQ(graph.nodes[widest->from].name + graph.nodes[widest->to].name + widest->label, "ab1000/s");
  EXPECT_EQ(widest->width, 4);
}

TEST(Graph, EscapesNamesInEveryFormat) {
  const Graph graph = Make(Flow(R"(a\"]; b)", "<script>&amp;\\u001b'\\ufffe", 3) + "," + Flow("\\\\", "\\\\", 1));
  const std::string svg = SvgText(graph), dot = DotText(graph);
  EXPECT_THAT(svg, testing::AllOf(Not(HasSubstr("<script")), HasSubstr("&#60;script&#62;&#38;amp;\\x1b&#39;?")));
  EXPECT_THAT(dot, testing::AllOf(HasSubstr(R"([label="a\"]; b")"), HasSubstr(R"(&amp;amp;\\x1b)"),
                                  HasSubstr(R"([label="\\\\")")));
  EXPECT_TRUE(messages::IsPrintable(svg.substr(0, svg.find('\n'))));
}

TEST(Graph, IsDrawnForNoneAndForMany) {
  std::string many;
  for (int i = 0; i < 200; ++i) many += (i == 0 ? "" : ",") + Flow("d" + std::to_string(i), "d0", i);
  for (const std::string &clients : {std::string(), many}) {
    EXPECT_THAT(SvgText(Make(clients)), testing::AllOf(testing::EndsWith("</svg>\n"), Not(HasSubstr("\"nan"))));
  }
}

}  // namespace
}  // namespace zor::test
