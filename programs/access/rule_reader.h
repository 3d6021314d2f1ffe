// Reads rules. Every mistake is reported with its place and leaves its line out; the caller then rejects the whole set.
//
// The language, one line each:
//   mode = enforce | observe          shared_names = yes | no
//   allow = WHO... WHAT               deny = WHO... WHAT
// WHO is "any", or conditions "user:", "group:", "exe:", "unit:" and "board:" with a list behind each; WHAT is a verb
// (action.h) with its numbers and names. An observation is the same with what was seen instead of what is wanted:
//   seen = COUNT WHO... WHAT
#ifndef PROGRAMS_ACCESS_RULE_READER_H
#define PROGRAMS_ACCESS_RULE_READER_H

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "programs/access/accounts.h"
#include "programs/access/rules.h"

namespace zor::access {

using Words = std::vector<std::string_view>;

// The words of a text, which blanks separate.
Words SplitWords(std::string_view text);

class RuleReader {
 public:
  RuleReader(const Accounts &accounts, std::vector<std::string> &mistakes) : accounts_(accounts), mistakes_(mistakes) {}

  // Adds the lines of a file to a set. Of a setting in several files the first counts, as it does of rules.
  void ReadText(std::string_view text, const std::string &file, Rules &rules);

  // The two parts of a rule, for whoever else speaks its language. The conditions are the leading words, the rest is
  // left in `words`. False, with a mistake at the place, for malformed ones.
  bool ReadWho(Words &words, const Place &place, Who &who);
  bool ReadWhat(Words words, const Place &place, What &what);
  // The words of a line "seen = COUNT WHO... WHAT".
  bool ReadObservation(Words words, const Place &place, Who &who, What &what);

 private:
  void ReadLine(std::string_view line, const Place &place, Rules &rules);
  void ReadRule(bool allows, std::string_view value, const Place &place, Rules &rules);
  template <class Setting, class Value>
  void ReadSetting(std::string_view key, std::string_view value, std::string_view first, std::string_view second,
                   const Place &place, Setting &setting, Value ifFirst, Value ifSecond);
  bool ReadCondition(std::string_view word, const Place &place, Who &who);
  bool ReadNumbers(std::string_view word, const VerbWords &verb, const Place &place, What &what);
  bool ReadNames(std::string_view word, Verb verb, const Place &place, What &what);
  bool Fail(const Place &place, const std::string &what);

  const Accounts &accounts_;
  std::vector<std::string> &mistakes_;
};

}  // namespace zor::access

#endif
