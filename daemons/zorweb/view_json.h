// The bus as the page draws it.
#ifndef ZORWEB_VIEW_JSON_H
#define ZORWEB_VIEW_JSON_H

#include <cstdint>
#include <nlohmann/json_fwd.hpp>

#include "programs/bus_view/view.h"

namespace zor::web {

// Names are escaped: whatever a daemon calls itself, the page gets printable text. Members whose value is unknown are
// left out. Of daemons, edges and requests beyond a number the rest is counted under "left_out".
nlohmann::ordered_json ViewJson(std::int64_t nowMs, const busview::Sample &sample, const busview::View &view);

}  // namespace zor::web

#endif
