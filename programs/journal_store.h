// Journals in the service manager's descriptor store.
#ifndef PROGRAMS_JOURNAL_STORE_H
#define PROGRAMS_JOURNAL_STORE_H

#include <optional>
#include <string_view>
#include <vector>

#include "programs/journal/journal.h"
#include "programs/journal/reader.h"
#include "programs/problem_log.h"
#include "programs/service_manager.h"

namespace zor::daemon {

// The newest usable journal among the passed descriptors; the log says why any other is not used. A server that crashes
// while it makes its own journal leaves its predecessor's too.
std::optional<JournalContent> ReadPassedJournal(std::vector<PassedDescriptor> &passed, std::string_view program,
                                                ProblemLog &log);

// Stores the journal, which has everything that earlier ones had, and removes those: the passed ones, and that of the
// program whose place this one has taken. Call it before anything is sent to a client. Crashes are noted in it from now
// on. False if there is no service manager, or it did not take the journal.
bool StoreJournal(Journal &journal, const std::vector<PassedDescriptor> &passed);

}  // namespace zor::daemon

#endif
