#include "programs/access/rule_reader.h"

#include <arpa/inet.h>
#include <zor/msg_wire.h>

#include <algorithm>
#include <cstring>

#include "programs/board_name.h"
#include "programs/limits.h"
#include "programs/settings.h"

namespace zor::access {
namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

Words SplitList(std::string_view text) {
  Words items;
  for (;;) {
    const std::size_t comma = text.find(',');
    items.push_back(text.substr(0, comma));
    if (comma == std::string_view::npos) return items;
    text.remove_prefix(comma + 1);
  }
}

std::string Quote(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) quoted += c >= ' ' && c < '\x7f' ? c : '?';
  return quoted + '"';
}

bool ReadUser(const std::string &item, const Accounts &accounts, Who &who) {
  who.isLocal = who.isLocal || item == "*";
  const auto user = accounts.User(item);
  if (user) who.users.push_back(*user);
  return user.has_value() || item == "*";
}

bool ReadGroup(const std::string &item, const Accounts &accounts, Who &who) {
  const auto group = accounts.Group(item);
  if (group) who.groups.push_back(*group);
  return group.has_value();
}

bool ReadExecutable(const std::string &item, const Accounts &, Who &who) {
  auto pattern = ParsePattern(item);
  if (!pattern || !pattern->text.starts_with('/')) return false;
  who.executables.push_back(std::move(*pattern));
  return true;
}

bool ReadUnit(const std::string &item, const Accounts &, Who &who) {
  auto pattern = ParsePattern(item);
  if (pattern) who.units.push_back(std::move(*pattern));
  return pattern.has_value();
}

// Names begin with a letter and addresses do not.
bool ReadBoardName(const std::string &item, Who &who) {
  auto pattern = ParsePattern(item);
  if (!pattern || !daemon::IsBoardName(pattern->text)) return false;
  who.boardNames.push_back(std::move(*pattern));
  return true;
}

bool ReadBoard(const std::string &item, const Accounts &, Who &who) {
  if (ReadBoardName(item, who)) return true;
  const std::size_t slash = std::min(item.find('/'), item.size());
  std::uint64_t bits = 32;
  in_addr address = {};
  if (item == "*") {
    bits = 0;
  } else if (::inet_pton(AF_INET, item.substr(0, slash).c_str(), &address) != 1 ||
             (slash < item.size() && (!daemon::ParseNumber(item.substr(slash + 1), &bits) || bits > 32))) {
    return false;
  }
  const std::uint32_t mask = bits == 0 ? 0 : UINT32_MAX << (32 - bits);
  who.boards.push_back({ntohl(address.s_addr) & mask, mask});
  return true;
}

struct Condition {
  std::string_view kind;
  const char *mistake;  // what an item is that cannot be read
  bool (*isSet)(const Who &who);
  bool (*read)(const std::string &item, const Accounts &accounts, Who &who);
};

constexpr Condition kConditions[] = {
    {"user:", "no such user", [](const Who &who) { return who.isLocal || !who.users.empty(); }, ReadUser},
    {"group:", "no such group", [](const Who &who) { return !who.groups.empty(); }, ReadGroup},
    {"exe:", "not an absolute path", [](const Who &who) { return !who.executables.empty(); }, ReadExecutable},
    {"unit:", "not the name of a unit", [](const Who &who) { return !who.units.empty(); }, ReadUnit},
    {"board:", "not a board's name, an IPv4 address, ADDRESS/BITS or *",
     [](const Who &who) { return !who.boards.empty() || !who.boardNames.empty(); }, ReadBoard},
};

// Null for a word that is no condition.
const Condition *ConditionOf(std::string_view word) {
  const auto *found = std::find_if(std::begin(kConditions), std::end(kConditions),
                                   [=](const Condition &each) { return word.starts_with(each.kind); });
  return found == std::end(kConditions) ? nullptr : found;
}

const VerbWords *VerbOf(std::string_view word) {
  const auto found =
      std::find_if(kVerbWords.begin(), kVerbWords.end(), [=](const VerbWords &each) { return each.word == word; });
  return found == kVerbWords.end() ? nullptr : &*found;
}

std::string_view TakeWord(Words &words) {
  if (words.empty()) return {};
  const std::string_view word = words.front();
  words.erase(words.begin());
  return word;
}

}  // namespace

