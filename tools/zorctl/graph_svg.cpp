// The picture as an image: the nodes on a circle, their names outside, the arrows as curves through it.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <string_view>

#include "zorctl/graph.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

constexpr double kNodeRadius = 7, kLeastRadius = 150, kBetween = 26, kMargin = 40, kCharacter = 8, kLegend = 90;

struct Point {
  double x;
  double y;
};

// Escapes have removed control characters already; two more are no characters of XML.
std::string XmlText(std::string_view text) {
  std::string xml;
  for (size_t i = 0; i < text.size(); ++i) {
    const char each = text[i];
    const std::string_view three = text.substr(i, 3);
    if (three == "\xef\xbf\xbe" || three == "\xef\xbf\xbf") {
      xml += '?';
      i += 2;
    } else if (each == '<' || each == '>' || each == '&' || each == '"' || each == '\'') {
      xml += "&#" + std::to_string(static_cast<int>(each)) + ";";
    } else {
      xml += each;
    }
  }
  return xml;
}

std::string Number(double number) {
  std::array<char, 32> text = {};
  std::snprintf(text.data(), text.size(), "%.1f", number);
  return text.data();
}

std::string At(const char *x, const char *y, Point point) {
  return std::string(" ") + x + "=\"" + Number(point.x) + "\" " + y + "=\"" + Number(point.y) + "\"";
}

std::string PointText(Point point) {
  return Number(point.x) + " " + Number(point.y);
}

std::string LabelOf(const GraphNode &node) {
  return node.name + (node.note.empty() ? "" : ": " + node.note);
}

class Drawing {
 public:
  explicit Drawing(const Graph &graph) : graph_(graph) {
    const auto count = static_cast<double>(graph.nodes.size());
    radius_ = std::max(kLeastRadius, count * kBetween / (2 * std::numbers::pi));
    size_t longest = 0;
    for (const GraphNode &node : graph.nodes) longest = std::max(longest, Width(LabelOf(node)));
    const double label = kMargin + static_cast<double>(longest) * kCharacter;
    centre_ = {label + radius_, label + radius_};
  }

  std::string Text() const {
    const std::string width = Number(2 * centre_.x), height = Number(2 * centre_.y + kLegend);
    std::string text = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + width + "\" height=\"" + height +
                       "\" viewBox=\"0 0 " + width + " " + height +
                       "\" font-family=\"sans-serif\" font-size=\"13\" role=\"img\">\n<title>The message bus</title>\n"
                       "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n" +
                       Tips();
    for (const GraphArrow &arrow : graph_.arrows) text += ArrowText(arrow);
    for (size_t i = 0; i < graph_.nodes.size(); ++i) text += NodeText(i);
    return text + Legend() + "</svg>\n";
  }

 private:
  double AngleOf(size_t place) const {
    const auto count = static_cast<double>(std::max<size_t>(graph_.nodes.size(), 1));
    return 2 * std::numbers::pi * static_cast<double>(place) / count;
  }
  Point PlaceOf(size_t place, double radius) const {
    return {centre_.x + radius * std::cos(AngleOf(place)), centre_.y + radius * std::sin(AngleOf(place))};
  }

  // The heads of arrows, one for each colour.
  static std::string Tips() {
    std::string text = "<defs>\n";
    for (const auto kind : {GraphArrow::Kind::kTraffic, GraphArrow::Kind::kWait, GraphArrow::Kind::kCycle}) {
      text += "<marker id=\"tip" + std::to_string(static_cast<int>(kind)) +
              "\" viewBox=\"0 0 8 8\" refX=\"8\" refY=\"4\" markerWidth=\"13\" markerHeight=\"13\" "
              "markerUnits=\"userSpaceOnUse\" orient=\"auto\"><path d=\"M0 0L8 4L0 8z\" fill=\"" +
              ColourOf(kind) + "\"/></marker>\n";
    }
    return text + "</defs>\n";
  }

