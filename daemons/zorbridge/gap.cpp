#include "zorbridge/gap.h"

#include <algorithm>
#include <new>

#include "programs/limits.h"
#include "programs/messages/json_text.h"
#include "zorbridge/time_text.h"

namespace zor::bridge {

void Gap::Count(std::string_view group, std::uint64_t records, std::int64_t fromMs, std::int64_t toMs) noexcept {
  if (lost_ == 0) fromMs_ = fromMs;
  toMs_ = toMs;
  lost_ += records;
  try {
    CountGroup(group, records);
  } catch (const std::bad_alloc &) {
    other_ += records;
  }
}

void Gap::CountGroup(std::string_view group, std::uint64_t records) {
  const auto found =
      std::find_if(groups_.begin(), groups_.end(), [&](const auto &each) { return each.first == group; });
  if (found != groups_.end()) {
    found->second += records;
  } else if (group.empty() || groups_.size() == limits::zorbridge::kGapGroups) {
    other_ += records;
  } else {
    groups_.emplace_back(group, records);
  }
}

std::string Gap::Members() const {
  std::string members = "\"lost\":" + std::to_string(lost_) + ",\"from\":\"" + TimeText(fromMs_) + "\",\"to\":\"" +
                        TimeText(toMs_) + "\",\"by\":{";
  const auto append = [&members](std::string_view group, std::uint64_t records) {
    if (members.back() != '{') members += ',';
    members += messages::JsonString(group) + ':' + std::to_string(records);
  };
  for (const auto &[group, records] : groups_) append(group, records);
  if (other_ > 0) append("other", other_);
  return members + '}';
}

}  // namespace zor::bridge
