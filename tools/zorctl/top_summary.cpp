#include "zorctl/top_summary.h"

#include <algorithm>

#include "zorctl/format.h"
#include "zorctl/quantity.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

// Nothing if neither is known.
busview::Rate Sum(const busview::Rate &a, const busview::Rate &b) {
  return a || b ? busview::Rate(a.value_or(0) + b.value_or(0)) : std::nullopt;
}

Line BusLine(const TopData &data, size_t columns) {
  const busview::Server &server = data.sample.server;
  const busview::Rates &rates = data.view.server;
  const size_t count = data.sample.clients.size();
  return {{JoinFitting({std::to_string(count) + (count == 1 ? " daemon" : " daemons"),
                        "in " + RateText(rates.sent) + "/s out " + RateText(rates.received) + "/s",
                        "server " + PercentText(rates.cpu) + " % cpu",
                        BytesText(Sum(rates.sentBytes, rates.receivedBytes)) + " bytes/s",
                        "dropped " + RateText(rates.dropped) + "/s",
                        "holds " + BytesText(static_cast<double>(server.heldBytes)) + " of " +
                            BytesText(static_cast<double>(server.memoryBytes)),
                        "up " + LongAgeText(Milliseconds(server.uptimeMs))},
                       ", ", columns),
           Style::kBold}};
}

// The fastest pairs, and storms in the colour of alarm.
Line PairsLine(const TopData &data, size_t columns) {
  std::vector<std::string> storms, others;
  for (const busview::Pair &pair : data.view.pairs) {
    (IsStorm(pair, data.sample.server) ? storms : others).push_back(PairText(pair, data.sample.server));
  }
  Line line;
  if (!storms.empty()) line.push_back({"storm: " + JoinFitting(storms, ", ", columns), Style::kAlarm});
  const size_t used = Width(TextOfLine(line));
  constexpr size_t kRoom = 20;
  if (!others.empty() && (storms.empty() || used + kRoom <= columns)) {
    line.push_back({(storms.empty() ? "busiest: " : "; then ") +
                    JoinFitting(others, ", ", columns - std::min(columns, used + 9))});
  }
  return line;
}

std::string StoppedText(const TopData &data) {
  std::vector<std::string> names;
  for (const busview::Client &client : data.sample.clients) {
    if (!busview::IsStopped(client)) continue;
    const auto waiting = std::count_if(data.view.waits.begin(), data.view.waits.end(),
                                       [&](const busview::Wait &wait) { return wait.name == client.daemon.name; });
    names.push_back(Escape(client.daemon.name) + " is " + std::string(daemon::StateText(client.process.letter)) +
                    (waiting == 0 ? "" : ", " + std::to_string(waiting) + (waiting == 1 ? " waits" : " wait")));
  }
  return Join(names, "; ");
}

}  // namespace

Screen SummaryOf(const TopData &data, size_t columns) {
  Screen screen = {BusLine(data, columns)};
  if (Line pairs = PairsLine(data, columns); !pairs.empty()) screen.push_back(std::move(pairs));
  if (const std::string stopped = StoppedText(data); !stopped.empty()) screen.push_back({{stopped, Style::kAlarm}});
  for (const std::string &cycle : data.view.cycles) screen.push_back({{Escape(cycle), Style::kAlarm}});
  return screen;
}

}  // namespace zor::ctl
