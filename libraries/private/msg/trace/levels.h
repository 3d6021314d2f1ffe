// Which lines are printed: the settings of the modules.
#ifndef TRACE_LEVELS_H
#define TRACE_LEVELS_H

#include "trace/trace.h"

namespace zor {

// The settings of this process, in the order in which they were made.
const TraceEntry *TraceEntries() noexcept;

bool IsTraced(const char *module, std::uint32_t level) noexcept;

}  // namespace zor

#endif
