// The page's server: joins the bus, the feeds of the pages and HTTP.
#ifndef ZORWEB_PAGE_SERVER_H
#define ZORWEB_PAGE_SERVER_H

#include <string>

#include "programs/bus_daemon.h"
#include "programs/loop_watch.h"
#include "programs/problem_log.h"
#include "programs/stop_signal.h"
#include "programs/tcp_listener.h"
#include "zorweb/bus_feed.h"
#include "zorweb/http_server.h"
#include "zorweb/log_feed.h"
#include "zorweb/pages.h"
#include "zorweb/settings.h"
#include "zorweb/site.h"
#include "zorweb/traffic_feed.h"

namespace zor::web {

class PageServer : private daemon::BusListener {
 public:
  struct Secrets {
    std::string token;
    std::string certificate;
    std::string key;
  };

  PageServer(const WebSettings &settings, Secrets secrets, daemon::TcpListener listener, daemon::ProblemLog &log);
  ~PageServer() override;

  // Serves until a signal arrives.
  daemon::ExitCode Run(const daemon::StopSignal &stop);

 private:
  daemon::ExitCode OnJoined() override;
  void OnBusLost() override { bus_.OnBusLost(); }
  void OnRejoined() override;
  void OnLeaving() override;

  static void OnMessage(ZOR_MSG_HEAD *message, uint32_t);
  void OnTick();
  void OnPage(const Pages::Stream &stream);

  const WebSettings &settings_;
  daemon::ProblemLog &log_;
  daemon::TcpListener listener_;
  Pages pages_;
  BusFeed bus_;
  TrafficFeed traffic_;
  LogFeed logs_;
  PageSite site_;
  HttpServer http_;
  daemon::LoopTimer tick_;
  daemon::LoopTimer flush_;
};

}  // namespace zor::web

#endif
