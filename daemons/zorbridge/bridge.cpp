#include "zorbridge/bridge.h"

#include <zor/msg.h>
#include <zor/uv.h>

#include <nlohmann/json.hpp>

#include "programs/limits.h"
#include "programs/paths.h"
#include "programs/version.h"
#include "zorbridge/log_request.h"
#include "zorbridge/time_text.h"

namespace zor::bridge {
namespace {

using Json = nlohmann::ordered_json;

std::string RealPath(const std::string &fixedPath) {
  return fixedPath.empty() ? std::string() : daemon::FixedPath(fixedPath);
}

void StopLoop() {
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

}  // namespace

Bridge::Bridge(const BridgeSettings &settings, Outbox &outbox, daemon::ProblemLog &problems, bool verbose)
    : settings_(settings),
      problems_(problems),
      base_(settings.prefix + '/' + settings.gateway),
      started_(TimeText(UnixMs())),
      outbox_(outbox),
      uplink_(base_, settings.gateway, outbox),
      link_(LinkOptions(), *this, problems),
      requests_(settings, uplink_, verbose ? &problems : nullptr),
      intake_(settings, uplink_, [this](uint64_t events) { status_.OnMissed(events); }),
      trace_(RealPath(daemon::ParentOf(settings.queueFile) + "/trace.json"), uplink_, problems),
      status_(settings, uplink_, outbox, link_, requests_) {
  requests_.Add("status", [this](const Requests::Own &request) {
    status_.Make([done = request.done](const std::string &document) { done("\"status\":" + document); });
  });
  requests_.Add("log", [this](const Requests::Own &request) { ServeLog(settings_.logDirectory, request); });
  requests_.Add("trace", [this](const Requests::Own &request) { trace_.Serve(request); });
}

BrokerLink::Options Bridge::LinkOptions() const {
  BrokerLink::Options options;
  options.brokers = settings_.brokers;
  options.clientId = settings_.prefix + '-' + settings_.gateway;
  options.willTopic = base_ + "/presence";
  options.willPayload = Presence(false, "lost", started_);
  options.subscriptions = {base_ + "/call/+/+"};
  if (settings_.usesTls()) {
    options.tls = {RealPath(settings_.authority), RealPath(settings_.certificate), RealPath(settings_.key),
                   RealPath(settings_.revoked)};
  }
  options.userName = settings_.user;
  options.passwordFile = RealPath(settings_.passwordFile);
  options.keepAliveSeconds = settings_.keepAliveSeconds;
  options.retry.first = settings_.firstPause;
  options.retry.longest = settings_.mostPause;
  options.inFlight = settings_.inFlight;
  return options;
}

std::string Bridge::Presence(bool online, const char *reason, const std::string &since) const {
  Json presence = {{"schema", 1},
                   {"gateway", settings_.gateway},
                   {"online", online},
                   {"since", since},
                   {"version", daemon::Version()},
                   {"bridge", "zorbridge"},
                   {"stream", outbox_.stream()}};
  if (reason != nullptr) presence["reason"] = reason;
  return presence.dump();
}

daemon::ExitCode Bridge::Run(const daemon::StopSignal &stop) {
  if (!uplink_.Start(link_) || !status_.Start()) {
    problems_.Print("out of memory");
    return daemon::kExitFailure;
  }
  const daemon::ExitCode served = daemon::ServeBus(kBusName, stop, problems_, this);
  if (served == daemon::kExitOk) SayFarewell();
  return served;
}

void Bridge::SayFarewell() {
  if (link_.connected()) {
    leaving_ = true;
    Publication farewell = MakePublication(base_ + "/presence", Presence(false, "stopped", TimeText(UnixMs())));
    farewell.retain = true;
    link_.Stop(farewell);
    ZOR_UV_LoopRun(nullptr, 0);  // until OnStopped
  }
}

void Bridge::OnConnected() {
  uplink_.OnConnected();
  uplink_.Document("presence", Presence(true, nullptr, TimeText(UnixMs())));
  status_.Publish();
}

void Bridge::OnDisconnected(const std::string &why) {
  uplink_.OnDisconnected();
  requests_.OnDisconnected();
  status_.OnDisconnected(why);
}

void Bridge::OnStopped() {
  if (leaving_) StopLoop();
}

daemon::ExitCode Bridge::OnJoined() {
  intake_.Join();
  trace_.RestoreLeft();
  if (!IsAlone()) return daemon::kExitBusy;
  return link_.Start() ? daemon::kExitOk : daemon::kExitSettings;
}

// The reply also says that the message server has taken the subscriptions, which were sent before the question.
bool Bridge::IsAlone() const {
  if (ZOR_MSG_GetNumOfProcesses(kBusName) <= 1) return true;
  problems_.Print("another daemon on the bus has the name %s", kBusName);
  return false;
}

void Bridge::OnRejoined() {
  intake_.Rejoin();
  trace_.OnRejoined();
  status_.OnRejoined();
}

void Bridge::OnLeaving() {
  trace_.Stop();
}

}  // namespace zor::bridge
