#include "notifyserver/accounts.h"

#include <algorithm>

namespace zor::notifyserver {

bool Accounts::MayConnect(uid_t user) const {
  const auto found = users_.find(user);
  return found == users_.end() || found->second.clients < limits_.userClients;
}

std::optional<uid_t> Accounts::LargestUser() const {
  const auto largest = std::ranges::max_element(users_, {}, [](const auto &entry) { return entry.second.bytes; });
  if (largest == users_.end()) return std::nullopt;
  return largest->first;
}

bool Accounts::IsOver(uid_t user) const {
  const auto found = users_.find(user);
  return found != users_.end() && found->second.bytes > limits_.userBytes;
}

Charge::Charge(Accounts &accounts, uid_t user) : accounts_(accounts), user_(user), account_(accounts.users_[user]) {
  ++account_.clients;
}

Charge::~Charge() {
  Set(0);
  if (--account_.clients == 0) accounts_.users_.erase(user_);
}

void Charge::Set(size_t bytes) {
  const bool wasOver = account_.bytes > accounts_.limits_.userBytes;
  account_.bytes += bytes - bytes_;
  accounts_.bytes_ += bytes - bytes_;
  bytes_ = bytes;
  const bool isOver = account_.bytes > accounts_.limits_.userBytes;
  if (isOver && !wasOver) ++accounts_.usersOver_;
  if (wasOver && !isOver) --accounts_.usersOver_;
}

}  // namespace zor::notifyserver
