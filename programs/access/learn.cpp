#include "programs/access/learn.h"

#include <arpa/inet.h>

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "programs/access/rule_reader.h"
#include "programs/limits.h"

namespace zor::access {
namespace {

constexpr std::size_t kListLength = 100;  // of a line that people read

using Texts = std::set<std::string>;

// A number at the end of a name that is long enough to be that of a process.
constexpr std::size_t kProcessDigits = 3;

// Where the number at its end begins. An escaped character may end in digits that are none.
std::size_t StemOf(const std::string &name) {
  return name.find('\\') == std::string::npos ? name.find_last_not_of("0123456789") + 1 : name.size();
}

// Names that differ only in a number at their end, or that end in that of a process, become their common start.
Texts Fold(const Texts &names) {
  std::map<std::string, std::size_t> stems;
  for (const std::string &name : names) {
    if (StemOf(name) < name.size()) ++stems[name.substr(0, StemOf(name))];
  }
  Texts folded;
  for (const std::string &name : names) {
    const std::size_t stem = StemOf(name), digits = name.size() - stem;
    const bool isOneOfMany = digits > 0 && (digits >= kProcessDigits || stems[name.substr(0, stem)] > 1);
    folded.insert(stem > 0 && isOneOfMany ? name.substr(0, stem) + '*' : name);
  }
  return folded;
}

class Lesson {
 public:
  explicit Lesson(const Accounts &accounts) : accounts_(accounts) {}

  void Add(const Who &who, const What &what) {
    ++count_;
    const std::string peer = TextOf(who);
    if (peer.empty()) return void(++strangers_);
    const VerbWords &words = WordsOf(what.verb);
    Texts names;
    for (const Pattern &each : what.names) names.insert(EscapeWord(each.text) + (each.isPrefix ? "*" : ""));
    if (!words.hasNumbers) return done_[{what.verb, peer, ""}].merge(names);
    for (const std::string &name : names.empty() ? Texts{""} : names) {
      for (const Range &range : what.numbers) done_[{what.verb, peer, name}].insert(TextOf(range, what.verb));
    }
  }

  std::string Text() {
    MergeReceivers();
    std::string text =
        "# Learned from " + std::to_string(count_) + " observations. Read each line before it is used.\n";
    if (strangers_ > 0) text += "# Nothing is known of who did " + std::to_string(strangers_) + " of them.\n";
    Verb latest = Verb::kAll;
    for (const auto &[key, items] : done_) {
      const auto &[verb, peer, list] = key;
      if (verb != latest) Reserve(latest, text);
      latest = verb;
      const VerbWords &words = WordsOf(verb);
      const std::string start = "allow = " + peer + ' ' + std::string(words.word) + ' ';
      if (!words.hasNumbers || words.names == VerbWords::Names::kNone) {
        AddLines(start, words.hasNumbers ? items : Fold(items), text);
      } else {
        for (const std::string &names : Lists(items)) {
          AddLine(start + list + (names.empty() ? "" : ' ' + std::string(words.link) + ' ' + names), text);
        }
      }
    }
    Reserve(latest, text);
    return text;
  }

 private:
  using Key = std::tuple<Verb, std::string, std::string>;  // verb, peer, and the receiver or, later, the types

  // Empty when it does not tell peers apart.
  std::string TextOf(const Who &who) const {
    std::string text;
    if (!who.boardNames.empty()) return "board:" + who.boardNames.front().text;
    if (!who.boards.empty()) {
      char address[INET_ADDRSTRLEN];
      const in_addr number = {htonl(who.boards.front().address)};
      return std::string("board:") + ::inet_ntop(AF_INET, &number, address, sizeof address);
    }
    if (who.users.empty()) return text;
    text = "user:" + EscapeWord(accounts_.UserName(who.users.front()));
    if (!who.units.empty()) return text + " unit:" + EscapeWord(who.units.front().text);
    return who.executables.empty() ? text : text + " exe:" + EscapeWord(who.executables.front().text);
  }

  static std::string TextOf(const Range &range, Verb verb) {
    if (verb == Verb::kModule && range.first == range.last) return std::to_string(range.first);
    return TypeName(range.first) + (range.first == range.last ? "" : '-' + TypeName(range.last));
  }

  // Receivers of the same types share a line.
  void MergeReceivers() {
    std::map<Key, Texts> merged;
    for (auto &[key, items] : done_) {
      const auto &[verb, peer, name] = key;
      if (!WordsOf(verb).hasNumbers || WordsOf(verb).names == VerbWords::Names::kNone) {
        merged[key] = items;
        continue;
      }
      for (const std::string &types : Lists(items)) merged[{verb, peer, types}].insert(name);
    }
    done_ = std::move(merged);
  }

  // The items with commas between them, in lists that are short enough for a line. The empty one, which stands for the
  // daemon itself, is a list of its own.
  static std::vector<std::string> Lists(const Texts &items) {
    std::vector<std::string> lists;
    for (const std::string &item : items) {
      if (lists.empty() || lists.back().empty() || lists.back().size() + item.size() > kListLength) {
        lists.push_back(item);
      } else {
        lists.back() += ',' + item;
      }
    }
    return lists;
  }

  // What has an owner is denied to everyone else; the start of many names is not one owner's.
  void Reserve(Verb verb, std::string &text) const {
    if (verb != Verb::kOwn && verb != Verb::kModule) return;
    Texts all;
    for (const auto &[key, items] : done_) {
      if (std::get<Verb>(key) == verb) all.merge(verb == Verb::kOwn ? Fold(items) : Texts(items));
    }
    std::erase_if(all, [](const std::string &item) { return item.ends_with('*'); });
    AddLines("deny = any " + std::string(WordsOf(verb).word) + ' ', all, text);
  }

  static void AddLines(const std::string &start, const Texts &items, std::string &text) {
    for (const std::string &list : Lists(items)) AddLine(start + list, text);
  }

  static void AddLine(const std::string &line, std::string &text) {
    text += (line.size() > limits::access::kLine ? "# too long: " : "") + line + '\n';
  }

  const Accounts &accounts_;
  std::map<Key, Texts> done_;
  std::size_t count_ = 0;
  std::size_t strangers_ = 0;
};

}  // namespace

std::optional<std::string> Learn(std::string_view observations, const std::string &file, const Accounts &accounts,
                                 std::vector<std::string> &mistakes) {
  Lesson lesson(accounts);
  RuleReader reader(accounts, mistakes);
  const std::size_t before = mistakes.size();
  for (int number = 1; !observations.empty(); ++number) {
    const std::string_view line = observations.substr(0, observations.find('\n'));
    observations.remove_prefix(std::min(line.size() + 1, observations.size()));
    Words words = SplitWords(line);
    if (words.empty() || words.front().starts_with('#')) continue;
    Who who;
    What what;
    if (reader.ReadObservation(words, {file, number}, who, what)) lesson.Add(who, what);
  }
  if (mistakes.size() > before) return std::nullopt;
  return lesson.Text();
}

}  // namespace zor::access
