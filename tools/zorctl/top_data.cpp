#include "zorctl/top_data.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <tuple>

#include "common/ascii.h"
#include "zorctl/quantity.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

using busview::Rate;

// Nothing if neither is known.
Rate Sum(const Rate &a, const Rate &b) {
  if (!a && !b) return std::nullopt;
  return a.value_or(0) + b.value_or(0);
}

double ValueOf(const TopRow &row, SortKey key) {
  const busview::Client &client = *row.client;
  constexpr double kUnknown = -1;
  switch (key) {
    case SortKey::kRate:
      return row.Messages().value_or(kUnknown);
    case SortKey::kBytes:
      return row.Bytes().value_or(kUnknown);
    case SortKey::kWaiting:
      return static_cast<double>(client.daemon.unread);
    case SortKey::kOldest:
      return static_cast<double>(client.daemon.unread == 0 ? 0 : client.daemon.unreadMs);
    case SortKey::kDropped:
      return static_cast<double>(client.traffic.dropped.value_or(0));
    case SortKey::kCpu:
      return row.rates->cpu.value_or(kUnknown);
    case SortKey::kMemory:
      return static_cast<double>(client.process.residentBytes);
    case SortKey::kName:
      break;
  }
  return 0;
}

std::string Upper(std::string_view text) {
  std::string upper(text);
  std::transform(upper.begin(), upper.end(), upper.begin(), AsciiUpper);
  return upper;
}

}  // namespace

double SamplingCost::Share() const {
  if (interval.count() <= 0) return 0;
  return std::chrono::duration<double>(time).count() / std::chrono::duration<double>(interval).count();
}

std::string SamplingCost::Text() const {
  constexpr double kUsPerMs = 1000;
  return "sampling: a list of " + BytesText(static_cast<double>(bytes)) + " bytes in " +
         RateText(static_cast<double>(time.count()) / kUsPerMs) + " ms, at most " + PercentText(Share()) +
         " % of the server's processor";
}

std::string SamplingCost::ShortText() const {
  return "sampling: at most " + PercentText(Share()) + " % of the server";
}

const std::vector<SortKeyRow> &SortKeys() {
  static const std::vector<SortKeyRow> kKeys = {
      {SortKey::kRate, "rate", 'r'},     {SortKey::kBytes, "bytes", 'b'},     {SortKey::kWaiting, "waiting", 'w'},
      {SortKey::kOldest, "oldest", 'o'}, {SortKey::kDropped, "dropped", 'd'}, {SortKey::kCpu, "cpu", 'c'},
      {SortKey::kMemory, "memory", 'm'}, {SortKey::kName, "name", 'n'},
  };
  return kKeys;
}

Rate TopRow::Messages() const {
  return Sum(rates->sent, rates->received);
}

Rate TopRow::Bytes() const {
  return Sum(rates->sentBytes, rates->receivedBytes);
}

std::vector<TopRow> RowsOf(const TopData &data, SortKey key, const std::string &filter) {
  const std::vector<busview::Client> &clients = data.sample.clients;
  std::vector<TopRow> all;
  std::map<std::tuple<std::string_view, std::string_view, int, uint64_t>, size_t> twins;
  for (size_t i = 0; i < clients.size(); ++i) {
    const busview::Client &client = clients[i];
    size_t &twin = twins[{client.daemon.name, client.board, client.daemon.pid, client.since}];
    all.push_back({&client, &data.view.daemons[i], nullptr, twin++});
  }
  for (const busview::Wait &wait : data.view.waits) {
    if (wait.lasts()) all[wait.from].wait = &wait;
  }
  const std::string wanted = Upper(filter);
  std::erase_if(all, [&](const TopRow &row) { return Upper(row.name()).find(wanted) == std::string::npos; });
  std::stable_sort(all.begin(), all.end(), [=](const TopRow &a, const TopRow &b) {
    const double left = ValueOf(a, key), right = ValueOf(b, key);
    return left != right ? left > right : a.name() < b.name();
  });
  return all;
}

std::string StateTextOf(const TopRow &row) {
  if (busview::IsStopped(*row.client) || row.wait == nullptr) {
    return row.client->daemon.pid == 0 ? "board " + Escape(row.client->board)
                                       : std::string(daemon::StateText(row.client->daemon.state));
  }
  const std::string other = row.wait->name.empty() ? "at a barrier" : "for " + Escape(row.wait->name);
  return "waits " + other + (row.wait->inCycle ? ", a cycle" : !row.wait->to ? ", absent" : "");
}

bool IsStorm(const busview::Pair &pair, const busview::Server &server) {
  const auto rate = static_cast<double>(server.stormRate);
  return rate > 0 && pair.there >= rate && pair.back >= rate;
}

std::string PairText(const busview::Pair &pair, const busview::Server &server) {
  return Escape(NameOf(pair.first, server)) + (pair.back > 0 ? " <-> " : " -> ") + Escape(NameOf(pair.second, server)) +
         " " + RateText(pair.perSecond()) + "/s";
}

}  // namespace zor::ctl
