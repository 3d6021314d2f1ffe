#include "mlogserver/stat_table.h"

namespace zor::mlogserver {

const char *StatTable::Set(const std::string &name, const std::string &value, uid_t user, bool isOperator) {
  const auto found = entries_.find(name);
  if (found == entries_.end()) return Add(name, value, user);
  Entry &entry = found->second;
  if (entry.user != user && !isOperator) return "it belongs to another user";
  entry.value = value;
  if (entry.user == user) return nullptr;
  ++counts_[user];
  --counts_[entry.user];
  entry.user = user;
  return nullptr;
}

const char *StatTable::Add(const std::string &name, const std::string &value, uid_t user) {
  if (entries_.size() >= maxCount_) return "too many statistics";
  size_t &count = counts_[user];
  if (count >= maxPerUser_) return "too many statistics of this user";
  entries_.emplace(name, Entry{value, user});
  ++count;
  return nullptr;
}

std::string StatTable::Get(const std::string &name) const {
  const auto found = entries_.find(name);
  return found == entries_.end() ? std::string() : found->second.value;
}

}  // namespace zor::mlogserver
