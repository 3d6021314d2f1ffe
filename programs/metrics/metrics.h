// Measurements as text for collectors: the format OpenMetrics 1.0.
#ifndef PROGRAMS_METRICS_METRICS_H
#define PROGRAMS_METRICS_METRICS_H

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <utility>
#include <vector>

namespace zor::metrics {

// A family of measurements: what all of them have in common. Names and meanings are stable; docs/metrics.md lists them.
struct MetricFamily {
  enum class Type { kGauge, kCounter };

  const char *name;  // of a counter: without its "_total"; ends in the unit, if there is one
  Type type;
  const char *unit;
  const char *help;
};

using Labels = std::vector<std::pair<std::string, std::string>>;

class Metrics {
 public:
  explicit Metrics(Labels common = {}) : common_(std::move(common)) {}

  // The labels of all that is added from now on.
  void SetCommon(Labels common) { common_ = std::move(common); }
  // Measurements of one family with the same labels are added up.
  void Add(const MetricFamily &family, const Labels &labels, double value);

  std::string Text() const;
  nlohmann::ordered_json AsJson() const;

 private:
  Labels common_;
  std::vector<const MetricFamily *> families_;  // in the order of their first measurement
  std::map<const MetricFamily *, std::map<Labels, double>> values_;
};

}  // namespace zor::metrics

#endif
