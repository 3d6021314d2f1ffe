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

KindSource otherSource = nullptr;

}  // namespace

void SetKindSource(KindSource source) {
  otherSource = source;
}

MessageKind KindOf(uint32_t type) {
  const auto *found =
      std::partition_point(kKinds.begin(), kKinds.end(), [=](const Kind &each) { return each.last < type; });
  if (found != kKinds.end() && type >= found->first) return found->kind;
  return otherSource == nullptr ? MessageKind::kUnknown : otherSource(type);
}

}  // namespace zor::daemon
