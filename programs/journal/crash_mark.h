// Tells a crash from a kill: the signals of a crash are noted in the journal before they end the process.
#ifndef PROGRAMS_JOURNAL_CRASH_MARK_H
#define PROGRAMS_JOURNAL_CRASH_MARK_H

#include <cstdint>

#include "programs/journal/journal.h"

namespace zor::daemon {

// A crash says more about the frame at work than a kill, which may hit the same frame twice by chance. At so much the
// frame is dropped.
inline constexpr uint32_t kCrash = 2, kKill = 1;
inline constexpr uint32_t kMostCrashes = 2 * kCrash;

// From now on; the journal must live as long as the process.
void NoteCrashes(Journal &journal);

}  // namespace zor::daemon

#endif
