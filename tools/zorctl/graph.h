// The bus as a picture: names and what connects them, before it is drawn in one format or another.
#ifndef ZORCTL_GRAPH_H
#define ZORCTL_GRAPH_H

#include <string>
#include <vector>

#include "zorctl/top_data.h"

namespace zor::ctl {

struct GraphNode {
  enum class Kind { kDaemon, kWaiting, kCycle, kStopped, kAbsent, kServer };

  std::string name;  // escaped
  std::string note;  // its rate, and what is wrong; may be empty
  Kind kind = Kind::kDaemon;
};

struct GraphArrow {
  enum class Kind { kTraffic, kWait, kCycle };

  size_t from = 0;  // indices of nodes
  size_t to = 0;
  std::string label;  // for people
  Kind kind = Kind::kTraffic;
  double width = 1;
};

struct Graph {
  std::vector<GraphNode> nodes;  // those that talk to each other most are neighbours
  std::vector<GraphArrow> arrows;
};

// Daemons of one name are one node. Arrows are traffic, all types together, and waits that last.
Graph GraphOf(const TopData &data);

// The colour of a node or an arrow, as "#rrggbb".
const char *ColourOf(GraphNode::Kind kind);
const char *ColourOf(GraphArrow::Kind kind);

std::string DotText(const Graph &graph);
std::string SvgText(const Graph &graph);

}  // namespace zor::ctl

#endif
