// The HTTP server: libmicrohttpd inside the library's loop, without a thread. The loop watches its epoll descriptor and
// the time that it asks for.
//
// A browser may be slow, silent or hostile. Connections, their memory and the length of a form are bounded; one that
// has not sent its request in time is closed, whether it sends nothing or a byte now and then.
#ifndef ZORWEB_HTTP_SERVER_H
#define ZORWEB_HTTP_SERVER_H

#include <microhttpd.h>

#include <chrono>
#include <memory>
#include <set>
#include <string>

#include "common/unique_fd.h"
#include "programs/loop_watch.h"
#include "zorweb/http.h"

namespace zor::web {

class HttpServer {
 public:
  struct Options {
    size_t connections = 0;
    std::string certificate;  // PEM; empty: no TLS
    std::string key;

    bool usesTls() const { return !certificate.empty(); }
  };

  HttpServer(Options options, Site &site) : options_(std::move(options)), site_(site) {}
  HttpServer(const HttpServer &) = delete;
  HttpServer &operator=(const HttpServer &) = delete;
  ~HttpServer() { Stop(); }

  // Takes connections of a listening socket. False if that is not possible.
  bool Start(UniqueFd listener);
  // Ends all connections. The site has let go of its streams.
  void Stop();

 private:
  using Clock = std::chrono::steady_clock;

  struct Connection {
    int fd = -1;
    Clock::time_point since;  // when it began to wait for a request
    bool busy = false;        // a request is being served
  };

  static MHD_Result OnRequest(void *self, MHD_Connection *connection, const char *url, const char *method,
                              const char *version, const char *upload, size_t *uploadSize, void **state);
  static void OnCompleted(void *self, MHD_Connection *connection, void **state, MHD_RequestTerminationCode why);
  static void OnConnection(void *self, MHD_Connection *connection, void **state, MHD_ConnectionNotificationCode what);

  MHD_Result Take(MHD_Connection *connection, const std::shared_ptr<Exchange> &exchange);
  MHD_Result Send(MHD_Connection *connection, const Exchange &exchange);
  void AddHeaders(MHD_Response *response, const Reply &reply) const;
  void Turn();
  void CloseLate();

  Options options_;
  Site &site_;
  MHD_Daemon *daemon_ = nullptr;
  bool stopping_ = false;  // no request may begin to wait any more
  daemon::LoopWatch events_;
  daemon::LoopTimer timer_;
  daemon::LoopTimer sweep_;
  std::set<Connection *> connections_;
  std::set<std::shared_ptr<Exchange>> exchanges_;
};

}  // namespace zor::web

#endif
