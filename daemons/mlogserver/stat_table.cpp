#include "mlogserver/stat_table.h"

namespace zor::mlogserver {

bool StatTable::Set(const std::string &name, const std::string &value) {
  if (values_.size() >= maxCount_ && !values_.contains(name)) return false;
  values_.insert_or_assign(name, value);
  return true;
}

std::string StatTable::Get(const std::string &name) const {
  const auto found = values_.find(name);
  return found == values_.end() ? std::string() : found->second;
}

}  // namespace zor::mlogserver
