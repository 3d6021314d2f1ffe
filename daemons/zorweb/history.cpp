#include "zorweb/history.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "programs/messages/text.h"

namespace zor::web {
namespace {

using Json = nlohmann::ordered_json;

constexpr auto kCount = static_cast<std::int64_t>(History::kSteps);

std::size_t Slot(std::int64_t step) {
  return static_cast<std::size_t>(step % kCount);
}

busview::Rate Sum(const busview::Rate &a, const busview::Rate &b) {
  return a || b ? busview::Rate(a.value_or(0) + b.value_or(0)) : std::nullopt;
}

}  // namespace

void History::Clear(Series &series, std::int64_t step) {
  for (std::int64_t each = std::max(series.latest + 1, step - kCount + 1); each <= step; ++each) {
    series.sent[Slot(each)] = series.received[Slot(each)] = {};
  }
  series.latest = step;
}

void History::Put(Series &series, const busview::Rate &sent, const busview::Rate &received) const {
  Clear(series, step_);
  const auto add = [this](std::array<Mean, kSteps> &means, const busview::Rate &rate) {
    if (!rate) return;
    Mean &mean = means[Slot(step_)];
    mean.sum += static_cast<float>(*rate);
    ++mean.count;
  };
  add(series.sent, sent);
  add(series.received, received);
}

void History::Add(std::int64_t nowMs, const busview::Sample &sample, const busview::View &view) {
  // A clock that was set back begins anew.
  if (nowMs / kStepMs < step_) *this = {};
  step_ = nowMs / kStepMs;
  std::erase_if(daemons_, [this](const auto &each) { return each.second.latest <= step_ - kCount; });
  Put(bus_, view.server.sent, view.server.received);
  std::map<std::string, std::pair<busview::Rate, busview::Rate>> byName;
  for (std::size_t i = 0; i < sample.clients.size(); ++i) {
    auto &[sent, received] = byName[sample.clients[i].daemon.name];
    sent = Sum(sent, view.daemons[i].sent);
    received = Sum(received, view.daemons[i].received);
  }
  for (const auto &[name, rates] : byName) {
    if (!daemons_.contains(name) && daemons_.size() >= limits::zorweb::kHistoryDaemons) continue;
    Put(daemons_[name], rates.first, rates.second);
  }
}

Json History::Of(const Series &series) const {
  Json both = Json::array();
  for (const auto *means : {&series.sent, &series.received}) {
    Json values = Json::array();
    for (std::int64_t step = step_ - kCount + 1; step <= step_; ++step) {
      const bool isKept = step >= 0 && step <= series.latest && step > series.latest - kCount;
      const Mean mean = isKept ? (*means)[Slot(step)] : Mean{};
      values.push_back(mean.count == 0 ? Json() : Json(std::round(mean.sum / mean.count * 10) / 10));
    }
    both.push_back(std::move(values));
  }
  return both;
}

Json History::AsJson() const {
  Json daemons = Json::object();
  for (const auto &[name, series] : daemons_) daemons[messages::Escape(name)] = Of(series);
  return {{"step_ms", kStepMs}, {"until", step_}, {"bus", Of(bus_)}, {"daemons", daemons}};
}

}  // namespace zor::web
