// Descriptors that a process has received together, known by their numbers, until each gets its owner. Nothing can be
// taken that was not received, or twice; what nobody takes is closed.
#ifndef PROGRAMS_DESCRIPTOR_SET_H
#define PROGRAMS_DESCRIPTOR_SET_H

#include <map>

#include "common/unique_fd.h"

namespace zor::daemon {

class DescriptorSet {
 public:
  // All that the process has but the standard ones and that one: call it before it has opened any of its own.
  static DescriptorSet OfProcess(int except);

  // Returns its number.
  int Add(UniqueFd fd);
  // Invalid if it is not in the set.
  UniqueFd Take(int number);

 private:
  std::map<int, UniqueFd> byNumber_;
};

}  // namespace zor::daemon

#endif
