#include <unistd.h>
#include <zor/control_wire.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>

#include "programs/messages/bus_copy.h"
#include "programs/messages/message_types.h"
#include "programs/stop_signal.h"
#include "zorctl/bus.h"
#include "zorctl/copy_line.h"
#include "zorctl/number_option.h"
#include "zorctl/output.h"
#include "zorctl/pcapng.h"
#include "zorctl/record.h"
#include "zorctl/text.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

using messages::BusCopy;
using messages::Conversations;

constexpr Milliseconds kSetUpTime{5000};  // the time to watch begins after it
constexpr Milliseconds kRefresh{250};     // of progress, and of a file that another program is reading

struct TypeRange {
  uint32_t first;
  uint32_t last;
};

// "TYPE" or "TYPE-TYPE"; names have no hyphens.
TypeRange ParseTypes(const std::string &text) {
  const size_t hyphen = text.find('-');
  const uint32_t first = messages::ParseType(text.substr(0, hyphen));
  const uint32_t last = hyphen == std::string::npos ? first : messages::ParseType(text.substr(hyphen + 1));
  if (last < first || last == 0) {
    throw Failure(kExitUsage, "not a range of message types: " + Escape(text),
                  "write 0x5000-0x50FF, the lower one first");
  }
  return {first, last};
}

struct Totals {
  uint64_t copies = 0;
  uint64_t missed = 0;

  std::string Text() const { return std::to_string(copies) + " copied, " + std::to_string(missed) + " missed"; }
};

// Where the copies go.
class Sink {
 public:
  virtual ~Sink() = default;
  virtual void Take(std::string_view bytes, const BusCopy &copy) = 0;
  // Called from time to time, and at the end.
  virtual void Refresh(const Totals &totals) = 0;
};

class LineSink : public Sink {
 public:
  LineSink() { PrintLine(Bold(Cut(CopyTitles(), OutputWidth()))); }
  void Take(std::string_view, const BusCopy &copy) override {
    if (copy.copy.missed > 0) PrintLine("... " + std::to_string(copy.copy.missed) + " missed");
    PrintLine(Cut(CopyLine(copy, conversations_.IsReply(copy)), OutputWidth()));
  }
  void Refresh(const Totals &) override {}

 private:
  static void PrintLine(const std::string &line) { Print(line + "\n"); }

  Conversations conversations_;
};

class JsonSink : public Sink {
 public:
  void Take(std::string_view, const BusCopy &copy) override {
    PrintJson(messages::CopyJson(copy, conversations_.IsReply(copy)));
  }
  void Refresh(const Totals &) override {}

 private:
  Conversations conversations_;
};

class FileSink : public Sink {
 public:
  explicit FileSink(const std::string &path) : path_(path) {
    std::signal(SIGXFSZ, SIG_IGN);  // write reports it
    const bool opened = path == "-" ? file_.Attach(OutputDescriptor(), kInterface) : file_.Open(path, kInterface);
    if (!opened) Fail();
  }
  void Take(std::string_view bytes, const BusCopy &) override {
    if (!file_.Write(std::as_bytes(std::span(bytes)))) Fail();
  }
  void Refresh(const Totals &totals) override {
    if (!file_.Flush()) Fail();
    ShowProgress(totals.Text() + ", " + std::to_string(file_.bytes() / 1024) + " KiB");
  }

 private:
  static constexpr char kInterface[] = "bus";

  [[noreturn]] void Fail() {
    const int error = errno;
    if (path_ == "-" && error == EPIPE) throw OutputClosed();
    const std::string what = path_ == "-" ? "the output" : Escape(path_);
    throw Failure(kExitFailure, "cannot write " + what + ": " + std::strerror(error),
                  file_.bytes() == 0 ? "choose another file"
                                     : "the first " + std::to_string(file_.packets()) + " messages are in the file");
  }

  std::string path_;
  PcapngFile file_;
};

class MonitorVerb : public Verb {
 public:
  void Declare(CLI::App &app) override {
    app.add_option("--name", name_, "Only what this daemon sends or receives")->type_name("NAME");
    app.add_flag("--sent", sent_, "With --name: only what it sends");
    app.add_flag("--received", received_, "With --name: only what it receives");
    app.add_option("--type", type_, "Only messages of this type: a number, a range such as 0x5000-0x50FF, or a name")
        ->type_name("TYPE");
    AddLimit(app, limit_, "End after this many messages; with status 4 if it times out first");
    CLI::Option *lines = app.add_flag("--lines", lines_, "Print a line for each message; this is the default");
    app.add_option("--pcapng", file_, "Write a capture for packet analysers; - is standard output")
        ->type_name("FILE")
        ->excludes(lines);
  }

