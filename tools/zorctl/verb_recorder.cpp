#include <unistd.h>
#include <zor/control_wire.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "programs/format_time.h"
#include "programs/messages/bus_copy.h"
#include "programs/recorder/reader.h"
#include "zorctl/bus.h"
#include "zorctl/copy_line.h"
#include "zorctl/input_file.h"
#include "zorctl/mask.h"
#include "zorctl/number_option.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/pcapng.h"
#include "zorctl/text.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

using messages::BusCopy;
using recorder::Recording;

std::string DateOf(uint64_t timeUs) {
  return daemon::FormatTime(static_cast<std::time_t>(timeUs / 1000000), "%Y-%m-%d %H:%M:%S", ::localtime_r);
}

class RecorderVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.Add("file", file_, "What was saved after a crash, - for standard input; otherwise the server is asked")
        .Type("FILE");
    options.Add("--pcapng,--out", capture_, "Write a capture for packet analysers; - is standard output").Type("FILE");
    AddLimit(options, limit_, "Only this many messages, the latest");
    options.AddFlag("--unmasked", unmasked_, "Leave addresses in the bodies as they are");
  }

  ExitCode Run(const Common &common) override {
    if (!capture_.empty() && common.json) {
      throw Failure(kExitUsage, "a capture is not JSON", "use --json or --pcapng");
    }
    if (capture_ == "-" && OutputIsTerminal()) {
      throw Failure(kExitUsage, "a capture is binary data, not for a terminal",
                    "redirect the output to a file or a pipe");
    }
    Recording recording = Read(common);
    if (limit_ != 0 && recording.slots.size() > limit_) {
      recording.slots.erase(recording.slots.begin(), recording.slots.end() - limit_);
    }
    capture_.empty() ? PrintAll(recording, common.json) : Capture(recording);
    Conclude(recording);
    return kExitOk;
  }

 private:
  Recording Read(const Common &common) const {
    const std::string bytes = file_.empty() ? Ask(common) : ReadInputFile(file_, recorder::kMostBytes);
    std::string problem;
    auto recording = recorder::ReadRecording(std::as_bytes(std::span(bytes)), problem);
    if (recording) return std::move(*recording);
    const std::string what = file_.empty() ? "the server's reply" : Escape(file_);
    throw Failure(file_.empty() ? kExitFailure : kExitUsage, "cannot read " + what + ": " + problem,
                  "name a file that msgsvr has saved, see recorder_file in its settings");
  }

  static std::string Ask(const Common &common) {
    const Deadline deadline = common.deadline();
    Bus bus(deadline);
    return bus.Control(ZOR_MSG_CONTROL_RECORDER, "", deadline);
  }

  // Calls `take` with each message in the form of a monitor's copies.
  template <typename Take>
  void ForEach(const Recording &recording, Take take) const {
    uint64_t before = recording.slots.empty() ? 0 : recording.slots.front().number - 1;
    for (const recorder::Slot &slot : recording.slots) {
      const uint64_t missed = slot.number - before - 1;
      before = slot.number;
      std::string bytes = recorder::CopyOf(slot, recording.clockOffsetUs,
                                           static_cast<uint32_t>(std::min<uint64_t>(missed, UINT32_MAX)));
      const BusCopy copy = *messages::ParseCopy(bytes);
      if (!unmasked_ && !copy.inFile()) {
        MaskBody(std::span(bytes).last(copy.body.size()), copy.body.size() < copy.head.bodyLength);
      }
      take(bytes, *messages::ParseCopy(bytes));
    }
  }

  void PrintAll(const Recording &recording, bool json) const {
    messages::Conversations conversations;
    if (!json) Print(Bold(Cut(CopyTitles(), OutputWidth())) + "\n");
    ForEach(recording, [&](const std::string &, const BusCopy &copy) {
      const bool isReply = conversations.IsReply(copy);
      if (json) return Print(CopyJsonLine(copy, isReply));
      if (copy.copy.missed > 0) Print("... " + std::to_string(copy.copy.missed) + " missed\n");
      Print(Cut(CopyLine(copy, isReply), OutputWidth()) + "\n");
    });
  }

  void Capture(const Recording &recording) const {
    static constexpr char kInterface[] = "bus";
    std::signal(SIGXFSZ, SIG_IGN);  // write reports it
    PcapngFile file;
    bool good = capture_ == "-" ? file.Attach(OutputDescriptor(), kInterface) : file.Open(capture_, kInterface);
    ForEach(recording, [&](const std::string &bytes, const BusCopy &) {
      good = good && file.Write(std::as_bytes(std::span(bytes)));
    });
    if (good && file.Flush()) return;
    const int error = errno;
    if (capture_ == "-" && error == EPIPE) throw OutputClosed();
    throw Failure(kExitFailure,
                  "cannot write " + (capture_ == "-" ? "the output" : Escape(capture_)) + ": " + std::strerror(error),
                  "choose another file");
  }

  static void Conclude(const Recording &recording) {
    Flush();
    std::string text = std::to_string(recording.slots.size()) + " messages";
    if (!recording.slots.empty()) {
      text += " from " + DateOf(recording.slots.front().timeUs + recording.clockOffsetUs) + " to " +
              DateOf(recording.slots.back().timeUs + recording.clockOffsetUs);
    }
    if (recording.damaged > 0) text += ", " + std::to_string(recording.damaged) + " damaged ones left out";
    std::fprintf(stderr, "zorctl recorder: %s\n", text.c_str());
  }

  std::string file_, capture_;
  bool unmasked_ = false;
  uint32_t limit_ = 0;
};

}  // namespace

std::unique_ptr<Verb> MakeRecorderVerb() {
  return std::make_unique<RecorderVerb>();
}

}  // namespace zor::ctl
