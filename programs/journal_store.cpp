#include "programs/journal_store.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <string>

#include "programs/journal/crash_mark.h"
#include "programs/journal/names.h"

namespace zor::daemon {
namespace {

// Tells a program that takes the place of this one which journal is its predecessor's.
constexpr const char *kVariable = "ZOR_JOURNAL";

std::optional<uint64_t> GenerationOf(const PassedDescriptor &passed) {
  return journal::NumberIn(passed.name, journal::kNamePrefix);
}

}  // namespace

std::optional<JournalContent> ReadPassedJournal(std::vector<PassedDescriptor> &passed, std::string_view program,
                                                ProblemLog &log) {
  std::ranges::stable_sort(passed, std::ranges::greater(), GenerationOf);
  for (const PassedDescriptor &each : passed) {
    if (!GenerationOf(each)) break;
    std::string problem;
    if (auto content = ReadJournal(each.fd.get(), program, problem)) return content;
    log.Print("%s cannot be used: %s", each.name.c_str(), problem.c_str());
  }
  return std::nullopt;
}

bool StoreJournal(Journal &journal, const std::vector<PassedDescriptor> &passed) {
  const std::string name = journal.Name();
  journal.SetComplete();
  NoteCrashes(journal);
  std::vector<std::string> former;
  for (const PassedDescriptor &each : passed) {
    if (GenerationOf(each)) former.push_back(each.name);
  }
  if (const char *predecessor = ::secure_getenv(kVariable); predecessor != nullptr && predecessor != name) {
    former.emplace_back(predecessor);
  }
  const bool stored = ReplaceStoredDescriptors(former, name, journal.fd());
  ::setenv(kVariable, name.c_str(), 1);
  return stored;
}

}  // namespace zor::daemon
