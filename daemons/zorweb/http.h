// A request of a browser and the reply to it, which may come later.
#ifndef ZORWEB_HTTP_H
#define ZORWEB_HTTP_H

#include <microhttpd.h>
#include <netinet/in.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zorweb/event_stream.h"

namespace zor::web {

inline constexpr char kPlainText[] = "text/plain; charset=utf-8";

struct Reply {
  unsigned status = MHD_HTTP_OK;
  std::string type = kPlainText;
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;
};

// A reply that is its status alone, and what the reader can do.
Reply PlainReply(unsigned status, std::string text);
// Leads the browser to another page of ours.
Reply Redirect(std::string to);

class Exchange {
 public:
  Exchange(MHD_Connection *connection, daemon::LoopTimer &turn, std::string_view method, std::string_view path)
      : connection_(connection), turn_(turn), method_(method), path_(path) {}
  Exchange(const Exchange &) = delete;
  Exchange &operator=(const Exchange &) = delete;

  const std::string &method() const { return method_; }
  const std::string &path() const { return path_; }
  const std::string &body() const { return body_; }
  // Empty if there is none.
  std::string Query(const char *name) const { return Value(MHD_GET_ARGUMENT_KIND, name); }
  std::string Header(const char *name) const { return Value(MHD_HEADER_KIND, name); }
  std::string Cookie(const char *name) const { return Value(MHD_COOKIE_KIND, name); }
  // How often the header is there: two of one name are a sign of somebody who wants to be understood in two ways.
  unsigned CountHeaders(const char *name) const;
  in_addr_t peer() const;

  // Once, now or later; of no effect when the browser has gone.
  void Answer(Reply reply);
  void Answer(std::shared_ptr<EventStream> stream);

 private:
  friend class HttpServer;

  std::string Value(MHD_ValueKind kind, const char *name) const;
  bool isAnswered() const { return reply_ || stream_ != nullptr; }
  void Resume();

  MHD_Connection *connection_;  // null once the request has ended
  daemon::LoopTimer &turn_;     // lets the server see that the connection has resumed
  std::string method_;
  std::string path_;
  std::string body_;
  std::optional<Reply> reply_;
  std::shared_ptr<EventStream> stream_;
  bool suspended_ = false;
};

// What the server is there for.
class Site {
 public:
  Site() = default;
  Site(const Site &) = delete;
  Site &operator=(const Site &) = delete;
  virtual ~Site() = default;

  // Answers the request, at once or later. It never has a body longer than a form.
  virtual void Serve(const std::shared_ptr<Exchange> &exchange) = 0;
};

}  // namespace zor::web

#endif
