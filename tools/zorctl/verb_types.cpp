#include <zor/event.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "common/ascii.h"
#include "programs/messages/message_types.h"
#include "programs/messages/number.h"
#include "programs/types/book.h"
#include "programs/types/own_types.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/table.h"
#include "zorctl/text.h"
#include "zorctl/type_text.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::ordered_json;
using types::Problem;
using types::Type;
using types::TypeBook;

std::string Counted(size_t count, const std::string &noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// Modules have one name for one type, which the library knows of its own.
void CheckModules(const types::TypeFile &file, std::vector<Problem> &problems) {
  for (size_t i = 0; i < file.modules.size(); ++i) {
    const types::Module &module = file.modules[i];
    const uint32_t type = ZOR_EVT_GetMsgTypeByEventModuleName(module.name.c_str());
    const char *owner = ZOR_EVT_GetEventModuleNameByEventType(module.type);
    if ((type == ZOR_EVT_ALL || type == module.type) && (owner == nullptr || owner == module.name)) continue;
    problems.push_back({file.path, "/modules/" + std::to_string(i), "the library has a module of that name or type"});
  }
}

class TypesVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.Add("ACTION", action_, "lint checks files, list lists types, show explains them, dissector prints a table")
        .Required()
        .OneOf({"lint", "list", "show", "dissector"})
        .Type("");
    options.Add("WORDS", words_, "With lint: the files; with show: names or numbers of types, or a namespace").Type("");
    options.AddFlag("--markdown", markdown_, "With show: as sections of a document");
  }

  ExitCode Run(const Common &common) override {
    json_ = common.json;
    if (action_ == "lint") return Lint();
    if (action_ == "list") return List();
    return action_ == "show" ? Show() : Dissector();
  }

 private:
  ExitCode Lint() const {
    if (words_.empty()) throw Failure(kExitUsage, "no file", "name the files of types to check");
    TypeBook book;
    std::vector<Problem> problems;
    std::vector<std::string> sums;
    for (const std::string &path : words_) {
      auto file = types::ReadTypeFile(path, types::UnknownMembers::kReport, problems);
      if (!file) continue;
      sums.push_back(Escape(path) + ": " + Counted(file->types.size(), "type") + ", " +
                     Counted(file->modules.size(), "module") + "\n");
      CheckModules(*file, problems);
      // Our own file describes what the book has already.
      if (file->nameSpace != types::kOwnNamespace) book.Add(std::move(*file));
    }
    problems.insert(problems.end(), book.problems().begin(), book.problems().end());
    PrintLint(problems, sums);
    if (problems.empty()) return kExitOk;
    throw Failure(kExitUsage, "mistakes: " + std::to_string(problems.size()),
                  "a file with a mistake is not loaded at all");
  }

  void PrintLint(const std::vector<Problem> &problems, const std::vector<std::string> &sums) const {
    if (json_) {
      Json list = Json::array();
      for (const Problem &each : problems) {
        list.push_back({{"file", each.path}, {"pointer", each.pointer}, {"problem", each.what}});
      }
      PrintJson(list);
      return;
    }
    for (const Problem &each : problems) Print(Escape(each.Text()) + "\n");
    for (const std::string &sum : sums) Print(sum);
  }

  ExitCode List() const {
    if (!words_.empty()) throw Failure(kExitUsage, "list takes no words", "zorctl types show explains a type");
    const std::vector<const Type *> all = TypeBook::Installed().All();
    if (json_) {
      Json list = Json::array();
      for (const Type *type : all) list.push_back(TypeJson(*type));
      PrintJson(list);
      return kExitOk;
    }
    Table table({{"TYPE"}, {"NAME"}, {"KIND", Table::Align::kLeft, 1}, {"TO", Table::Align::kLeft, 2}, {"MEANING"}});
    for (const Type *type : all) {
      table.Add({NumbersText(*type), messages::TypeText(*type), std::string(KindText(type->kind)), type->to,
                 type->meaning.empty() ? "-" : type->meaning});
    }
    table.Print();
    return kExitOk;
  }

  // By number, by name, or all of a namespace.
  static std::vector<const Type *> TypesOf(const std::string &word) {
    TypeBook &book = TypeBook::Installed();
    if (const auto number = messages::ParseUint32(word)) return book.AllOf(*number);
    std::vector<const Type *> found = book.Named(word);
    if (!found.empty()) return found;
    for (const Type *type : book.All()) {
      if (EqualIgnoringCase(type->nameSpace, word)) found.push_back(type);
    }
    return found;
  }

  ExitCode Show() const {
    if (words_.empty()) throw Failure(kExitUsage, "no type", "name types, give their numbers, or name a namespace");
    std::vector<const Type *> shown;
    for (const std::string &word : words_) {
      const std::vector<const Type *> found = TypesOf(word);
      if (found.empty()) {
        messages::ParseType(word);  // throws with the name that may have been meant
        throw Failure(kExitNotFound, "no type file describes " + Escape(word), "zorctl types list lists all types");
      }
      shown.insert(shown.end(), found.begin(), found.end());
    }
    if (json_) {
      Json list = Json::array();
      for (const Type *type : shown) list.push_back(TypeJson(*type));
      PrintJson(list);
      return kExitOk;
    }
    for (const Type *type : shown) {
      if (type != shown.front()) Print("\n");
      markdown_ ? Print(TypeMarkdown(*type)) : PrintType(*type);
    }
    return kExitOk;
  }

  // Ours are in the dissector itself.
  ExitCode Dissector() const {
    Print("-- Types for the dissector of the message bus: made by zorctl types dissector.\nzorbus_types = {\n");
    for (const Type *type : TypeBook::Installed().All()) {
      const bool isMessage = type->kind != types::Kind::kEvent && type->nameSpace != types::kOwnNamespace;
      if (isMessage) Print(DissectorRow(*type));
    }
    Print("}\n");
    return kExitOk;
  }

  std::string action_;
  std::vector<std::string> words_;
  bool markdown_ = false, json_ = false;
};

}  // namespace

std::unique_ptr<Verb> MakeTypesVerb() {
  return std::make_unique<TypesVerb>();
}

}  // namespace zor::ctl
