// Ranges of message types as users write them.
#ifndef ZORCTL_TYPE_RANGE_H
#define ZORCTL_TYPE_RANGE_H

#include <cstdint>
#include <string>

namespace zor::ctl {

struct TypeRange {
  uint32_t first;
  uint32_t last;

  bool Contains(uint32_t type) const { return type >= first && type <= last; }
};

// "TYPE" or "TYPE-TYPE". Failure (usage) when that is no range.
TypeRange ParseTypes(const std::string &text);

}  // namespace zor::ctl

#endif
