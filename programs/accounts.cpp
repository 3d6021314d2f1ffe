#include "programs/accounts.h"

#include <algorithm>

namespace zor::daemon {
namespace {

// Connections that any process may have, before it has to give one up for others.
constexpr size_t kFewConnections = 8;

// Part of a share that is not lent beyond what every client may hold: 1/8.
constexpr size_t Lent(size_t share) {
  return share - share / 8;
}

// Whether one of several may hold so much, while all of them hold that much of the share.
bool Fits(size_t one, size_t all, size_t share) {
  return all <= Lent(share) && one <= 2 * (Lent(share) - all);
}

}  // namespace

bool Accounts::MayConnect(uid_t user) const {
  return clients_ < shares_.clients && ClientsOf(user) < shares_.userClients;
}

std::optional<Holder> Accounts::GiverTo(const Holder &newcomer) const {
  const bool userIsFull = ClientsOf(newcomer.user) >= shares_.userClients;
  const auto own = processes_.find(newcomer);
  size_t most = std::max(own == processes_.end() ? 0 : own->second, kFewConnections);
  std::optional<Holder> giver;
  for (const auto &[holder, connections] : processes_) {
    if ((userIsFull && holder.user != newcomer.user) || connections <= most) continue;
    most = connections;
    giver = holder;
  }
  return giver;
}

std::optional<uid_t> Accounts::LargestUser() const {
  const auto largest = std::ranges::max_element(users_, {}, [](const auto &entry) { return entry.second.bytes; });
  if (largest == users_.end()) return std::nullopt;
  return largest->first;
}

bool Accounts::IsOver(uid_t user) const {
  return BytesOf(user) > shares_.userBytes;
}

size_t Accounts::BytesOf(uid_t user) const {
  const auto found = users_.find(user);
  return found == users_.end() ? 0 : found->second.bytes;
}

size_t Accounts::ClientsOf(uid_t user) const {
  const auto found = users_.find(user);
  return found == users_.end() ? 0 : found->second.clients;
}

Charge::Charge(Accounts &accounts, const Holder &holder)
    : accounts_(accounts), holder_(holder), user_(accounts.users_.try_emplace(holder.user).first) {
  try {
    process_ = accounts.processes_.try_emplace(holder, 0).first;
  } catch (...) {
    if (user_->second.clients == 0) accounts.users_.erase(user_);
    throw;
  }
  ++process_->second;
  ++user_->second.clients;
  ++accounts.clients_;
}

void Charge::MoveTo(const Holder &holder) {
  if (released_ || holder.user != holder_.user || holder == holder_) return;
  const auto process = accounts_.processes_.try_emplace(holder, 0).first;
  ++process->second;
  if (--process_->second == 0) accounts_.processes_.erase(process_);
  process_ = process;
  holder_ = holder;
}

bool Charge::MayTake(size_t more) const {
  if (released_) return false;
  const size_t wanted = bytes_ + more;
  if (wanted <= Accounts::kOwnBytes) return true;
  const size_t ofUser = user_->second.bytes + more;
  return Fits(wanted, ofUser, accounts_.shares_.userBytes) &&
         Fits(ofUser, accounts_.bytes_ + more, accounts_.shares_.bytes);
}

void Charge::Set(size_t bytes) {
  if (released_) return;
  Accounts::User &user = user_->second;
  const bool wasOver = user.bytes > accounts_.shares_.userBytes;
  user.bytes += bytes - bytes_;
  accounts_.bytes_ += bytes - bytes_;
  bytes_ = bytes;
  const bool isOver = user.bytes > accounts_.shares_.userBytes;
  if (isOver && !wasOver) ++accounts_.usersOver_;
  if (wasOver && !isOver) --accounts_.usersOver_;
}

void Charge::Release() {
  Set(0);
  if (released_) return;
  released_ = true;
  --accounts_.clients_;
  if (--process_->second == 0) accounts_.processes_.erase(process_);
  if (--user_->second.clients == 0) accounts_.users_.erase(user_);
}

}  // namespace zor::daemon
