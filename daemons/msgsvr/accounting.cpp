#include "msgsvr/accounting.h"

namespace zor::msgsvr {

void PendingRequests::Add(const Request &request) {
  if (requests_.size() == limits::msgsvr::kPendingRequests) requests_.erase(requests_.begin());
  requests_.push_back(request);
}

bool PendingRequests::TakeReply(const AppName &from, uint32_t type, uint32_t sequence) {
  auto match = requests_.end();
  for (auto request = requests_.begin(); request != requests_.end(); ++request) {
    if (request->type != type || request->to != from) continue;
    const bool sameSequence = request->sequence == sequence;
    if (sameSequence || match == requests_.end()) match = request;
    if (sameSequence) break;
  }
  if (match == requests_.end()) return false;
  requests_.erase(match);
  return true;
}

void PendingRequests::Undo(uint32_t type, uint32_t sequence) {
  const auto latest = std::find_if(requests_.rbegin(), requests_.rend(), [&](const Request &request) {
    return request.type == type && request.sequence == sequence;
  });
  if (latest != requests_.rend()) requests_.erase(std::next(latest).base());
}

void Losses::Add(const AppName &name, uint64_t messages) {
  if (byName_.size() < limits::msgsvr::kLossNames || byName_.contains(name)) byName_[name] += messages;
}

uint64_t Losses::Take(const AppName &name) {
  const auto entry = byName_.extract(name);
  return entry.empty() ? 0 : entry.mapped();
}

}  // namespace zor::msgsvr
