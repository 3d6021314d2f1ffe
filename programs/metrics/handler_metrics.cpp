#include "programs/metrics/handler_metrics.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "programs/handler_times.h"

namespace zor::metrics {
namespace {

using Json = nlohmann::json;
using Type = MetricFamily::Type;

constexpr double kNsPerSecond = 1e9;
constexpr double kUsPerSecond = 1e6;
// Of each daemon: collectors keep what they have seen once.
constexpr size_t kSlowest = 5;

struct Quantile {
  const char *name;
  uint32_t percent;
};
constexpr Quantile kQuantiles[] = {{"0.5", 50}, {"0.9", 90}, {"0.99", 99}};

struct Families {
  MetricFamily count, seconds, slow, quantile, longest;
};
constexpr Families kTurns = {
    {"zor_loop_turns", Type::kCounter, "", "Turns of the daemon's loop."},
    {"zor_loop_busy_seconds", Type::kCounter, "seconds", "Time of all turns, without waits."},
    {"zor_loop_slow_turns", Type::kCounter, "", "Turns that took the daemon's threshold or longer."},
    {"zor_loop_turn_quantile_seconds", Type::kGauge, "seconds", "Time that this share of all turns did not exceed."},
    {"zor_loop_turn_longest_seconds", Type::kGauge, "seconds", "Time of the longest turn."}};
constexpr Families kHandlers = {
    {"zor_handler_calls", Type::kCounter, "", "Calls of the daemon's callbacks."},
    {"zor_handler_seconds", Type::kCounter, "seconds", "Time that they took."},
    {"zor_handler_slow", Type::kCounter, "", "Calls that took the daemon's threshold or longer."},
    {"zor_handler_quantile_seconds", Type::kGauge, "seconds", "Time that this share of all calls did not exceed."},
    {"zor_handler_longest_seconds", Type::kGauge, "seconds", "Time of the longest call."}};
constexpr MetricFamily kSlowestCallback = {"zor_handler_slowest_seconds", Type::kGauge, "seconds",
                                           "Time of the longest call of this callback."};

// Of all processes with the name.
struct Sum {
  double count = 0, slow = 0, seconds = 0;
  uint32_t longestUs = 0;
  std::array<uint64_t, lag::kBuckets> buckets{};

  void Add(const lag::Times &times) {
    count += static_cast<double>(times.count);
    slow += static_cast<double>(times.slowCount);
    seconds += static_cast<double>(times.totalNs) / kNsPerSecond;
    longestUs = std::max(longestUs, times.longestUs);
    for (size_t bucket = 0; bucket < buckets.size(); ++bucket) buckets[bucket] += times.buckets[bucket];
  }
};

struct Daemon {
  std::array<Sum, lag::kKinds> sums;
  std::map<Labels, uint32_t> longestUs;  // of callbacks
};

Labels LabelsOf(const lag::Callback &callback) {
  Labels labels = {{"callback", callback.name.data()}, {"kind", lag::kKindNames[callback.kind]}};
  if (callback.type != 0) {
    char type[16];
    std::snprintf(type, sizeof type, "0x%x", callback.type);
    labels.emplace_back("type", type);
  }
  return labels;
}

void AddPage(const lag::Page &page, Daemon &daemon) {
  for (size_t kind = 0; kind < lag::kKinds; ++kind) daemon.sums[kind].Add(page.times[kind]);
  for (const lag::Callback &callback : std::span(page.callbacks).first(page.callbackCount)) {
    uint32_t &longestUs = daemon.longestUs[LabelsOf(callback)];
    longestUs = std::max(longestUs, callback.longestUs);
  }
}

void AddSum(const Families &families, const Labels &labels, const Sum &sum, Metrics &metrics) {
  metrics.Add(families.count, labels, sum.count);
  metrics.Add(families.seconds, labels, sum.seconds);
  metrics.Add(families.slow, labels, sum.slow);
  if (sum.count == 0) return;
  metrics.Add(families.longest, labels, sum.longestUs / kUsPerSecond);
  for (const Quantile &quantile : kQuantiles) {
    const uint32_t us = lag::PercentileOf(std::span<const uint64_t, lag::kBuckets>(sum.buckets), quantile.percent);
    Labels all = labels;
    all.emplace_back("quantile", quantile.name);
    metrics.Add(families.quantile, all, std::min(us, sum.longestUs) / kUsPerSecond);
  }
}

void AddSlowest(const std::string &name, const Daemon &daemon, Metrics &metrics) {
  std::vector<std::pair<Labels, uint32_t>> slowest(daemon.longestUs.begin(), daemon.longestUs.end());
  std::ranges::stable_sort(slowest, std::greater(), &std::pair<Labels, uint32_t>::second);
  if (slowest.size() > kSlowest) slowest.resize(kSlowest);
  for (auto &[labels, us] : slowest) {
    labels.insert(labels.begin(), {"daemon", name});
    metrics.Add(kSlowestCallback, labels, us / kUsPerSecond);
  }
}

std::map<std::string, Daemon> DaemonsIn(const Json &list) {
  std::map<std::string, Daemon> daemons;
  for (const Json &client : list.value("clients", Json::array())) {
    const auto pid = client.value("pid", pid_t{0});
    if (pid <= 0 || client.value("self", false)) continue;
    const auto page = daemon::HandlerTimesOf(pid, client.value("uid", uid_t{0}));
    if (page != nullptr) AddPage(*page, daemons[client.value("name", "")]);
  }
  return daemons;
}

}  // namespace

void AddHandlerMetrics(const Json &list, Metrics &metrics) {
  for (const auto &[name, daemon] : DaemonsIn(list)) {
    AddSum(kTurns, {{"daemon", name}}, daemon.sums[0], metrics);
    for (size_t kind = 1; kind < lag::kKinds; ++kind) {
      AddSum(kHandlers, {{"daemon", name}, {"kind", lag::kKindNames[kind]}}, daemon.sums[kind], metrics);
    }
    AddSlowest(name, daemon, metrics);
  }
}

}  // namespace zor::metrics
