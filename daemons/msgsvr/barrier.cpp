#include "msgsvr/barrier.h"

#include <algorithm>

#include "programs/limits.h"

namespace zor::msgsvr {

bool Barriers::Wait(const Waiter &waiter) {
  Forget(*waiter.client);
  const auto post = std::find(posts_.begin(), posts_.end(), waiter.name);
  if (post != posts_.end()) {
    posts_.erase(post);
    return true;
  }
  waiters_.push_back(waiter);
  waiters_.back().order = ++lastOrder_;
  return false;
}

std::vector<Barriers::Waiter> Barriers::Post(const AppName &name) {
  const auto released =
      std::stable_partition(waiters_.begin(), waiters_.end(), [&](const Waiter &w) { return w.name != name; });
  std::vector<Waiter> result(released, waiters_.end());
  waiters_.erase(released, waiters_.end());
  if (result.empty() && std::find(posts_.begin(), posts_.end(), name) == posts_.end()) {
    if (posts_.size() == limits::msgsvr::kBarrierPosts) posts_.pop_front();
    posts_.push_back(name);
  }
  return result;
}

void Barriers::Forget(const Client &client) {
  std::erase_if(waiters_, [&](const Waiter &waiter) { return waiter.client == &client; });
}

}  // namespace zor::msgsvr
