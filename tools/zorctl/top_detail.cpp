#include "zorctl/top_detail.h"

#include <zor/event.h>

#include <utility>

#include "programs/messages/event.h"
#include "programs/messages/message_types.h"
#include "zorctl/format.h"
#include "zorctl/quantity.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

std::string TypeTextOf(uint32_t type) {
  return Escape(messages::TypeText(type));
}

std::string Total(const busview::Count &count) {
  return count ? std::to_string(*count) : "-";
}

class Detail {
 public:
  Detail(const TopData &data, const TopRow &row) : data_(data), row_(row), client_(*row.client) {}

  Screen Lines() {
    AddProcess();
    AddTraffic();
    AddWaiting();
    AddPeers();
    AddRequests();
    AddSubscriptions();
    return std::move(screen_);
  }

 private:
  void Add(const std::string &text, Style style = Style::kPlain) { screen_.push_back({{text, style}}); }

  void AddProcess() {
    const std::string where = client_.daemon.pid == 0 ? "board " + Escape(client_.board)
                                                      : "pid " + std::to_string(client_.daemon.pid) + ", user " +
                                                            Escape(UserName(static_cast<uid_t>(client_.uid)));
    Add(Escape(row_.name()) + ", " + where + ", " + StateTextOf(row_),
        busview::IsStopped(client_) ? Style::kAlarm : Style::kBold);
    Add("since " + LocalTimeText(static_cast<std::time_t>(client_.since)) + ", processor " +
        PercentText(row_.rates->cpu) + " %, memory " + BytesText(static_cast<double>(client_.process.residentBytes)) +
        ", held in the server " + BytesText(static_cast<double>(client_.heldBytes)));
  }

  void AddTraffic() {
    const busview::Traffic &traffic = client_.traffic;
    const busview::Rates &rates = *row_.rates;
    Add("sent     " + RateText(rates.sent) + "/s, " + BytesText(rates.sentBytes) + " bytes/s, " + Total(traffic.sent) +
        " in all");
    Add("received " + RateText(rates.received) + "/s, " + BytesText(rates.receivedBytes) + " bytes/s, " +
        Total(traffic.received) + " in all");
    Add("dropped  " + RateText(rates.dropped) + "/s, " + Total(traffic.dropped) + " in all",
        rates.dropped.value_or(0) > 0 ? Style::kWarning : Style::kPlain);
  }

  void AddWaiting() {
    const daemon::Daemon &daemon = client_.daemon;
    if (daemon.unread > 0) {
      Add("unread   " + std::string(daemon.unreadAtLeast ? "at least " : "") + std::to_string(daemon.unread) +
              " messages, " + std::to_string(client_.unreadBytes) + " bytes, the oldest " +
              LongAgeText(Milliseconds(daemon.unreadMs)) + " old",
          Style::kWarning);
    }
    if (row_.wait != nullptr) {
      Add("waits " + (row_.wait->name.empty() ? "at a barrier" : "for " + Escape(row_.wait->name)) + " (" +
              TypeTextOf(row_.wait->type) + ") for " + LongAgeText(Milliseconds(row_.wait->ageMs)) +
              (row_.wait->perhaps ? ", if that is a request" : "") + (row_.wait->inCycle ? ", in a cycle" : ""),
          Style::kWarning);
    }
    std::vector<std::string> waiters;
    for (const busview::Wait &wait : data_.view.waits) {
      if (wait.lasts() && wait.name == row_.name()) {
        waiters.push_back(Escape(data_.sample.clients[wait.from].daemon.name));
      }
    }
    if (!waiters.empty()) Add("waited for by " + Join(waiters, ", "), Style::kWarning);
  }

  void AddPeers() {
    bool any = false;
    for (const busview::Pair &pair : data_.view.pairs) {
      if (pair.first != row_.name() && pair.second != row_.name()) continue;
      if (!std::exchange(any, true)) Add("PEERS", Style::kTitle);
      Add("  " + PairText(pair, data_.sample.server),
          IsStorm(pair, data_.sample.server) ? Style::kAlarm : Style::kBold);
      for (const busview::Edge &edge : data_.view.edges) {
        const bool there = edge.from == pair.first && edge.to == pair.second;
        if (!there && (edge.from != pair.second || edge.to != pair.first)) continue;
        Add("    " + Escape(NameOf(edge.from, data_.sample.server)) + " -> " +
            Escape(NameOf(edge.to, data_.sample.server)) + "  " + TypeTextOf(edge.type) + "  " +
            RateText(edge.perSecond) + "/s");
      }
    }
    if (!any) Add("no peers in the last second", Style::kDim);
  }

  void AddRequests() {
    if (client_.daemon.pending.empty()) return;
    Add("PENDING REQUESTS", Style::kTitle);
    for (const daemon::PendingRequest &request : client_.daemon.pending) {
      Add("  " + (request.to.empty() ? "(barrier)" : Escape(request.to)) + "  " + TypeTextOf(request.type) + "  " +
          LongAgeText(Milliseconds(request.ageMs)) + " ago, waits: " + std::string(WaitsText(request.waits)));
    }
  }

  void AddSubscriptions() {
    if (client_.events.empty() && client_.patterns.empty()) return;
    Add("SUBSCRIPTIONS", Style::kTitle);
    for (const uint32_t event : client_.events) {
      const std::string module = messages::EventModuleOf(event);
      Add("  " + (event == ZOR_EVT_ALL ? "all events" : module.empty() ? HexText(event) : Escape(module)));
    }
    for (const std::string &pattern : client_.patterns) Add("  " + Escape(pattern));
  }

  const TopData &data_;
  const TopRow &row_;
  const busview::Client &client_;
  Screen screen_;
};

}  // namespace

Screen DetailOf(const TopData &data, const TopRow &row) {
  return Detail(data, row).Lines();
}

}  // namespace zor::ctl