Words SplitWords(std::string_view text) {
  Words words;
  for (text = Trim(text); !text.empty(); text = Trim(text)) {
    const std::size_t end = std::min(text.find_first_of(kBlanks), text.size());
    words.push_back(text.substr(0, end));
    text.remove_prefix(end);
  }
  return words;
}

bool RuleReader::Fail(const Place &place, const std::string &what) {
  mistakes_.push_back(place.Text() + ": " + what);
  return false;
}

void RuleReader::ReadText(std::string_view text, const std::string &file, Rules &rules) {
  Rules own;
  for (int number = 1; !text.empty(); ++number) {
    const std::size_t end = text.find('\n');
    ReadLine(text.substr(0, end), {file, number}, own);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  if (rules.list_.size() + own.list_.size() > limits::access::kRules) {
    mistakes_.push_back(file + ": more than " + std::to_string(limits::access::kRules) + " rules");
    return;
  }
  rules.list_.insert(rules.list_.end(), std::make_move_iterator(own.list_.begin()),
                     std::make_move_iterator(own.list_.end()));
  if (!rules.mode_) rules.mode_ = std::move(own.mode_);
  if (!rules.sharesNames_) rules.sharesNames_ = std::move(own.sharesNames_);
}

void RuleReader::ReadLine(std::string_view line, const Place &place, Rules &rules) {
  if (line.size() > limits::access::kLine) {
    Fail(place, "longer than " + std::to_string(limits::access::kLine) + " bytes");
    return;
  }
  line = Trim(line);
  if (line.empty() || line.front() == '#') return;
  const std::size_t equals = line.find('=');
  const std::string_view key = Trim(line.substr(0, equals));
  const std::string_view value = equals == std::string_view::npos ? "" : Trim(line.substr(equals + 1));
  if (equals == std::string_view::npos || key.empty()) {
    Fail(place, "not of the form key = value");
  } else if (key == "allow" || key == "deny") {
    ReadRule(key == "allow", value, place, rules);
  } else if (key == "mode") {
    ReadSetting(key, value, "enforce", "observe", place, rules.mode_, Mode::kEnforce, Mode::kObserve);
  } else if (key == "shared_names") {
    ReadSetting(key, value, "yes", "no", place, rules.sharesNames_, true, false);
  } else {
    Fail(place, "no such key: " + Quote(key) + "; there are allow, deny, mode and shared_names");
  }
}

template <class Setting, class Value>
void RuleReader::ReadSetting(std::string_view key, std::string_view value, std::string_view first,
                             std::string_view second, const Place &place, Setting &setting, Value ifFirst,
                             Value ifSecond) {
  if (setting) {
    Fail(place, std::string(key) + " is already set in line " + std::to_string(setting->place.line));
  } else if (value != first && value != second) {
    Fail(place, std::string(key) + " must be " + std::string(first) + " or " + std::string(second));
  } else {
    setting = {value == first ? ifFirst : ifSecond, place};
  }
}

void RuleReader::ReadRule(bool allows, std::string_view value, const Place &place, Rules &rules) {
  Rule rule;
  Words words = SplitWords(value);
  if (!ReadWho(words, place, rule.who) || !ReadWhat(words, place, rule.what)) return;
  const Who &who = rule.who;
  // Every user can start a program, and then do in its process what he likes.
  if (allows && !who.executables.empty() && who.users.empty() && who.groups.empty() && who.units.empty()) {
    Fail(place, "exe: is no condition by itself, since any user can start that file; add user:, group: or unit:");
    return;
  }
  rule.allows = allows;
  rule.place = place;
  rule.text = (allows ? "allow = " : "deny = ") + std::string(value);
  rules.list_.push_back(std::move(rule));
}

bool RuleReader::ReadWho(Words &words, const Place &place, Who &who) {
  const bool isAny = !words.empty() && words.front() == "any";
  if (isAny) words.erase(words.begin());
  int conditions = 0;
  for (; !words.empty() && ConditionOf(words.front()) != nullptr; ++conditions) {
    if (!ReadCondition(TakeWord(words), place, who)) return false;
  }
  if (isAny == (conditions == 0)) return true;
  if (isAny) return Fail(place, "any has no further conditions");
  return Fail(place, "begins with any, or with user:, group:, exe:, unit: or board:");
}

bool RuleReader::ReadCondition(std::string_view word, const Place &place, Who &who) {
  const Condition &condition = *ConditionOf(word);
  if (condition.isSet(who)) {
    return Fail(place, std::string(condition.kind) + " is there twice; write a list, with commas");
  }
  for (const std::string_view item : SplitList(word.substr(condition.kind.size()))) {
    if (!condition.read(std::string(item), accounts_, who)) {
      return Fail(place, std::string(condition.mistake) + ": " + Quote(item));
    }
  }
  return true;
}

bool RuleReader::ReadWhat(Words words, const Place &place, What &what) {
  const std::string_view word = TakeWord(words);
  const VerbWords *verb = VerbOf(word);
  if (verb == nullptr) {
    std::string known;
    for (const VerbWords &each : kVerbWords) known += (known.empty() ? "" : ", ") + std::string(each.word);
    return Fail(place, word.empty() ? "nothing that is done; there are " + known
                                    : "not something that is done: " + Quote(word) + "; there are " + known);
  }
  what.verb = verb->verb;
  if (verb->hasNumbers && !ReadNumbers(TakeWord(words), *verb, place, what)) return false;
  if (!verb->link.empty() && !words.empty() && words.front() == verb->link) {
    words.erase(words.begin());
    if (words.empty()) return Fail(place, "no name behind " + Quote(verb->link));
  } else if (!verb->link.empty() && (!words.empty() || verb->names == VerbWords::Names::kRequired)) {
    return Fail(place, std::string(word) + " takes types, " + Quote(verb->link) + " and names");
  }
  const bool takesNames = verb->names == VerbWords::Names::kRequired || (!verb->link.empty() && !words.empty());
  if (takesNames && !ReadNames(TakeWord(words), verb->verb, place, what)) return false;
  if (words.empty()) return true;
  return Fail(place, "one word too many: " + Quote(words.front()) + "; lists have commas and no blanks");
}

bool RuleReader::ReadObservation(Words words, const Place &place, Who &who, What &what) {
  std::uint64_t count = 0;
  if (words.size() < 3 || words[0] != "seen" || words[1] != "=" || !daemon::ParseNumber(words[2], &count)) {
    return Fail(place, "not of the form seen = COUNT WHO... WHAT");
  }
  words.erase(words.begin(), words.begin() + 3);
  if (!ReadWho(words, place, who) || !ReadWhat(words, place, what)) return false;
  return what.verb != Verb::kAll || Fail(place, "all is not something that is seen");
}

bool RuleReader::ReadNumbers(std::string_view word, const VerbWords &verb, const Place &place, What &what) {
  const std::string kind = verb.verb == Verb::kModule ? "module" : "type";
  if (word.empty()) return Fail(place, std::string(verb.word) + " takes a list of " + kind + "s");
  for (const std::string_view item : SplitList(word)) {
    if (item == "*") {
      what.numbers.push_back({0, UINT32_MAX});
      continue;
    }
    const auto range = ParseTypes(item);
    if (!range) return Fail(place, "not a " + kind + ", a range or *: " + Quote(item));
    if (range->first < verb.leastNumber || range->last > verb.mostNumber) {
      return Fail(place, "out of range for " + std::string(verb.word) + ": " + Quote(item));
    }
    what.numbers.push_back(*range);
  }
  return true;
}

bool RuleReader::ReadNames(std::string_view word, Verb verb, const Place &place, What &what) {
  if (word.empty()) return Fail(place, std::string(WordsOf(verb).word) + " takes a list of names");
  for (const std::string_view item : SplitList(word)) {
    const auto pattern = ParsePattern(item);
    if (!pattern) return Fail(place, "not a name: " + Quote(item) + "; '*' may only be its end");
    if (verb != Verb::kServe && pattern->text.size() >= ZOR_MSG_NAME_SIZE) {
      return Fail(place, "names have at most " + std::to_string(ZOR_MSG_NAME_SIZE - 1) + " characters: " + Quote(item));
    }
    what.names.push_back(*pattern);
  }
  return true;
}

}  // namespace zor::access
