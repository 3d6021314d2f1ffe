#ifndef SDK_LOOP_CORE_SURVEY_H
#define SDK_LOOP_CORE_SURVEY_H

#include <cstdint>

namespace zor {

// What the first walk of an iteration, the timer pass, has found. Later passes skip the search for what is absent.
struct Survey {
  std::uint64_t changes;              // listChanges when the walk began
  std::uint64_t timerStarts;          // timerStarts when it had ended
  std::uint32_t flags = 0;            // of all watchers, or'ed together
  std::uint32_t descriptorCount = 0;  // descriptor watchers
};

}  // namespace zor

#endif
