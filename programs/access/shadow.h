// Rules that never decide, because an earlier one always does: mostly a mistake in their order.
#ifndef PROGRAMS_ACCESS_SHADOW_H
#define PROGRAMS_ACCESS_SHADOW_H

#include <vector>

#include "programs/access/rules.h"

namespace zor::access {

struct Shadow {
  const Rule *rule;
  const Rule *earlier;
};

// Those of which this is certain.
std::vector<Shadow> FindShadows(const Rules &rules);

}  // namespace zor::access

#endif