  ExitCode Run(const Common &common) override {
    const ZOR_CONTROL_FILTER filter = Filter();
    if (!file_.empty() && common.json) {
      throw Failure(kExitUsage, "a capture is not JSON", "use --json or --pcapng");
    }
    if (file_ == "-" && OutputIsTerminal()) {
      throw Failure(kExitUsage, "a capture is binary data, not for a terminal",
                    "redirect the output to a file or a pipe");
    }
    daemon::StopSignal signal;
    if (!signal.valid()) throw std::system_error(errno, std::generic_category(), "signalfd");
    const Deadline setUp(kSetUpTime);
    Bus bus(setUp);
    bus.StopWith(signal);
    WarnIfAbsent(bus, setUp);
    bus.Control(ZOR_MSG_CONTROL_MONITOR, RecordBytes(filter), setUp);
    const std::unique_ptr<Sink> sink = MakeSink(common);
    Totals totals;
    bool stopped = false;
    try {
      Watch(bus, common.deadline(), *sink, totals);
      stopped = bus.stopped();
      if (!full(totals)) End(bus, *sink, totals);
    } catch (const Failure &) {
      Conclude(*sink, totals);
      throw;
    }
    Conclude(*sink, totals);
    return limit_ == 0 || full(totals) || stopped ? kExitOk : kExitTimeOver;
  }

 private:
  bool full(const Totals &totals) const { return limit_ != 0 && totals.copies >= limit_; }

  ZOR_CONTROL_FILTER Filter() const {
    ZOR_CONTROL_FILTER filter{};
    if (name_.empty() && (sent_ || received_)) {
      throw Failure(kExitUsage, "--sent and --received require --name", "name a daemon");
    }
    if (!name_.empty()) std::memcpy(filter.name, NameField(name_).data(), sizeof filter.name);
    filter.directions = (sent_ || !received_ ? ZOR_CONTROL_SENT : 0) | (received_ || !sent_ ? ZOR_CONTROL_RECEIVED : 0);
    if (!type_.empty()) {
      const TypeRange range = ParseTypes(type_);
      filter.firstType = range.first;
      filter.lastType = range.last;
    }
    return filter;
  }

  // It may be about to start, so this is not an error.
  void WarnIfAbsent(Bus &bus, const Deadline &deadline) const {
    if (name_.empty() || bus.CountProcesses(name_, deadline) > 0) return;
    std::fprintf(stderr, "zorctl monitor: no daemon %s on the bus yet\n", name_.c_str());
  }

  std::unique_ptr<Sink> MakeSink(const Common &common) const {
    if (!file_.empty()) return std::make_unique<FileSink>(file_);
    if (common.json) return std::make_unique<JsonSink>();
    return std::make_unique<LineSink>();
  }

  void Watch(Bus &bus, const Deadline &deadline, Sink &sink, Totals &totals) const {
    Deadline refresh(kRefresh);
    while (!deadline.over() && !bus.stopped() && !full(totals)) {
      const std::optional<Message> message = bus.Receive(deadline.Within(refresh.left()));
      if (message && IsCopy(*message)) Take(message->body, sink, totals);
      if (!refresh.over()) continue;
      sink.Refresh(totals);
      refresh = Deadline(kRefresh);
    }
  }

  // Takes the copies still under way. The server's reply contains the number of copies lost after the latest one.
  void End(Bus &bus, Sink &sink, Totals &totals) const {
    const Deadline deadline = Deadline(Milliseconds(0)).ForServer();
    bus.IgnoreStop();
    const uint32_t request = bus.Send({ZOR_MSG_CONTROL_MONITOR, "", 0, ""}, deadline);
    while (const std::optional<Message> message = bus.Receive(deadline)) {
      if (IsCopy(*message) && !full(totals)) Take(message->body, sink, totals);
      if (message->type != ZOR_MSG_CONTROL_MONITOR || message->sequence != request || !message->fromServer()) continue;
      uint32_t missed = 0;
      message->body.copy(reinterpret_cast<char *>(&missed), sizeof missed);
      totals.missed += missed;
      return;
    }
  }

  // Any client can send messages of that type.
  static bool IsCopy(const Message &message) { return message.type == ZOR_MSG_CONTROL_COPY && message.fromServer(); }

  static void Take(const std::string &bytes, Sink &sink, Totals &totals) {
    const std::optional<BusCopy> copy = messages::ParseCopy(bytes);
    if (!copy) return;
    ++totals.copies;
    totals.missed += copy->copy.missed;
    sink.Take(bytes, *copy);
  }

  static void Conclude(Sink &sink, const Totals &totals) {
    sink.Refresh(totals);
    ShowProgress("");
    std::fprintf(stderr, "zorctl monitor: %s\n", totals.Text().c_str());
  }

  std::string name_, type_, file_;
  bool sent_ = false, received_ = false, lines_ = false;
  uint32_t limit_ = 0;
};

}  // namespace

std::unique_ptr<Verb> MakeMonitorVerb() {
  return std::make_unique<MonitorVerb>();
}

}  // namespace zor::ctl
