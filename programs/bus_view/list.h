// The message server's list as parsed JSON, for those who have it so.
#ifndef PROGRAMS_BUS_VIEW_LIST_H
#define PROGRAMS_BUS_VIEW_LIST_H

#include <nlohmann/json_fwd.hpp>

#include "programs/bus_view/sample.h"

namespace zor::busview {

// A list without clients if it has none that can be read.
Sample SampleOf(const nlohmann::json &list, Clock::time_point taken, const ProcessReader &process);

}  // namespace zor::busview

#endif
