// The developers' log, which mlogserver keeps: read from its file, so that it can be read when no server runs.
#include <poll.h>
#include <regex.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "programs/paths.h"
#include "programs/settings.h"
#include "programs/stop_signal.h"
#include "zorctl/journal_socket.h"
#include "zorctl/mlog_file.h"
#include "zorctl/mlog_line.h"
#include "zorctl/number_option.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/seconds_option.h"
#include "zorctl/text.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

using Json = nlohmann::json;

constexpr char kSettings[] = "/etc/zor/mlogserver.conf";
constexpr char kDefaultFile[] = "/online/log/mlog.log";

struct LevelName {
  const char *name;
  const char *inFile;
};
constexpr std::array kLevels = {LevelName{"fatal", "FATL"}, LevelName{"error", "ERRO"}, LevelName{"warning", "WARN"},
                                LevelName{"info", "INFO"}};

// An extended regular expression, as grep -E takes them.
class Expression {
 public:
  explicit Expression(const std::string &text) {
    if (::regcomp(&compiled_, text.c_str(), REG_EXTENDED | REG_NOSUB) != 0) {
      throw Failure(kExitUsage, "--grep: no regular expression: " + Escape(text), "as grep -E takes them");
    }
  }
  ~Expression() { ::regfree(&compiled_); }
  Expression(const Expression &) = delete;
  Expression &operator=(const Expression &) = delete;

  bool Matches(const std::string &text) const { return ::regexec(&compiled_, text.c_str(), 0, nullptr, 0) == 0; }

 private:
  regex_t compiled_{};
};

class MlogVerb : public Verb {
 public:
  void Declare(Options &options) override {
    std::vector<std::string> levels;
    levels.reserve(std::size(kLevels));
    for (const LevelName &level : kLevels) levels.emplace_back(level.name);
    options.Add("--daemon", daemons_, "Only lines of these daemons, by the names that they write")
        .Separated(',')
        .Type("NAME");
    options.Add("--level", level_, "Only lines of this severity or higher").OneOf(levels);
    options.Add("--grep", grep_, "Only lines whose text this extended regular expression matches").Type("PATTERN");
    options.Add("--since", since_, "Only lines from then on: 90s, 10m, 2h or 1d ago, 09:30, or 2026-11-22 09:30:00")
        .Type("TIME");
    AddNumber(options, "--count", count_, "How many of the newest lines; 0: all", 0).ShowDefault();
    Option follow = options.AddFlag("--follow", follow_, "Continue with new lines until Ctrl-C or --for has elapsed");
    AddSeconds(options, "--for", followSeconds_, "How long to follow the log").Needs(follow);
    options.AddFlag("--journal", toJournal_, "Write the lines to the system's journal instead of printing them");
    options.Add("--file", file_, "The log's file, if not the one in the settings of mlogserver").Type("PATH");
  }

  ExitCode Run(const Common &common) override {
    json_ = common.json;
    if (!grep_.empty()) expression_.emplace(grep_);
    if (!since_.empty()) {
      sinceMs_ = ParseSince(since_, MlogClock::Now().wallMs);
      if (!sinceMs_)
        throw Failure(kExitUsage, "--since: no time: " + Escape(since_), "zorctl mlog --help has examples");
    }
    if (toJournal_) journal_ = std::make_unique<JournalSocket>();
    daemon::StopSignal stop;
    const std::string path = file_.empty() ? PathOfSettings() : file_;
    MlogImage image = ReadMlog(path);
    Write(image.Lines(), count_);
    if (follow_) Follow(path, std::move(image), stop);
    return kExitOk;
  }

 private:
  static std::string PathOfSettings() {
    auto settings = daemon::Settings::FromFile(daemon::FixedPath(kSettings), false);
    return daemon::FixedPath(settings.Path("log_file", kDefaultFile));
  }

  void Follow(const std::string &path, MlogImage before, const daemon::StopSignal &stop) {
    const Deadline deadline(FromSeconds(followSeconds_));
    constexpr Milliseconds kBetween{300};
    while (!deadline.over()) {
      pollfd watched = {stop.fd(), POLLIN, 0};
      if (::poll(&watched, 1, deadline.Within(kBetween).pollTimeout()) > 0) return;
      MlogImage now = ReadMlog(path);
      const MlogImage::News news = now.Since(before);
      if (news.lost) std::fprintf(stderr, "zorctl mlog: the file was overtaken or made anew; all of it follows\n");
      Write(news.lines, 0);
      before = std::move(now);
    }
  }

