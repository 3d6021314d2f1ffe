#include "programs/access/rules.h"

namespace zor::access {

Verdict Rules::Decide(const Identity &identity, const Action &action) const {
  if (isOpen()) return {};
  const Verdict verdict = VerdictOf(FirstFor(Concerning(identity), action));
  if (verdict.allowed && IsHeldByOther(identity, action)) return {false, Reason::kHeld, nullptr};
  return verdict;
}

std::vector<std::int32_t> Rules::Concerning(const Identity &identity) const {
  std::vector<std::int32_t> numbers;
  for (std::size_t i = 0; i < list_.size(); ++i) {
    if (list_[i].Concerns(identity)) numbers.push_back(static_cast<std::int32_t>(i));
  }
  return numbers;
}

std::int32_t Rules::FirstFor(const std::vector<std::int32_t> &concerning, const Action &action) const {
  for (const std::int32_t i : concerning) {
    if (list_[static_cast<std::size_t>(i)].Matches(action)) return i;
  }
  return kUnmatched;
}

Verdict Rules::VerdictOf(std::int32_t rule) const {
  if (rule == kUnmatched) return {false, Reason::kUnmatched, nullptr};
  const Rule &known = list_[static_cast<std::size_t>(rule)];
  return {known.allows, Reason::kRule, &known};
}

bool Rules::IsHeldByOther(const Identity &identity, const Action &action) const {
  if (action.holder == nullptr || isOpen() || (sharesNames_ && sharesNames_->value)) return false;
  return !action.holder->IsSameOwner(identity);
}

std::string Rules::Explain(const Verdict &verdict) const {
  switch (verdict.reason) {
    case Reason::kRule:
      return verdict.rule->place.Text() + ": " + verdict.rule->text;
    case Reason::kUnmatched:
      return "no rule is about it";
    case Reason::kHeld:
      return "another user has the name: " + (sharesNames_ ? sharesNames_->place.Text() + ": " : std::string()) +
             "shared_names = no";
    case Reason::kOpen:
      break;
  }
  return "there are no rules";
}

}  // namespace zor::access
