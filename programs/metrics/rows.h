// Measurements that are members of a JSON object, as a table.
#ifndef PROGRAMS_METRICS_ROWS_H
#define PROGRAMS_METRICS_ROWS_H

#include <algorithm>
#include <span>

#include "programs/metrics/metrics.h"

namespace zor::metrics {

// A measurement and the member of a JSON object that it comes from.
struct Row {
  const char *member;
  double scale;  // of the member, by which it is divided
  MetricFamily family;
};

// What is missing is not measured.
template <class AnyJson>
void AddRows(std::span<const Row> rows, const AnyJson &object, const Labels &labels, Metrics &metrics) {
  for (const Row &row : rows) {
    const auto member = object.find(row.member);
    if (member == object.end() || !member->is_number()) continue;
    metrics.Add(row.family, labels, std::max(member->template get<double>(), 0.0) / row.scale);
  }
}

}  // namespace zor::metrics

#endif
