#include "zorweb/page_server.h"

#include <zor/control_wire.h>
#include <zor/msg.h>

#include <cstdio>
#include <utility>

#include "programs/bus_request.h"
#include "programs/paths.h"
#include "zorweb/bus_name.h"

namespace zor::web {
namespace {

constexpr std::chrono::milliseconds kTick{1000};
constexpr std::chrono::milliseconds kFlush{250};

// The library's handler has no data of its own.
TrafficFeed *traffic = nullptr;

HttpServer::Options HttpOptions(const WebSettings &settings, PageServer::Secrets &secrets) {
  return {settings.connections, std::move(secrets.certificate), std::move(secrets.key)};
}

}  // namespace

PageServer::PageServer(const WebSettings &settings, Secrets secrets, daemon::TcpListener listener,
                       daemon::ProblemLog &log)
    : settings_(settings),
      log_(log),
      listener_(std::move(listener)),
      bus_(pages_, settings.idlePeriod),
      traffic_(pages_),
      logs_(pages_, settings.logDirectory, daemon::FixedPath(settings.mlogFile)),
      site_(
          settings, std::move(secrets.token), [this](const Pages::Stream &stream) { OnPage(stream); }, log),
      http_(HttpOptions(settings, secrets), site_) {
  traffic = &traffic_;
}

PageServer::~PageServer() {
  traffic = nullptr;
}

daemon::ExitCode PageServer::Run(const daemon::StopSignal &stop) {
  return daemon::ServeBus(kBusName, stop, log_, this);
}

void PageServer::OnMessage(ZOR_MSG_HEAD *message, uint32_t) {
  const bool isFromServer = message->source[0] == '\0';
  if (message->type == ZOR_MSG_CONTROL_COPY && isFromServer) {
    if (traffic != nullptr) traffic->Take(daemon::BodyOf(*message));
  } else if (message->type == ZOR_MSG_SEND_FAILED_NOTICE && isFromServer) {
    daemon::TakeUndelivered(*message);
  } else if (message->type == ZOR_MSG_CONTROL_MONITOR && isFromServer) {
    if (traffic != nullptr) traffic->TakeReply(message->data);
  } else {
    ZOR_MSG_DefaultMsgProc(message);
  }
}

daemon::ExitCode PageServer::OnJoined() {
  ZOR_MSG_RegisterMsgProc(OnMessage);
  // Replies to a name that two have go to one of them.
  if (ZOR_MSG_GetNumOfProcesses(kBusName) > 1) {
    log_.Print("another daemon on the bus has the name %s", kBusName);
    return daemon::kExitBusy;
  }
  const std::string address = listener_.address;
  const auto tick = [](void *self) { static_cast<PageServer *>(self)->OnTick(); };
  const auto flush = [](void *self) { static_cast<PageServer *>(self)->traffic_.OnFlush(); };
  if (!tick_.Open(tick, this) || !flush_.Open(flush, this) || !http_.Start(std::move(listener_.socket))) {
    log_.Print("the HTTP server cannot be started; check that certificate and key belong together");
    return daemon::kExitFailure;
  }
  tick_.Set(daemon::LoopTimer::Clock::now() + kTick);
  std::printf("%s: listening on %s://%s/\n", log_.program(), settings_.usesTls() ? "https" : "http", address.c_str());
  std::fflush(stdout);
  return daemon::kExitOk;
}

void PageServer::OnRejoined() {
  ZOR_MSG_RegisterMsgProc(OnMessage);
  bus_.OnRejoined();
  traffic_.OnRejoined();
}

void PageServer::OnLeaving() {
  http_.Stop();
}

void PageServer::OnTick() {
  pages_.Prune([this](const std::string &session) { return site_.Admits(session); });
  pages_.OnTick();
  bus_.OnTick();
  logs_.OnTick();
  traffic_.OnTick();
  if (pages_.anyWants(&Wants::traffic)) {
    flush_.SetSooner(daemon::LoopTimer::Clock::now() + kFlush);
  } else {
    flush_.Park();
  }
}

void PageServer::OnPage(const Pages::Stream &stream) {
  traffic_.OnFlush();  // forgets pages that have ended, whose place in memory this one may have
  bus_.Greet(*stream);
  pages_.Add(stream);
  logs_.Greet(*stream);
  traffic_.Greet(*stream);
  traffic_.OnFlush();
  if (stream->wants().traffic) flush_.SetSooner(daemon::LoopTimer::Clock::now() + kFlush);
}

}  // namespace zor::web