  // A curve towards the centre, and a little to the left, so that the way back is another one.
  std::string ArrowText(const GraphArrow &arrow) const {
    const double rim = radius_ - kNodeRadius - 3;
    const Point from = PlaceOf(arrow.from, rim), to = PlaceOf(arrow.to, rim);
    const Point middle = {(from.x + to.x) / 2, (from.y + to.y) / 2};
    constexpr double kPull = 0.35, kAside = 0.18;
    Point bend = {middle.x + kPull * (centre_.x - middle.x) + kAside * (to.y - from.y),
                  middle.y + kPull * (centre_.y - middle.y) - kAside * (to.x - from.x)};
    std::string path = "M" + PointText(from) + "Q" + PointText(bend) + " " + PointText(to);
    if (arrow.from == arrow.to) {  // to itself: a loop inwards
      const Point side = PlaceOf(arrow.from, radius_ * 0.75);
      const double turn = 25;
      path = "M" + PointText(from) + "C" + PointText({side.x - turn, side.y + turn}) + " " +
             PointText({side.x + turn, side.y - turn}) + " " + PointText(to);
      bend = side;
    }
    const std::string colour = ColourOf(arrow.kind);
    const std::string name = graph_.nodes[arrow.from].name + " -> " + graph_.nodes[arrow.to].name;
    const Point label = {(middle.x + bend.x) / 2, (middle.y + bend.y) / 2};
    return "<g><title>" + XmlText(name + ", " + arrow.label) + "</title><path d=\"" + path +
           "\" fill=\"none\" stroke=\"" + colour + "\" stroke-width=\"" + Number(arrow.width) + "\"" +
           (arrow.kind == GraphArrow::Kind::kTraffic ? "" : " stroke-dasharray=\"6 4\"") + " marker-end=\"url(#tip" +
           std::to_string(static_cast<int>(arrow.kind)) + ")\"/>" + (IsLabelled(arrow) ? LabelText(arrow, label) : "") +
           "</g>\n";
  }

  // In a big picture the labels of all arrows would cover each other; a pointer shows them there.
  bool IsLabelled(const GraphArrow &arrow) const {
    constexpr size_t kFew = 30;
    return arrow.kind != GraphArrow::Kind::kTraffic || graph_.arrows.size() <= kFew;
  }

  static std::string LabelText(const GraphArrow &arrow, Point at) {
    return "<text" + At("x", "y", at) + " font-size=\"11\" text-anchor=\"middle\" fill=\"#37474f\">" +
           XmlText(arrow.label) + "</text>";
  }

  std::string NodeText(size_t place) const {
    const GraphNode &node = graph_.nodes[place];
    const Point at = PlaceOf(place, radius_), label = PlaceOf(place, radius_ + kNodeRadius + 6);
    const bool left = label.x < centre_.x - 1;
    const double degrees = AngleOf(place) * 180 / std::numbers::pi + (left ? 180 : 0);
    // Around a small circle there is room for names as they are read.
    constexpr size_t kUpright = 12;
    const std::string turned = graph_.nodes.size() <= kUpright
                                   ? ""
                                   : " transform=\"rotate(" + Number(degrees) + " " + PointText(label) + ")\"";
    const bool absent = node.kind == GraphNode::Kind::kAbsent;
    return "<g><circle" + At("cx", "cy", at) + " r=\"" + Number(kNodeRadius) + "\" fill=\"" +
           (absent ? "#ffffff" : ColourOf(node.kind)) + "\" stroke=\"" + ColourOf(node.kind) + "\"" +
           (absent ? " stroke-dasharray=\"3 2\"" : "") + "/><text" + At("x", "y", label) +
           " dominant-baseline=\"middle\" text-anchor=\"" + (left ? "end" : "start") + "\"" + turned + " fill=\"" +
           ColourOf(node.kind) + "\">" + XmlText(LabelOf(node)) + "</text></g>\n";
  }

  std::string Legend() const {
    struct Entry {
      GraphNode::Kind kind;
      const char *text;
    };
    constexpr std::array kEntries = {
        Entry{GraphNode::Kind::kDaemon, "daemon; width of a line: messages a second"},
        Entry{GraphNode::Kind::kWaiting, "waits for another (dashed line)"},
        Entry{GraphNode::Kind::kCycle, "waits in a cycle"},
        Entry{GraphNode::Kind::kStopped, "stopped"},
    };
    std::string text;
    double y = 2 * centre_.y;
    for (const Entry &entry : kEntries) {
      text += "<circle" + At("cx", "cy", {20, y - 4}) + " r=\"5\" fill=\"" + ColourOf(entry.kind) + "\"/><text" +
              At("x", "y", {32, y}) + " font-size=\"11\" fill=\"#37474f\">" + entry.text + "</text>\n";
      y += 18;
    }
    return text;
  }

  const Graph &graph_;
  double radius_ = 0;
  Point centre_{};
};

}  // namespace

std::string SvgText(const Graph &graph) {
  return Drawing(graph).Text();
}

}  // namespace zor::ctl