  // The newest of those that are wanted; 0: all.
  void Write(const std::vector<std::string> &texts, size_t count) {
    const MlogClock clock = MlogClock::Now();
    std::vector<MlogLine> lines;
    lines.reserve(texts.size());
    for (const std::string &text : texts) lines.push_back(ParseMlogLine(text));
    MarkEarlier(lines, clock.bootMs);
    std::erase_if(lines, [&](const MlogLine &line) { return !IsWanted(line, clock); });
    const size_t first = count == 0 ? 0 : lines.size() - std::min(lines.size(), count);
    for (size_t i = first; i < lines.size(); ++i) WriteLine(lines[i], clock);
    Flush();
  }

  bool IsWanted(const MlogLine &line, const MlogClock &clock) const {
    if (!daemons_.empty() && std::find(daemons_.begin(), daemons_.end(), line.tag) == daemons_.end()) return false;
    if (SeverityOf(line.level) < LeastSeverity()) return false;
    if (expression_ && !expression_->Matches(line.text)) return false;
    // A line without a time cannot be from then on.
    return !sinceMs_ || clock.WallMsOf(line).value_or(INT64_MIN) >= *sinceMs_;
  }

  int LeastSeverity() const {
    for (const LevelName &level : kLevels) {
      if (level_ == level.name) return SeverityOf(level.inFile);
    }
    return 0;
  }

  void WriteLine(const MlogLine &line, const MlogClock &clock) {
    if (journal_ != nullptr) return SendLine(line);
    if (json_) return PrintJson(JsonOf(line, clock));
    const auto wall = clock.WallMsOf(line);
    std::string text = wall ? MillisecondsText(*wall) : line.bootMs ? EarlierText(*line.bootMs) : "-";
    if (!line.tag.empty()) text += " " + line.tag + (line.pid.empty() ? "" : "[" + line.pid + "]");
    if (!line.level.empty()) text += " " + line.level;
    // The server has escaped control characters, and left backslashes.
    Print(EscapeLines(text + " " + line.text) + "\n");
  }

  static std::string EarlierText(int64_t bootMs) {
    return "(earlier start, after " + std::to_string(bootMs / 1000) + " s)";
  }

  static Json JsonOf(const MlogLine &line, const MlogClock &clock) {
    const auto wall = clock.WallMsOf(line);
    Json object = {{"daemon", line.tag}, {"level", line.level}, {"text", line.text}};
    if (wall) object["time"] = MillisecondsText(*wall);
    if (line.bootMs) object["boot_ms"] = *line.bootMs;
    if (line.earlier) object["earlier_start"] = true;
    if (!line.pid.empty()) object.update({{"pid", line.pid}, {"uid", line.uid}});
    return object;
  }

  void SendLine(const MlogLine &line) const {
    std::vector<JournalSocket::Field> fields = {{"MESSAGE", line.text},
                                                {"PRIORITY", std::to_string(PriorityOf(line.level))},
                                                {"SYSLOG_IDENTIFIER", line.tag.empty() ? "mlog" : line.tag}};
    if (line.bootMs) fields.emplace_back("ZOR_BOOT_MS", std::to_string(*line.bootMs));
    if (!line.pid.empty()) fields.emplace_back("ZOR_PID", line.pid);
    if (!line.uid.empty()) fields.emplace_back("ZOR_UID", line.uid);
    journal_->Send(fields);
  }

  std::vector<std::string> daemons_;
  std::string level_;
  std::string grep_;
  std::string since_;
  uint32_t count_ = 50;
  bool follow_ = false;
  double followSeconds_ = 3600;
  bool toJournal_ = false;
  std::string file_;
  bool json_ = false;
  std::optional<Expression> expression_;
  std::optional<int64_t> sinceMs_;
  std::unique_ptr<JournalSocket> journal_;
};

}  // namespace

std::unique_ptr<Verb> MakeMlogVerb() {
  return std::make_unique<MlogVerb>();
}

}  // namespace zor::ctl
