#include "programs/holdings.h"

#include "programs/output_queue.h"

namespace zor::daemon {

void Holdings::AddMessage(uid_t user, size_t size) {
  bytesOf_[user] += OutputQueue::CostOf(size);
}

std::string Holdings::ProblemWith(size_t userBytes, size_t memoryBytes) const {
  size_t all = 0;
  for (const auto &[user, bytes] : bytesOf_) {
    all += bytes;
    if (bytes <= userBytes) continue;
    return "user_bytes is too small: clients of user " + std::to_string(user) + " hold " + std::to_string(bytes) +
           " bytes";
  }
  if (all <= memoryBytes) return {};
  return "memory_bytes is too small: all clients hold " + std::to_string(all) + " bytes";
}

}  // namespace zor::daemon
