// The bus as a picture for a document.
#include <poll.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <system_error>

#include "zorctl/graph.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/top_report.h"
#include "zorctl/top_source.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

// Rates need two looks.
TopData Look(Milliseconds timeout) {
  TopSource source(Milliseconds(1000), timeout);
  for (int looks = 0;;) {
    if (auto data = source.Turn(); data && ++looks == 2) return std::move(*data);
    if (source.failure()) throw Failure(*source.failure());
    pollfd watched = {source.fd(), POLLIN, 0};
    if (::poll(&watched, 1, static_cast<int>(source.left().count())) < 0 && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "poll");
    }
  }
}

class GraphVerb : public Verb {
 public:
  void Declare(Options &options) override {
    Option svg = options.AddFlag("--svg", svg_, "Print an image in the format SVG");
    options.AddFlag("--dot", dot_, "Print a text for the layout programs of graphs; this is the default").Excludes(svg);
  }

  ExitCode Run(const Common &common) override {
    const TopData data = Look(common.timeout);
    if (common.json) {
      PrintJson(BatchJson(data, SortKey::kName, ""));
    } else {
      const Graph graph = GraphOf(data);
      Print(svg_ ? SvgText(graph) : DotText(graph));
    }
    return kExitOk;
  }

 private:
  bool dot_ = false;  // said anyway
  bool svg_ = false;
};

}  // namespace

std::unique_ptr<Verb> MakeGraphVerb() {
  return std::make_unique<GraphVerb>();
}

}  // namespace zor::ctl
