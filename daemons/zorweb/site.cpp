#include "zorweb/site.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>

#include "programs/limits.h"
#include "programs/metrics/bus_metrics.h"
#include "programs/metrics/handler_metrics.h"
#include "programs/paths.h"
#include "zorweb/assets.h"
#include "zorweb/bus_feed.h"
#include "zorweb/form.h"
#include "zorweb/origin.h"
#include "zorweb/secrets.h"

namespace zor::web {
namespace {

constexpr char kMetricsType[] = "application/openmetrics-text; version=1.0.0; charset=utf-8";
constexpr char kBearer[] = "Bearer ";
constexpr char kNoLogin[] = "none";  // the session of everybody where no login is asked for

// For everybody: the login page needs them, and they are no secret.
constexpr std::array<std::string_view, 3> kPublic = {"style.css", "icon.svg", "login.html"};

bool IsPublic(std::string_view name) {
  return std::ranges::find(kPublic, name) != kPublic.end();
}

Reply AssetReply(const Asset &asset) {
  // Its files are UTF-8.
  const std::string charset = asset.type.starts_with("text/") ? "; charset=utf-8" : "";
  return {MHD_HTTP_OK, std::string(asset.type) + charset, std::string(asset.content), {}};
}

OriginHeaders OriginOf(const Exchange &exchange) {
  return {exchange.Header(MHD_HTTP_HEADER_HOST), exchange.CountHeaders(MHD_HTTP_HEADER_HOST),
          exchange.Header(MHD_HTTP_HEADER_ORIGIN), exchange.Header("Sec-Fetch-Site"),
          exchange.Header("Sec-Fetch-Mode")};
}

bool IsReading(const Exchange &exchange) {
  return exchange.method() == MHD_HTTP_METHOD_GET || exchange.method() == MHD_HTTP_METHOD_HEAD;
}

Reply NotAllowed(const char *allowed) {
  Reply reply = PlainReply(MHD_HTTP_METHOD_NOT_ALLOWED, "This server only shows; it changes nothing.");
  reply.headers.emplace_back(MHD_HTTP_HEADER_ALLOW, allowed);
  return reply;
}

}  // namespace

PageSite::PageSite(const WebSettings &settings, std::string token, OnPage onPage, daemon::ProblemLog &log)
    : settings_(settings),
      token_(std::move(token)),
      onPage_(std::move(onPage)),
      log_(log),
      sessions_(settings.sessionTime),
      check_(settings.loginSocket.empty() ? std::string() : daemon::FixedPath(settings.loginSocket), log) {}

void PageSite::Serve(const Shared &exchange) {
  if (const char *why = ForeignBecause(OriginOf(*exchange), settings_.usesTls(), settings_.names)) {
    return exchange->Answer(PlainReply(MHD_HTTP_FORBIDDEN, why));
  }
  const std::string name = exchange->path().substr(exchange->path().starts_with('/') ? 1 : 0);
  if (name == "login") return ServeLogin(exchange);
  if (!IsReading(*exchange)) return exchange->Answer(NotAllowed("GET, HEAD"));
  const Asset *asset = FindAsset(name.empty() ? "index.html" : name);
  if (asset != nullptr && IsPublic(asset->name)) return exchange->Answer(AssetReply(*asset));
  if (!SessionOf(*exchange).empty() || HasToken(*exchange)) {
    return asset != nullptr ? exchange->Answer(AssetReply(*asset)) : ServeAdmitted(exchange);
  }
  if (asset != nullptr && asset->name == "index.html") return exchange->Answer(Redirect("/login"));
  exchange->Answer(PlainReply(MHD_HTTP_UNAUTHORIZED, "Log in first."));
}

void PageSite::ServeAdmitted(const Shared &exchange) {
  if (exchange->path() == "/events") return ServeEvents(exchange);
  if (exchange->path() == "/metrics") return ServeMetrics(exchange);
  exchange->Answer(PlainReply(MHD_HTTP_NOT_FOUND, "There is no such page."));
}

void PageSite::ServeEvents(const Shared &exchange) {
  if (exchange->method() == MHD_HTTP_METHOD_HEAD) return exchange->Answer(Reply{});
  Wants wants;
  wants.logs = exchange->Query("logs") == "1";
  wants.traffic = exchange->Query("traffic") == "1";
  const auto filter = ParseTrafficFilter(exchange->Query("daemon"), exchange->Query("types"));
  if (!filter) return exchange->Answer(PlainReply(MHD_HTTP_BAD_REQUEST, "No such name or type."));
  wants.filter = *filter;
  wants.filter.undelivered = exchange->Query("undelivered") == "1";
  auto stream = std::make_shared<EventStream>(wants, SessionOf(*exchange));
  onPage_(stream);
  exchange->Answer(std::move(stream));
}

void PageSite::ServeMetrics(const Shared &exchange) {
  BusFeed::Ask([exchange](std::string_view list, const std::string &trouble) {
    const nlohmann::json parsed = nlohmann::json::parse(list, nullptr, false);
    if (!parsed.is_object()) {
      return exchange->Answer(
          PlainReply(MHD_HTTP_SERVICE_UNAVAILABLE, trouble.empty() ? "The list cannot be read." : trouble));
    }
    metrics::Metrics metrics;
    metrics::AddBusMetrics(parsed, metrics);
    metrics::AddHandlerMetrics(parsed, metrics);
    exchange->Answer(Reply{MHD_HTTP_OK, kMetricsType, metrics.Text(), {}});
  });
}

std::string PageSite::SessionOf(const Exchange &exchange) const {
  if (settings_.login == Login::kNone) return kNoLogin;
  const std::string secret = exchange.Cookie(settings_.usesTls() ? "__Host-zorweb" : "zorweb");
  return !secret.empty() && sessions_.IsValid(secret, Sessions::Clock::now()) ? secret : std::string();
}

bool PageSite::Admits(const std::string &session) const {
  // The collector's, which has the token itself.
  if (session.empty() || settings_.login == Login::kNone) return true;
  return sessions_.IsValid(session, Sessions::Clock::now());
}

// For programs, which have no use for a form.
bool PageSite::HasToken(const Exchange &exchange) {
  const std::string header = exchange.Header(MHD_HTTP_HEADER_AUTHORIZATION);
  if (token_.empty() || !header.starts_with(kBearer)) return false;
  if (IsSame(token_, header.substr(sizeof kBearer - 1))) return true;
  const auto now = Attempts::Clock::now();
  if (!attempts_.MayTry(exchange.peer(), now)) return false;
  attempts_.OnFailure(exchange.peer(), now);
  log_.Print("a wrong token was sent");
  return false;
}

void PageSite::ServeLogin(const Shared &exchange) {
  if (settings_.login == Login::kNone) return exchange->Answer(Redirect("/"));
  if (IsReading(*exchange)) {
    return exchange->Answer(AssetReply(*FindAsset(settings_.login == Login::kPam ? "login_pam.html" : "login.html")));
  }
  if (exchange->method() != MHD_HTTP_METHOD_POST) return exchange->Answer(NotAllowed("GET, HEAD, POST"));
  if (!exchange->Header(MHD_HTTP_HEADER_CONTENT_TYPE).starts_with(MHD_HTTP_POST_ENCODING_FORM_URLENCODED)) {
    return exchange->Answer(PlainReply(MHD_HTTP_UNSUPPORTED_MEDIA_TYPE, "Not a form."));
  }
  const bool byToken = settings_.login == Login::kToken;
  if (byToken && IsSame(token_, FormField(exchange->body(), "token"))) {
    return FinishLogin(exchange, LoginCheck::Result::kRight);
  }
  if (!attempts_.MayTry(exchange->peer(), Attempts::Clock::now())) {
    return exchange->Answer(Redirect("/login#often"));
  }
  byToken ? FinishLogin(exchange, LoginCheck::Result::kWrong) : CheckPassword(exchange);
}

void PageSite::CheckPassword(const Shared &exchange) {
  const std::string user = FormField(exchange->body(), "user"), password = FormField(exchange->body(), "password");
  const bool usable = !user.empty() && user.size() + password.size() <= limits::zorweb::kMostPassword &&
                      user.find('\0') == user.npos && password.find('\0') == password.npos;
  if (!usable) return FinishLogin(exchange, LoginCheck::Result::kWrong);
  check_.Start(user, password, [this, exchange](LoginCheck::Result result) { FinishLogin(exchange, result); });
}

void PageSite::FinishLogin(const Shared &exchange, LoginCheck::Result result) {
  switch (result) {
    case LoginCheck::Result::kRight: {
      attempts_.OnSuccess(exchange->peer());
      const std::string secret = sessions_.Begin(Sessions::Clock::now());
      Reply reply = Redirect("/");
      reply.headers.emplace_back(MHD_HTTP_HEADER_SET_COOKIE,
                                 (settings_.usesTls() ? "__Host-zorweb=" + secret + "; Secure" : "zorweb=" + secret) +
                                     "; Path=/; HttpOnly; SameSite=Strict");
      return exchange->Answer(std::move(reply));
    }
    case LoginCheck::Result::kWrong:
      attempts_.OnFailure(exchange->peer(), Attempts::Clock::now());
      log_.Print("a login has failed");
      return exchange->Answer(Redirect("/login#wrong"));
    case LoginCheck::Result::kBusy:
      return exchange->Answer(Redirect("/login#often"));
    case LoginCheck::Result::kFailed:
      break;
  }
  exchange->Answer(Redirect("/login#failed"));
}

}  // namespace zor::web
