// The picture in the language of layout programs.
#include <array>
#include <cstdio>

#include "zorctl/graph.h"

namespace zor::ctl {
namespace {

// As a quoted text, in which backslashes and ampersands would begin escapes.
std::string Quoted(const std::string &text) {
  std::string quoted = "\"";
  for (const char each : text) {
    if (each == '"' || each == '\\') quoted += '\\';
    quoted += each;
    if (each == '&') quoted += "amp;";
  }
  return quoted + "\"";
}

std::string NodeLine(size_t place, const GraphNode &node) {
  const std::string label = Quoted(node.name);
  const std::string note = node.note.empty() ? "" : "\\n" + node.note;
  return "  n" + std::to_string(place) + " [label=" + label.substr(0, label.size() - 1) + note + "\", color=\"" +
         ColourOf(node.kind) + "\"" + (node.kind == GraphNode::Kind::kAbsent ? ", style=dashed" : "") + "];\n";
}

std::string ArrowLine(const GraphArrow &arrow) {
  std::array<char, 32> width = {};
  std::snprintf(width.data(), width.size(), "%.1f", arrow.width);
  return "  n" + std::to_string(arrow.from) + " -> n" + std::to_string(arrow.to) + " [label=" + Quoted(arrow.label) +
         ", color=\"" + ColourOf(arrow.kind) + "\", penwidth=" + width.data() +
         (arrow.kind == GraphArrow::Kind::kTraffic ? "" : ", style=dashed") + "];\n";
}

}  // namespace

std::string DotText(const Graph &graph) {
  std::string text =
      "digraph bus {\n"
      "  node [shape=box, fontname=\"sans-serif\"];\n"
      "  edge [fontname=\"sans-serif\", fontsize=10];\n";
  for (size_t i = 0; i < graph.nodes.size(); ++i) text += NodeLine(i, graph.nodes[i]);
  for (const GraphArrow &arrow : graph.arrows) text += ArrowLine(arrow);
  return text + "}\n";
}

}  // namespace zor::ctl
