#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "programs/messages/bus_copy.h"
#include "programs/stop_signal.h"
#include "zorctl/bus.h"
#include "zorctl/capture_file.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/text.h"
#include "zorctl/type_range.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

// What becomes of a message of the capture.
enum Fate : size_t { kSend, kOtherType, kReply, kFromServer, kCut, kInFile, kFates };

struct FateText {
  const char *name;  // in JSON
  const char *text;
};

constexpr std::array<FateText, kFates> kFateTexts = {{{"sent", "sent"},
                                                      {"other_type", "of other types"},
                                                      {"reply", "replies"},
                                                      {"from_server", "from the server"},
                                                      {"cut", "with a truncated body"},
                                                      {"in_file", "with a body in a file"}}};

constexpr uint64_t kDrainEvery = 64;

// Sends what a capture holds to the same daemons once more. The sender is the tool, whose requests get the replies, so
// replies in the capture are not sent.
class ReplayVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.Add("FILE", path_, "A capture that monitor --pcapng wrote; - is standard input").Required().Type("");
    options.Add("--type", types_, "Only messages of this type: a number, a range, or a name; repeatable")
        .Required()
        .Type("TYPE")
        .Repeatable();
    Option speed = options.Add("--speed", speed_, "So many times as fast as they were captured")
                       .Between(0.001, 1e6)
                       .Type("N")
                       .ShowDefault();
    options.AddFlag("--fast", fast_, "Without waiting between them").Excludes(speed);
  }

  ExitCode Run(const Common &common) override {
    for (const std::string &type : types_) ranges_.push_back(ParseTypes(type));
    std::ifstream file;
    if (path_ != "-") file.open(path_, std::ios::binary);
    if (path_ != "-" && !file) {
      throw Failure(kExitUsage, "cannot read " + Escape(path_) + ": " + std::strerror(errno), "name a readable file");
    }
    CaptureFile capture(path_ == "-" ? std::cin : file);
    daemon::StopSignal signal;
    const Deadline deadline = common.deadline();
    Bus bus(deadline);
    bus.StopWith(signal);
    Replay(bus, capture, deadline);
    const bool stopped = bus.stopped();
    bus.IgnoreStop();
    bus.CountProcesses(bus.name(), deadline);  // the server's notices come before the reply
    TakeNotices(bus, Deadline(Milliseconds(0)));
    Report(common, capture);
    if (deadline.over() && !stopped) {
      throw Failure(kExitTimeOver, "the time was over before the capture", "increase --timeout, or use --fast");
    }
    return counts_[kSend] == 0 ? kExitNotFound : kExitOk;
  }

 private:
  using Clock = std::chrono::steady_clock;

  void Replay(Bus &bus, CaptureFile &capture, const Deadline &deadline) {
    const Clock::time_point start = Clock::now();
    std::optional<uint64_t> firstUs;
    while (const auto bytes = capture.Next()) {
      const std::optional<messages::BusCopy> copy = messages::ParseCopy(*bytes);
      if (!copy) continue;
      const Fate fate = FateOf(*copy);
      if (fate != kSend) {
        ++counts_[fate];
        continue;
      }
      if (!firstUs) firstUs = copy->copy.timeUs;
      const uint64_t elapsedUs = copy->copy.timeUs - std::min(copy->copy.timeUs, *firstUs);
      if (!fast_) WaitUntil(bus, start + ScaledTime(elapsedUs), deadline);
      if (bus.stopped() || deadline.over()) return;
      bus.Send({copy->type(), std::string(copy->destination()), copy->head.data, std::string(copy->body)}, deadline);
      if (++counts_[kSend] % kDrainEvery == 0) TakeNotices(bus, Deadline(Milliseconds(0)));
    }
  }

  Clock::duration ScaledTime(uint64_t us) const {
    constexpr double kLongestUs = 1e15;
    const double scaled = std::min(static_cast<double>(us) / speed_, kLongestUs);
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double, std::micro>(scaled));
  }

  void WaitUntil(Bus &bus, Clock::time_point when, const Deadline &deadline) {
    for (;;) {
      const auto left = std::chrono::floor<Milliseconds>(when - Clock::now());
      if (left.count() <= 0 || bus.stopped() || deadline.over()) return;
      TakeNotices(bus, deadline.Within(left));
    }
  }

  // Replies are for nobody.
  void TakeNotices(Bus &bus, const Deadline &deadline) {
    while (const std::optional<Message> message = bus.Receive(deadline)) {
      if (message->type == ZOR_MSG_SEND_FAILED_NOTICE && message->fromServer()) ++undelivered_;
    }
  }

  Fate FateOf(const messages::BusCopy &copy) {
    const bool isReply = conversations_.IsReply(copy);
    const bool named = std::any_of(ranges_.begin(), ranges_.end(),
                                   [&](const TypeRange &range) { return range.Contains(copy.type()); });
    if (!named) return kOtherType;
    if (copy.source().empty()) return kFromServer;
    if (isReply) return kReply;
    if (copy.inFile()) return kInFile;
    return copy.body.size() < copy.head.bodyLength ? kCut : kSend;
  }

  void Report(const Common &common, const CaptureFile &capture) const {
    if (!capture.problem().empty()) std::fprintf(stderr, "zorctl replay: %s\n", capture.problem().c_str());
    nlohmann::json object = {{"undelivered", undelivered_}, {"complete", capture.problem().empty()}};
    std::string text = std::to_string(counts_[kSend]) + " sent";
    if (undelivered_ > 0) text += ", " + std::to_string(undelivered_) + " of them undelivered";
    std::string skipped;
    for (size_t fate = kSend; fate < kFates; ++fate) {
      object[kFateTexts[fate].name] = counts_[fate];
      if (fate == kSend || counts_[fate] == 0) continue;
      skipped += (skipped.empty() ? "; skipped: " : ", ") + std::to_string(counts_[fate]) + " " + kFateTexts[fate].text;
    }
    common.json ? PrintJson(object) : Print(text + skipped + "\n");
  }

  std::string path_;
  std::vector<std::string> types_;
  std::vector<TypeRange> ranges_;
  double speed_ = 1;
  bool fast_ = false;
  messages::Conversations conversations_;
  std::array<uint64_t, kFates> counts_{};
  uint64_t undelivered_ = 0;
};

}  // namespace

std::unique_ptr<Verb> MakeReplayVerb() {
  return std::make_unique<ReplayVerb>();
}

}  // namespace zor::ctl
