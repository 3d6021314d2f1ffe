// Tells a crash from a kill: the signals of a crash are noted in the journal before they end the process.
#ifndef PROGRAMS_JOURNAL_CRASH_MARK_H
#define PROGRAMS_JOURNAL_CRASH_MARK_H

#include "programs/journal/journal.h"

namespace zor::daemon {

// From now on; the journal must live as long as the process.
void NoteCrashes(Journal &journal);

}  // namespace zor::daemon

#endif
