#include <poll.h>
#include <unistd.h>
#include <zor/msg.h>
#include <zor/msg_wire.h>
#include <zor/status.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <deque>
#include <list>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <vector>

#include "programs/messages/json_text.h"
#include "programs/messages/message_types.h"
#include "programs/messages/status_text.h"
#include "programs/stop_signal.h"
#include "zorctl/bus.h"
#include "zorctl/foreign_json.h"
#include "zorctl/number_option.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/script_run.h"
#include "zorctl/text.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

constexpr Milliseconds kSetUpTime{5000};
constexpr size_t kMaxWaiting = 64;  // requests that wait for a script to end; more are refused as busy
constexpr size_t kMaxInTurn = 64;
constexpr uint32_t kAtOnce = 4;

class ServeVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.Add("TYPE", typeText_, "The message type to serve, a number or a name").Required().Type("");
    options.Add("NAME", name_, "The daemon's name on the bus").Required().Type("");
    options.Add("--exec", script_, "The program to run for each request, without a shell").Required().Type("SCRIPT");
    AddNumber(options, "--at-once", atOnce_, "How many scripts may run at one time", 1).ShowDefault();
    AddLimit(options, limit_, "End after this many requests");
  }

  ExitCode Run(const Common &common) override {
    type_ = messages::ParseType(typeText_);
    NameField(name_);
    CheckScript();
    timeLimit_ = common.timeout;
    json_ = common.json;
    daemon::BlockedSignals signals({SIGTERM, SIGINT, SIGCHLD});
    if (!signals.valid()) throw std::system_error(errno, std::generic_category(), "signalfd");
    const Deadline setUp(kSetUpTime);
    Bus bus(setUp, name_);
    if (bus.CountProcesses(name_, setUp) > 1) {
      throw Failure(kExitRefused, "another daemon " + name_ + " is on the bus, which gets its messages",
                    "choose another name, or zorctl exit " + name_);
    }
    std::fprintf(stderr, "zorctl serve: %s serves %s\n", name_.c_str(), messages::TypeText(type_).c_str());
    while (!done()) Turn(bus, signals);
    return kExitOk;
  }

 private:
  // At the end nothing new is taken, but what runs is finished.
  bool leaving() const { return stopped_ || (limit_ != 0 && taken_ >= limit_); }
  bool done() const { return leaving() && runs_.empty() && waiting_.empty(); }

  void CheckScript() const {
    if (script_.find('/') == std::string::npos || ::access(script_.c_str(), X_OK) != 0) {
      const std::string why = script_.find('/') == std::string::npos ? "not a path" : std::strerror(errno);
      throw Failure(kExitUsage, "cannot run " + Escape(script_) + ": " + why,
                    "give the path of an executable file, such as ./script");
    }
  }

  void Turn(Bus &bus, daemon::BlockedSignals &signals) {
    while (const int signal = signals.Take()) {
      if (signal != SIGCHLD) Stop();
    }
    const bool hasMore = TakeAll(bus, signals);
    for (ScriptRun &run : runs_) run.Read();
    for (auto run = runs_.begin(); run != runs_.end();) {
      if (!run->Ended()) {
        ++run;
        continue;
      }
      Answer(bus, run->request(), run->status(), run->reply(), run->AgeMs());
      run = runs_.erase(run);
    }
    StartWaiting(signals);
    Flush();
    if (!done() && !hasMore) Wait(signals);
  }

  // Whoever sends faster than this reads must not keep it from scripts and signals. True if there may be more.
  bool TakeAll(Bus &bus, const daemon::BlockedSignals &signals) {
    for (size_t taken = 0; !leaving(); ++taken) {
      if (taken == kMaxInTurn) return true;
      try {
        const std::optional<Message> message = bus.Receive(Deadline(Milliseconds(0)));
        if (!message) return false;
        Take(bus, *message);
        StartWaiting(signals);
      } catch (const Unreadable &lost) {  // its sender has removed its body, which is no reason to leave all others
        std::fprintf(stderr, "zorctl serve: %s\n", lost.what());
      }
    }
    return false;
  }

  void StartWaiting(const daemon::BlockedSignals &signals) {
    while (!waiting_.empty() && runs_.size() < atOnce_) {
      Start(signals, std::move(waiting_.front()));
      waiting_.pop_front();
    }
  }

  // A second signal does not wait for scripts either.
  void Stop() {
    if (stopped_) {
      runs_.clear();
      waiting_.clear();
    }
    stopped_ = true;
  }

  void Wait(const daemon::BlockedSignals &signals) const {
    std::vector<pollfd> watched = {{leaving() ? -1 : g_stMsgCtx.socketFd, POLLIN, 0}, {signals.fd(), POLLIN, 0}};
    int timeout = Bus::TimeUntilTimer();
    for (const ScriptRun &run : runs_) {
      watched.push_back({run.output(), POLLIN, 0});
      const int left = run.running() ? run.deadline().pollTimeout() : 0;
      timeout = timeout < 0 ? left : std::min(timeout, left);
    }
    if (::poll(watched.data(), watched.size(), timeout) < 0 && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "poll");
    }
  }

  void Take(Bus &bus, const Message &message) {
    if (message.type == ZOR_MSG_SAFE_EXIT) {
      bus.Reply(message, 0, "", Deadline(kSetUpTime));
      stopped_ = true;
      return;
    }
    if (message.type != type_ || message.fromServer()) return;
    ++taken_;
    if (waiting_.size() < kMaxWaiting) {
      waiting_.push_back(message);
    } else {
      Answer(bus, message, ZOR_E_BUSY, "", 0);
    }
  }

  void Start(const daemon::BlockedSignals &signals, Message request) {
    const ScriptRun::Environment environment = {
        "ZOR_REQUEST_TYPE=" + messages::TypeText(request.type),
        "ZOR_REQUEST_TYPE_NUMBER=" + std::to_string(request.type),
        "ZOR_REQUEST_SOURCE=" + request.source,
        "ZOR_REQUEST_DATA=" + std::to_string(request.data),
        "ZOR_REQUEST_SEQUENCE=" + std::to_string(request.sequence),
        "ZOR_REQUEST_LENGTH=" + std::to_string(request.body.size()),
        "ZOR_REQUEST_NAME=" + name_,
    };
    runs_.emplace_back(script_, environment, std::move(request), timeLimit_, signals.before());
  }

  // A script refuses by ending with another status than 0 and printing {"error":"why"}.
  static bool IsRefusal(uint32_t status, const std::string &body) {
    if (status == 0 || status >= ZOR_E_CONNECT) return false;
    return MemberOf(messages::ParseJson(body), "error").is_string();
  }

  void Answer(Bus &bus, const Message &request, uint32_t ended, const std::string &body, uint64_t ms) const {
    const types::Type *known = messages::FindType(request.type);
    const bool wantsReply = known == nullptr || known->kind == types::Kind::kRequest;
    // Beyond what a script can end with: an error reply, which callers in each language take for a failure.
    const bool isRefusal = IsRefusal(ended, body), isError = ended >= ZOR_E_CONNECT;
    const uint32_t status = isRefusal ? ZOR_E_IO : ended;
    const std::string_view text = messages::StatusText(status);
    const std::string reply = isError ? nlohmann::json{{"error", text}}.dump() : body;
    if (wantsReply) bus.Reply(request, status, reply, Deadline(kSetUpTime));
    if (json_) {
      PrintJson({{"source", request.source}, {"sequence", request.sequence}, {"status", status}, {"ms", ms}});
      return;
    }
    Print(Escape(request.source) + ": status " + std::to_string(status) +
          (text.empty() ? "" : std::string(" (").append(text).append(")")) + ", " + std::to_string(ms) + " ms\n");
  }

  std::string typeText_, name_, script_;
  uint32_t type_ = 0, atOnce_ = kAtOnce, limit_ = 0;
  uint64_t taken_ = 0;
  Milliseconds timeLimit_{0};
  bool json_ = false, stopped_ = false;
  std::deque<Message> waiting_;
  std::list<ScriptRun> runs_;
};

}  // namespace

std::unique_ptr<Verb> MakeServeVerb() {
  return std::make_unique<ServeVerb>();
}

}  // namespace zor::ctl
