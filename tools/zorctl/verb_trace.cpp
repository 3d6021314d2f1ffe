#include <zor/control_wire.h>
#include <zor/trace.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "programs/limits.h"
#include "programs/messages/number.h"
#include "zorctl/bus.h"
#include "zorctl/number_option.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/table.h"
#include "zorctl/text.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::json;

// The source of settings, for the server's word.
std::string SourceText(const std::string &source) {
  if (source == "kept") return "set with this command";
  return source == "file" ? "the server's settings file" : "defaults";
}

bool IsLevel(const std::string &text) {
  return text == "none" || ZOR_TRACE_GetLevelByString(text.c_str()) != 0 || messages::ParseUint32(text).has_value();
}

class TraceVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.Add("ACTION", action_, "show; set, which keeps other settings; clear, which reverts to the settings file")
        .Required()
        .OneOf({"show", "set", "clear"})
        .Type("");
    options.Add("NAME", name_, "The daemon; * means all daemons without settings of their own").Required().Type("");
    options
        .Add("SETTING", levels_,
             "MODULE=LEVEL ...: with set, replace all levels; the module all means the rest. Levels: none, fatal, "
             "error, warning, info, debug or a number")
        .Type("");
    output_ = options.Add("--output", outputText_, "With set: stdout, file or ADDRESS:PORT (UDP)").Type("TEXT");
    constexpr auto kLeast = static_cast<uint32_t>(limits::msgsvr::kLeastTraceFileKiB);
    fileKib_ = AddNumber(options, "--file-kib", kib_,
                         "With set: size limit of the trace file in KiB, at least " + std::to_string(kLeast), kLeast);
  }

  ExitCode Run(const Common &common) override {
    const std::string field = NameField(name_);
    const bool hasSettings = !levels_.empty() || output_.given() || fileKib_.given();
    if (hasSettings != (action_ == "set")) {
      throw Failure(kExitUsage, hasSettings ? action_ + " takes no settings" : "nothing to set",
                    hasSettings ? "use set" : "give MODULE=LEVEL, --output or --file-kib");
    }
    const std::string settings = action_ == "set" ? Settings().dump() : "";
    const Deadline deadline = common.deadline();
    Bus bus(deadline);
    if (action_ == "set") bus.Control(ZOR_MSG_CONTROL_TRACE_SET, settings, deadline);
    if (action_ == "clear") bus.Control(ZOR_MSG_CONTROL_TRACE_CLEAR, field, deadline);
    const Json kept = bus.ControlJson(ZOR_MSG_CONTROL_TRACE_GET, field, deadline);
    common.json ? PrintJson(kept) : PrintText(kept);
    return kExitOk;
  }

 private:
  Json Settings() const {
    Json settings = {{"name", name_}};
    if (output_.given()) settings["output"] = Output();
    if (fileKib_.given()) settings["file_kib"] = kib_;
    if (!levels_.empty()) settings["levels"] = Levels();
    return settings;
  }

  std::string Output() const {
    if (outputText_ == "stdout" || outputText_ == "file" || outputText_.find(':') != std::string::npos) {
      return outputText_;
    }
    throw Failure(kExitUsage, "not an output for trace lines: " + Escape(outputText_),
                  "use stdout, file or ADDRESS:PORT");
  }

  Json Levels() const {
    Json levels = Json::object();
    for (const std::string &each : levels_) {
      const size_t sign = std::min(each.find('='), each.size());
      const std::string module = each.substr(0, sign), level = each.substr(std::min(sign + 1, each.size()));
      if (module.empty() || module.size() >= ZOR_MSG_NAME_SIZE || !IsLevel(level)) {
        throw Failure(
            kExitUsage, "not MODULE=LEVEL: " + Escape(each),
            "modules have at most 11 characters; levels are none, fatal, error, warning, info, debug or a number");
      }
      levels[module] = level;
    }
    return levels;
  }

  void PrintText(const Json &kept) const {
    Table table({{"SETTING"}, {"VALUE"}});
    table.Add({"output", kept.value("output", "stdout")});
    table.Add({"file-kib", std::to_string(kept.value("file_kib", uint64_t{0}))});
    const Json levels = kept.value("levels", Json::object());
    for (const auto &[module, level] : levels.items()) {
      table.Add({"level of " + module, level.is_string() ? level.get<std::string>() : level.dump()});
    }
    table.Add({"source", SourceText(kept.value("source", ""))});
    table.Print();
    if (action_ == "show") return;
    Print("\nTakes effect when " + (name_ == "*" ? "each daemon" : Escape(name_)) +
          " next registers, at its restart.\n");
  }

  std::string action_, name_, outputText_;
  std::vector<std::string> levels_;
  uint32_t kib_ = 0;
  Option output_;
  Option fileKib_;
};

}  // namespace

std::unique_ptr<Verb> MakeTraceVerb() {
  return std::make_unique<TraceVerb>();
}

}  // namespace zor::ctl
