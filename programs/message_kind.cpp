#include "programs/message_kind.h"

#include <algorithm>
#include <array>

namespace zor::daemon {
namespace {

struct Kind {
  uint32_t first;
  uint32_t last;
  MessageKind kind;
};

// In ascending order.
constexpr auto kKinds = std::to_array<Kind>({
#include "programs/message_kinds.inc"
});

}  // namespace

MessageKind KindOf(uint32_t type) {
  const auto *found =
      std::partition_point(kKinds.begin(), kKinds.end(), [=](const Kind &each) { return each.last < type; });
  return found == kKinds.end() || type < found->first ? MessageKind::kUnknown : found->kind;
}

}  // namespace zor::daemon
