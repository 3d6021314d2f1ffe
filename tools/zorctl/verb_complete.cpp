#include <zor/control_wire.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "programs/messages/event.h"
#include "programs/messages/log_names.h"
#include "programs/messages/message_types.h"
#include "programs/types/book.h"
#include "zorctl/bus.h"
#include "zorctl/command_line.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/text.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

using Words = std::vector<std::string>;

Words Names(const Deadline &deadline) {
  Words words;
  Bus bus(deadline);
  const nlohmann::json reply = bus.ControlJson(ZOR_MSG_CONTROL_LIST, "", deadline);
  for (const auto &client : reply.value("clients", nlohmann::json::array())) {
    if (!client.value("self", false)) words.push_back(client.value("name", ""));
  }
  return words;
}

Words Types(const Deadline &) {
  Words words;
  for (const types::Type *type : types::TypeBook::Installed().All()) {
    if (!type->isRange()) words.push_back(messages::TypeText(*type));
  }
  return words;
}

Words Modules(const Deadline &) {
  return messages::EventModules();
}

Words VerbNames(const Deadline &) {
  Words words;
  for (const VerbRow &row : Verbs()) words.emplace_back(row.name);
  return words;
}

struct Source {
  std::string_view what;
  Words (*list)(const Deadline &);
};

constexpr Source kSources[] = {{"names", Names}, {"types", Types}, {"modules", Modules}, {"verbs", VerbNames}};

// Shells distinguish cases, users do not.
Words InLowerCase(Words words) {
  for (std::string &word : words) {
    std::transform(word.begin(), word.end(), word.begin(),
                   [](char each) { return each >= 'A' && each <= 'Z' ? static_cast<char>(each - 'A' + 'a') : each; });
  }
  return words;
}

Words LevelNames(const Deadline &) {
  return InLowerCase(messages::LogLevelNames());
}

Words TypeNames(const Deadline &) {
  return InLowerCase(messages::LogTypeNames());
}

// What the values of options are that are not limited to some words.
struct OptionSource {
  std::string_view verb;  // empty: any
  std::string_view option;
  Words (*list)(const Deadline &);
};

constexpr OptionSource kOptionSources[] = {
    {"", "--name", Names}, {"", "--level", LevelNames}, {"log", "--type", TypeNames}, {"", "--type", Types}};

Words SplitAtBars(std::string_view list) {
  Words words;
  for (;;) {
    const size_t bar = list.find('|');
    if (bar != 0 && !list.empty()) words.emplace_back(list.substr(0, bar));
    if (bar == list.npos) return words;
    list.remove_prefix(bar + 1);
  }
}

Words ListOf(std::string_view what, const Deadline &deadline) {
  if (what.find('|') != what.npos) return SplitAtBars(what);
  for (const Source &source : kSources) {
    if (source.what == what) return source.list(deadline);
  }
  return {};
}

bool IsSource(std::string_view what) {
  return std::any_of(std::begin(kSources), std::end(kSources), [=](const Source &each) { return each.what == what; });
}

// The source of the word at that place of a verb's words: the last one in the row also serves all further places.
std::string_view SourceAt(const VerbRow &row, size_t place) {
  std::string_view completes = row.completes;
  for (; place > 0; --place) {
    const size_t blank = completes.find(' ');
    if (blank == completes.npos) break;
    completes.remove_prefix(blank + 1);
  }
  return completes.substr(0, completes.find(' '));
}

// The words without complete options of a fleet, wherever they are; none while the value of one is being typed.
Words WithoutFleetOptions(const Words &typed) {
  Words line;
  for (size_t i = 0; i < typed.size();) {
    const size_t taken = i + 1 < typed.size() ? FleetWordsAt(typed[i]) : 0;
    if (taken == 0) line.push_back(typed[i]);
    i += std::max<size_t>(taken, 1);
    if (taken > 0 && i == typed.size()) return {};
  }
  return line;
}

Words ValuesOf(const VerbRow &row, const VerbWords &verb, const std::string &option, const Deadline &deadline) {
  if (Words choices = verb.ChoicesOf(option); !choices.empty()) return choices;
  for (const OptionSource &each : kOptionSources) {
    if (each.option == option && (each.verb.empty() || each.verb == row.name)) return each.list(deadline);
  }
  return {};
}

// Candidates for the last word of a command line, whose first words are a verb, perhaps after options of a fleet.
Words CandidatesFor(const Words &typed, const Deadline &deadline) {
  const Words line = WithoutFleetOptions(typed);
  if (line.empty() && !typed.empty()) return {};
  if (line.size() < 2) return VerbNames(deadline);
  const VerbRow *row = FindVerb(line[0]);
  if (row == nullptr) return {};
  const VerbWords verb(*row);
  if (line.size() > 2 && verb.TakesNext(line[line.size() - 2])) {
    return ValuesOf(*row, verb, line[line.size() - 2], deadline);
  }
  if (line.back().starts_with('-')) return verb.OptionNames();
  size_t place = 0;
  for (size_t i = 1; i + 1 < line.size(); ++i) {
    if (verb.TakesNext(line[i])) {
      ++i;
    } else if (!line[i].starts_with('-')) {
      ++place;
    }
  }
  const Words choices = verb.ChoicesAt(place);
  return choices.empty() ? ListOf(SourceAt(*row, place), deadline) : choices;
}

// For the shells' scripts and for users who look for a name. Errors leave the list empty: a shell has no place to show
// them.
class CompleteVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.Add("WHAT", what_, "names, types, modules, verbs, or line").Required().Type("");
    options.Add("WORDS", line_, "With line: the words after zorctl; the last one is completed").Type("");
  }

  ExitCode Run(const Common &common) override {
    if (what_ != "line" && !IsSource(what_)) {
      throw Failure(kExitUsage, "cannot list " + Escape(what_), "give names, types, modules, verbs, or line");
    }
    Words words;
    try {
      const Deadline deadline = common.deadline();
      words = what_ == "line" ? CandidatesFor(line_, deadline) : ListOf(what_, deadline);
    } catch (const Failure &) {
    }
    if (common.json) {
      PrintJson(words);
      return kExitOk;
    }
    for (const std::string &word : words) Print(Escape(word) + "\n");
    return kExitOk;
  }

 private:
  std::string what_;
  Words line_;
};

}  // namespace

std::unique_ptr<Verb> MakeCompleteVerb() {
  return std::make_unique<CompleteVerb>();
}

}  // namespace zor::ctl
