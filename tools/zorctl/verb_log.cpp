// The user-visible log, as the daemon "syslog" renders it. The daemon writes the result of a query to a file; --follow
// repeats the query and prints the new lines.
#include <zor/log.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "programs/fleet_wire.h"
#include "programs/log_result.h"
#include "programs/messages/invalid.h"
#include "programs/messages/log_names.h"
#include "zorctl/bus.h"
#include "zorctl/fleet_report.h"
#include "zorctl/fleet_requests.h"
#include "zorctl/fleet_stream.h"
#include "zorctl/log_lines.h"
#include "zorctl/number_option.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/record.h"
#include "zorctl/seconds_option.h"
#include "zorctl/statistic.h"
#include "zorctl/text.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

constexpr uint32_t kRefused = 0xffffffff;
// Lines that each query of --follow requests. If none of them was in the previous result, there are more new ones.
constexpr uint32_t kFollowWindow = 200;

// Whether a record that a gateway published is of these types and levels.
bool IsWanted(const ForeignJson &record, uint32_t types, uint32_t levels) try {
  const uint32_t level = std::bit_floor(messages::LogLevels(TextOf(record, "level")));  // its own bit is the highest
  return (messages::LogTypes({TextOf(record, "type")}) & types) != 0 && (level & levels) != 0;
} catch (const messages::Invalid &) {
  return false;
}

std::string ReadResult(const daemon::LogResult &result) {
  constexpr size_t kMost = 256 << 20;
  if (auto text = result.Text(kMost)) return std::move(*text);
  if (errno == EACCES) {
    throw Failure(kExitRefused, "no permission to read the result in " + result.path(),
                  "run this as the daemon's user or a member of its group");
  }
  throw Failure(kExitFailure, "cannot read the result " + result.path(),
                "check whether the daemon runs in this ZOR_ROOT");
}

class LogVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.Add("--type", types_, "Only records of these types (names as in the log, or bits)")
        .Separated(',')
        .Type("TYPE");
    options.Add("--level", level_, "Only records of this severity or higher: emergency ... debug").Type("LEVEL");
    AddNumber(options, "--count", count_, "How many of the newest records; 0: all", 0).ShowDefault();
    options.Add("--language", language_, "Language of the texts: en, or zh for the second language")
        .OneOf({"en", "zh"})
        .ShowDefault();
    options.Add("--directory", directory_, "Where the daemon may write results (its setting query_directory)")
        .ShowDefault()
        .Type("PATH");
    Option follow = options.AddFlag("--follow", follow_, "Continue with new records until Ctrl-C or --for has elapsed");
    AddSeconds(options, "--for", followSeconds_, "How long to follow the log").Needs(follow);
    AddSeconds(options, "--interval", intervalSeconds_, "Time between two queries").Needs(follow);
    options.Add("--stat", statistic_, "Print a statistic of the logging daemon mlogserver instead")
        .Excludes(follow)
        .Type("NAME");
  }

  ExitCode Run(const Common &common) override {
    json_ = common.json;
    if (!statistic_.empty()) return PrintStatistic(common);
    const uint32_t typeLevel = messages::LogTypes(types_) << ZOR_LOG_TYPE_SHIFT | messages::LogLevels(level_);
    Bus bus(common.deadline());
    // --follow finds old lines by comparing results, so its first query covers more than it prints.
    const uint32_t count = follow_ && count_ != 0 ? std::max(count_, kFollowWindow) : count_;
    Lines lines = Query(bus, typeLevel, count, common.deadline());
    PrintLines(lines, count_ != 0 && lines.size() > count_ ? lines.size() - count_ : 0);
    if (follow_) Follow(bus, typeLevel, std::move(lines), common);
    return kExitOk;
  }

  ExitCode RunFleet(Fleet &fleet, const Common &common) override {
    if (!statistic_.empty() || language_ != "en") {
      throw Failure(kExitUsage, "works on this gateway only with --stat or --language", "leave them out");
    }
    return follow_ ? FollowFleet(fleet, common) : AskFleet(fleet, common);
  }

 private:
  // The bridges ask the daemons of their gateways.
  ExitCode AskFleet(Fleet &fleet, const Common &common) const {
    ForeignJson query = {{"count", count_ == 0 ? UINT32_MAX : count_}};
    if (!level_.empty()) query["level"] = level_;
    if (types_.size() > 1) throw Failure(kExitUsage, "more than one type", "a gateway's bridge takes one");
    if (!types_.empty()) query["type"] = types_.front();
    const std::vector<Gateway> gateways = fleet.Survey(Fleet::Need::kPresence);
    FleetReport report(fleet, common.json, gateways);
    FleetRequests requests(fleet, fleet::Topic({fleet::topic::kCall, fleet::kBridge, "log"}), RequestText(query));
    requests.Run(gateways, report.sum(),
                 [&](const FleetAnswer &answer) { report.Add(answer, [&] { PrintGatewayLines(report, answer); }); });
    return report.Finish();
  }

  static void PrintGatewayLines(const FleetReport &report, const FleetAnswer &answer) {
    for (const std::string &line : TextsOf(answer.reply, "lines")) {
      if (report.json()) {
        const auto parsed = ParseLogLine(line);
        ForeignJson object = {{"gateway", answer.gateway}};
        if (parsed) object.update({{"time", parsed->time}, {"type", parsed->type}, {"level", parsed->level}});
        object["text"] = parsed ? parsed->text : line;
        Print(JsonLine(object));
      } else if (report.isForOne()) {
        Print(Escape(line) + "\n");
      } else {
        report.PrintLine(answer.gateway, Escape(line));
      }
    }
  }

  // New records alone, as the bridges publish them.
  ExitCode FollowFleet(Fleet &fleet, const Common &common) const {
    const uint32_t levels = messages::LogLevels(level_), types = messages::LogTypes(types_);
    daemon::StopSignal stop;
    fleet.line().StopWith(stop);
    FleetStream stream(fleet, {"log", "gap"}, false);
    stream.Run(Deadline(FromSeconds(followSeconds_)), [&](const StreamRecord &record) {
      if (!record.isDouble && (record.topic == "gap" || IsWanted(record.document, types, levels))) {
        PrintRecord(record, common.json);
      }
      return true;
    });
    return kExitOk;
  }

  static void PrintRecord(const StreamRecord &record, bool json) {
    if (json) {
      ForeignJson line = record.document;
      line["gateway"] = record.gateway;
      return Print(JsonLine(line));
    }
    const ForeignJson &document = record.document;
    const std::string text = record.topic == "gap" ? std::to_string(CountOf(document, "lost")) + " records are lost"
                                                   : "[" + TextOf(document, "type") + "][" + TextOf(document, "level") +
                                                         "] " + TextOf(document, "text");
    Print(Escape(record.gateway) + "  " + Escape(TextOf(document, "time")) + " " + Escape(text) + "\n");
  }

  Lines Query(Bus &bus, uint32_t typeLevel, uint32_t count, const Deadline &deadline) const {
    const daemon::LogResult result(directory_, "zorctl");
    ZOR_LOG_QUERY query = {};
    if (!result.NameIn(query)) {
      throw Failure(kExitUsage, "the directory name " + directory_ + " is too long",
                    "a query has room for 63 characters");
    }
    query.selector = language_ == "zh" ? ZOR_LOG_SECOND_LANGUAGE : 0;
    query.typeLevel = typeLevel;
    query.count = count;
    const Message reply = Ask(bus, query, result, deadline);
    if (reply.data != kRefused) return SplitLines(ReadResult(result));
    throw Failure(kExitRefused, "the daemon refused the query",
                  "its setting query_directory must be " + directory_ + ", and it must be able to write there");
  }

  static Message Ask(Bus &bus, const ZOR_LOG_QUERY &query, const daemon::LogResult &result,
                     const Deadline &deadline) try {
    return bus.Request({ZOR_LOG_MSG_QUERY, ZOR_LOG_DAEMON_NAME, 0, std::string(RecordBytes(query))}, deadline);
  } catch (const Failure &failure) {
    if (failure.code == kExitTimeOver) result.GiveUp();
    throw;
  }

  void Follow(Bus &bus, uint32_t typeLevel, Lines before, const Common &common) {
    daemon::StopSignal stop;
    bus.StopWith(stop);
    const Deadline deadline(FromSeconds(followSeconds_));
    bool absent = false;
    for (;;) {
      const Deadline next = deadline.Within(FromSeconds(intervalSeconds_));
      while (bus.Receive(next)) continue;
      if (bus.stopped() || deadline.over()) return;
      try {
        before = PrintNew(bus, typeLevel, before, common.deadline());
        absent = false;
      } catch (const Failure &failure) {
        // It may be restarting, and the query may be lost; the next one finds its records.
        if (failure.code != kExitNotFound && failure.code != kExitTimeOver) throw;
        if (!std::exchange(absent, true)) std::fprintf(stderr, "zorctl log: %s; waiting for it\n", failure.what());
      }
    }
  }

  Lines PrintNew(Bus &bus, uint32_t typeLevel, const Lines &before, const Deadline &deadline) const {
    Lines now = Query(bus, typeLevel, kFollowWindow, deadline);
    size_t seen = CountSeen(before, now);
    if (seen == 0 && !before.empty() && now.size() == kFollowWindow) {
      now = Query(bus, typeLevel, 0, deadline);
      seen = CountSeen(before, now);
    }
    PrintLines(now, seen);
    return now;
  }

  void PrintLines(const Lines &lines, size_t from) const {
    for (size_t i = from; i < lines.size(); ++i) {
      if (!json_) {
        Print(Escape(lines[i]) + "\n");
      } else if (const auto line = ParseLogLine(lines[i])) {
        PrintJson({{"time", line->time}, {"type", line->type}, {"level", line->level}, {"text", line->text}});
      } else {
        PrintJson({{"text", lines[i]}});
      }
    }
    Flush();
  }

  ExitCode PrintStatistic(const Common &common) const {
    const std::string value = AskStatistic(statistic_, common.deadline());
    if (json_) {
      PrintJson({{"name", statistic_}, {"value", value}});
    } else {
      Print(Escape(value) + "\n");
    }
    return kExitOk;
  }

  std::vector<std::string> types_;
  std::string level_;
  uint32_t count_ = 50;
  std::string language_ = "en";
  std::string directory_ = "/var/syslog";
  bool follow_ = false;
  double followSeconds_ = 3600;
  double intervalSeconds_ = 1;
  std::string statistic_;
  bool json_ = false;
};

}  // namespace

std::unique_ptr<Verb> MakeLogVerb() {
  return std::make_unique<LogVerb>();
}

}  // namespace zor::ctl
