#include <unistd.h>
#include <zor/control_wire.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>

#include "programs/messages/message_types.h"
#include "programs/stop_signal.h"
#include "zorctl/bus.h"
#include "zorctl/busiest.h"
#include "zorctl/copy_stream.h"
#include "zorctl/monitor_sink.h"
#include "zorctl/number_option.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/record.h"
#include "zorctl/text.h"
#include "zorctl/type_range.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

constexpr Milliseconds kSetUpTime{5000};  // the time to watch begins after it
constexpr Milliseconds kRefresh{250};     // of progress, and of a file that another program is reading

class MonitorVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.Add("--name", name_, "Only what this daemon sends or receives").Type("NAME");
    options.AddFlag("--sent", sent_, "With --name: only what it sends");
    options.AddFlag("--received", received_, "With --name: only what it receives");
    options.Add("--type", type_, "Only messages of this type: a number, a range such as 0x5000-0x50FF, or a name")
        .Type("TYPE");
    AddLimit(options, limit_, "End after this many messages; with status 4 if it times out first");
    Option lines = options.AddFlag("--lines", lines_, "Print a line for each message; this is the default");
    options.Add("--pcapng", file_, "Write a capture for packet analysers; - is standard output")
        .Type("FILE")
        .Excludes(lines);
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
    CopyStream stream(bus);
    const std::unique_ptr<Sink> sink = MakeSink(common);
    bool stopped = false;
    try {
      Watch(bus, stream, common.deadline(), *sink);
      stopped = bus.stopped();
      if (!full()) End(bus, stream, *sink);
    } catch (const Failure &) {
      Conclude(*sink);
      throw;
    }
    Conclude(*sink);
    return limit_ == 0 || full() || stopped ? kExitOk : kExitTimeOver;
  }

 private:
  bool full() const { return limit_ != 0 && totals_.copies >= limit_; }

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
    if (!file_.empty()) return MakeFileSink(file_);
    return common.json ? MakeJsonSink() : MakeLineSink();
  }

  void Watch(Bus &bus, CopyStream &stream, const Deadline &deadline, Sink &sink) {
    Deadline refresh(kRefresh);
    while (!deadline.over() && !bus.stopped() && !full()) {
      stream.Read(deadline.Within(refresh.left()), [&](const ZOR_MSG_HEAD &head, std::string_view body) {
        if (head.type == ZOR_MSG_CONTROL_COPY) Take(body, sink);
        return !full();
      });
      if (!refresh.over()) continue;
      sink.Refresh(totals_);
      refresh = Deadline(kRefresh);
    }
  }

  // Takes the copies still under way. The server's reply contains the number of copies lost after the latest one.
  void End(Bus &bus, CopyStream &stream, Sink &sink) {
    const Deadline deadline = Deadline(Milliseconds(0)).ForServer();
    bus.IgnoreStop();
    const uint32_t request = bus.Send({ZOR_MSG_CONTROL_MONITOR, "", 0, ""}, deadline);
    bool replied = false;
    while (!replied && !deadline.over()) {
      stream.Read(deadline, [&](const ZOR_MSG_HEAD &head, std::string_view body) {
        if (head.type == ZOR_MSG_CONTROL_COPY && !full()) Take(body, sink);
        replied = head.type == ZOR_MSG_CONTROL_MONITOR && head.sequence == request;
        uint32_t missed = 0;
        if (replied) body.copy(reinterpret_cast<char *>(&missed), sizeof missed);
        totals_.missed += missed;
        return !replied;
      });
    }
  }

  void Take(std::string_view bytes, Sink &sink) {
    const std::optional<messages::BusCopy> copy = messages::ParseCopy(bytes);
    if (!copy) return;
    ++totals_.copies;
    totals_.missed += copy->copy.missed;
    busiest_.Add(*copy);
    sink.Take(bytes, *copy);
  }

  void Conclude(Sink &sink) const {
    sink.Refresh(totals_);
    ShowProgress("");
    std::fprintf(stderr, "zorctl monitor: %s\n", totals_.Text().c_str());
    if (totals_.missed > 0) std::fprintf(stderr, "zorctl monitor: %s\n", NarrowerText().c_str());
  }

  // What the user can do so that fewer copies are missed.
  std::string NarrowerText() const {
    const Busiest::Kind most = busiest_.kind();
    std::string text = "the bus was faster than this monitor";
    if (most.count > 0) {
      const std::string sender = most.source.empty() ? "the server" : Escape(most.source);
      text += "; " + std::to_string(most.count * 100 / totals_.copies) + " % of the copies were " +
              messages::TypeText(most.type) + " from " + sender;
    }
    if (type_.empty() || name_.empty()) {
      text += ": narrow it with ";
      text += !type_.empty() ? "--name NAME" : name_.empty() ? "--type TYPE or --name NAME" : "--type TYPE";
    } else if (!sent_ && !received_) {
      text += ": narrow it with --sent or --received";
    }
    return file_.empty()
               ? text + (text.find(": narrow") == text.npos ? ": write --pcapng FILE" : ", or write --pcapng FILE")
               : text;
  }

  Totals totals_;
  Busiest busiest_;
  std::string name_, type_, file_;
  bool sent_ = false, received_ = false, lines_ = false;
  uint32_t limit_ = 0;
};

}  // namespace

std::unique_ptr<Verb> MakeMonitorVerb() {
  return std::make_unique<MonitorVerb>();
}

}  // namespace zor::ctl
