// What `top` knows of the bus: the latest sample, what it says together with the one before, and what taking it cost.
#ifndef ZORCTL_TOP_DATA_H
#define ZORCTL_TOP_DATA_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "programs/bus_view/view.h"
#include "zorctl/deadline.h"

namespace zor::ctl {

// The server does nothing else while it makes the list, so the time until the reply limits what it spent on it.
struct SamplingCost {
  size_t bytes = 0;  // of the list
  std::chrono::microseconds time{};
  Milliseconds interval{};

  // The server's share of a processor, at most.
  double Share() const;
  std::string Text() const;
  std::string ShortText() const;
};

struct TopData {
  busview::Sample sample;
  busview::View view;
  SamplingCost cost;

  bool empty() const { return sample.taken == busview::Clock::time_point(); }
};

enum class SortKey { kRate, kBytes, kWaiting, kOldest, kDropped, kCpu, kMemory, kName };

struct SortKeyRow {
  SortKey key;
  const char *name;
  char letter;
};
const std::vector<SortKeyRow> &SortKeys();

// A daemon of the sample; points into the data.
struct TopRow {
  const busview::Client *client;
  const busview::Rates *rates;
  const busview::Wait *wait;  // null: it does not wait, or has not for long
  size_t twin = 0;            // among those that nothing else tells apart, in the order of the sample

  const std::string &name() const { return client->daemon.name; }
  busview::Rate Messages() const;
  busview::Rate Bytes() const;
};

// The daemons whose names contain the text, in any case, largest first, or by name.
std::vector<TopRow> RowsOf(const TopData &data, SortKey key, const std::string &filter);

// "stopped", "waits for cms", or the state of its process.
std::string StateTextOf(const TopRow &row);

// Whether the two keep each other busy, by the measure of the server's own warning.
bool IsStorm(const busview::Pair &pair, const busview::Server &server);
// "a <-> b 145000/s", or "->" if only one of them sends.
std::string PairText(const busview::Pair &pair, const busview::Server &server);

}  // namespace zor::ctl

#endif
