// What the server has to offer, and who gets it: the page and its files, its events, the measurements, the login.
#ifndef ZORWEB_SITE_H
#define ZORWEB_SITE_H

#include <functional>
#include <memory>
#include <string>

#include "programs/problem_log.h"
#include "zorweb/http.h"
#include "zorweb/login_check.h"
#include "zorweb/sessions.h"
#include "zorweb/settings.h"

namespace zor::web {

class PageSite : public Site {
 public:
  using OnPage = std::function<void(const std::shared_ptr<EventStream> &)>;

  // `token` is empty unless the login is one.
  PageSite(const WebSettings &settings, std::string token, OnPage onPage, daemon::ProblemLog &log);

  void Serve(const std::shared_ptr<Exchange> &exchange) override;

  // Whether a session that has begun is still valid.
  bool Admits(const std::string &session) const;

 private:
  using Shared = std::shared_ptr<Exchange>;

  void ServeAdmitted(const Shared &exchange);
  void ServeEvents(const Shared &exchange);
  void ServeLogin(const Shared &exchange);
  void CheckPassword(const Shared &exchange);
  void FinishLogin(const Shared &exchange, LoginCheck::Result result);
  std::string SessionOf(const Exchange &exchange) const;
  bool HasToken(const Exchange &exchange);
  static void ServeMetrics(const Shared &exchange);

  const WebSettings &settings_;
  std::string token_;
  OnPage onPage_;
  daemon::ProblemLog &log_;
  Sessions sessions_;
  Attempts attempts_;
  LoginCheck check_;
};

}  // namespace zor::web

#endif
