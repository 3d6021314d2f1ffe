// The bus live: as a screen on a terminal, as lines elsewhere.
#include <poll.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "programs/stop_signal.h"
#include "zorctl/number_option.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/seconds_option.h"
#include "zorctl/terminal.h"
#include "zorctl/top.h"
#include "zorctl/top_report.h"
#include "zorctl/top_source.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

// Times shorter than this would measure little but the sampling.
constexpr double kLeastInterval = 0.1;

// What a wait ended with.
struct Woken {
  bool stop = false;
  bool input = false;
  bool hangUp = false;
};

Woken Wait(const TopSource &source, const daemon::StopSignal &stop, int input) {
  std::array<pollfd, 3> watched = {pollfd{source.fd(), POLLIN, 0}, pollfd{stop.fd(), POLLIN, 0},
                                   pollfd{input, POLLIN, 0}};
  const int ready = ::poll(watched.data(), watched.size(), static_cast<int>(source.left().count()));
  if (ready < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category(), "poll");
  if (ready <= 0) return {};
  return {watched[1].revents != 0, (watched[2].revents & POLLIN) != 0,
          (watched[2].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0};
}

class TopVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.AddFlag("--batch", batch_, "Print lines instead of a screen; the default where there is no terminal");
    AddSeconds(options, "--interval", intervalSeconds_, "Time between two looks");
    AddNumber(options, "--count", count_, "End after this many looks; 0: never", 0).ShowDefault();
    std::vector<std::string> keys;
    for (const SortKeyRow &row : SortKeys()) keys.emplace_back(row.name);
    options.Add("--sort", sort_, "Largest first by this column, or by name").OneOf(keys).ShowDefault();
    options.Add("--filter", filter_, "Only daemons whose names contain this").Type("TEXT");
  }

  ExitCode Run(const Common &common) override {
    if (intervalSeconds_ < kLeastInterval) throw Failure(kExitUsage, "--interval is too short", "at least 0.1 seconds");
    daemon::StopSignal stop;
    TopSource source(FromSeconds(intervalSeconds_), common.timeout);
    // What fails at once is an error like that of any verb.
    std::optional<TopData> first;
    while (!(first = source.Turn())) {
      if (source.failure()) throw Failure(*source.failure());
      if (Wait(source, stop, -1).stop) return kExitOk;
    }
    if (batch_ || common.json || !OutputIsTerminal()) {
      PrintBatch(source, stop, common.json);
    } else {
      DrawScreen(source, stop, std::move(*first));
    }
    return kExitOk;
  }

 private:
  SortKey Sort() const {
    for (const SortKeyRow &row : SortKeys()) {
      if (sort_ == row.name) return row.key;
    }
    return SortKey::kRate;
  }

  bool IsLast() { return count_ != 0 && ++looks_ >= count_; }

  // The first sample has no rates, so it is not printed.
  void PrintBatch(TopSource &source, const daemon::StopSignal &stop, bool json) {
    bool troubled = false;
    while (!Wait(source, stop, -1).stop) {
      const auto data = source.Turn();
      if (source.failure() && !std::exchange(troubled, true)) {
        std::fprintf(stderr, "zorctl top: %s\n", source.Trouble().c_str());
      }
      if (!data) continue;
      troubled = false;
      if (json) {
        PrintJson(BatchJson(*data, Sort(), filter_));
      } else {
        Print(BatchText(*data, Sort(), filter_, OutputWidth()));
      }
      Flush();
      if (IsLast()) return;
    }
  }

  void DrawScreen(TopSource &source, const daemon::StopSignal &stop, TopData first) {
    Top top(Sort(), filter_);
    top.Show(std::move(first));
    Terminal terminal;
    // A terminal that is readable without a key, again and again, has ended.
    constexpr int kMostEmptyReads = 10;
    int emptyReads = 0;
    for (;;) {
      top.SetTrouble(source.Trouble());
      terminal.Draw(top.Draw(terminal.size()));
      const Woken woken = Wait(source, stop, terminal.fd());
      bool read = false;
      for (auto press = terminal.Read(); press; press = terminal.Read()) {
        top.Take(*press);
        read = true;
      }
      emptyReads = woken.input && !read ? emptyReads + 1 : 0;
      if (woken.stop || woken.hangUp || top.finished() || emptyReads > kMostEmptyReads) return;
      if (auto data = source.Turn()) {
        top.Show(std::move(*data));
        if (IsLast()) return;
      }
    }
  }

  bool batch_ = false;
  double intervalSeconds_ = 2;
  uint32_t count_ = 0;
  uint32_t looks_ = 0;
  std::string sort_ = "rate";
  std::string filter_;
};

}  // namespace

std::unique_ptr<Verb> MakeTopVerb() {
  return std::make_unique<TopVerb>();
}

}  // namespace zor::ctl
