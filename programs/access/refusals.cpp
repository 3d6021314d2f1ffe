#include "programs/access/refusals.h"

#include <arpa/inet.h>

#include "programs/limits.h"

namespace zor::access {
namespace {

template <class List, class Convert>
std::string Join(const List &list, Convert convert) {
  std::string text;
  for (const auto &each : list) text += (text.empty() ? "" : ",") + convert(each);
  return text;
}

}  // namespace

std::string WhoText(const Identity &identity) {
  std::string text;
  const auto add = [&](const char *kind, const std::string &value) {
    text += (text.empty() ? "" : " ") + std::string(kind) + value;
  };
  if (identity.board) {
    char address[INET_ADDRSTRLEN];
    const in_addr number = {htonl(*identity.board)};
    ::inet_ntop(AF_INET, &number, address, sizeof address);
    add("board:", identity.certificate ? *identity.certificate + ',' + address : address);
  }
  if (identity.user) add("user:", std::to_string(*identity.user));
  if (identity.groups && !identity.groups->empty()) {
    add("group:", Join(*identity.groups, [](gid_t group) { return std::to_string(group); }));
  }
  if (identity.unit && !identity.unit->empty()) add("unit:", EscapeWord(*identity.unit));
  if (identity.executable) add("exe:", EscapeWord(*identity.executable));
  return text.empty() ? "any" : text;
}

std::string WhatText(const Action &action) {
  const VerbWords &words = WordsOf(action.verb);
  std::string text(words.word);
  if (words.hasNumbers) {
    text += ' ' + (action.verb == Verb::kModule ? std::to_string(action.number) : TypeName(action.number));
  }
  if (action.name.empty()) return text;
  if (!words.link.empty()) text += ' ' + std::string(words.link);
  return text + ' ' + EscapeWord(action.name);
}

void Refusals::Add(const std::string &who, const Action &action, const Verdict &verdict, const Rules &rules) {
  ++total_;
  const std::string line = who + ' ' + WhatText(action);
  const auto known = entries_.find(line);
  if (known != entries_.end()) {
    ++known->second.count;
    known->second.why = rules.Explain(verdict);  // the rules may be others
  } else if (entries_.size() < limits::access::kRefusals && line.size() <= limits::access::kRefusalText) {
    const bool lacksName = action.name.empty() && WordsOf(action.verb).names == VerbWords::Names::kRequired;
    entries_[line] = {1, rules.Explain(verdict), lacksName || verdict.reason == Reason::kHeld};
  } else {
    ++unlisted_;
  }
}

std::string Refusals::Text(std::size_t mostBytes) const {
  std::string text;
  std::uint64_t unlisted = unlisted_;
  for (const auto &[line, entry] : entries_) {
    const std::string lines = "# " + entry.why + "\n" + (entry.isComment ? "# " : "") +
                              "seen = " + std::to_string(entry.count) + ' ' + line + '\n';
    if (lines.size() <= mostBytes - text.size()) {
      text += lines;
    } else {
      unlisted += entry.count;
    }
  }
  if (unlisted > 0) text += "# and " + std::to_string(unlisted) + " more, too various or too long to be listed\n";
  return text;
}

}  // namespace zor::access
