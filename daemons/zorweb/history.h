// Rates of the last ten minutes, of the bus and of each daemon: means over steps of some seconds. Bounded: daemons
// beyond a number are left out until others have not been seen for the whole time.
#ifndef ZORWEB_HISTORY_H
#define ZORWEB_HISTORY_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "programs/bus_view/view.h"
#include "programs/limits.h"

namespace zor::web {

class History {
 public:
  static constexpr std::int64_t kStepMs = 5000;
  static constexpr std::size_t kSteps = limits::zorweb::kHistorySeconds * 1000 / kStepMs;

  // The rates at a time since 1970. Those of daemons with one name are added up.
  void Add(std::int64_t nowMs, const busview::Sample &sample, const busview::View &view);
  // {"step_ms":N,"until":STEP,"bus":[[in...],[out...]],"daemons":{"NAME":[...]}}, the oldest first, null where unknown.
  nlohmann::ordered_json AsJson() const;

 private:
  struct Mean {
    float sum = 0;
    std::uint16_t count = 0;
  };
  struct Series {
    std::array<Mean, kSteps> sent = {}, received = {};
    std::int64_t latest = 0;  // step of the latest rate
  };

  void Put(Series &series, const busview::Rate &sent, const busview::Rate &received) const;
  nlohmann::ordered_json Of(const Series &series) const;
  static void Clear(Series &series, std::int64_t step);

  std::int64_t step_ = 0;  // since 1970
  Series bus_;
  std::map<std::string, Series> daemons_;
};

}  // namespace zor::web

#endif
