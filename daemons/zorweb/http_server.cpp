#include "zorweb/http_server.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <array>
#include <charconv>
#include <string_view>

#include "programs/limits.h"

namespace zor::web {
namespace {

using namespace limits::zorweb;  // NOLINT(google-build-using-namespace): its own limits

constexpr unsigned kFlags = MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME;
constexpr unsigned kIdleSeconds = 30;  // of a connection on which nothing moves
constexpr int kSendBuffer = 128 * 1024;
constexpr char kTlsVersions[] = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";

// Nothing but our own files and the events; no page of others may show ours.
constexpr std::array<std::pair<const char *, const char *>, 8> kHeaders = {{
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self'; form-action 'self'; "
     "base-uri 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Permissions-Policy", "camera=(), geolocation=(), microphone=()"},
    {"Cache-Control", "no-store"},
}};

struct ResponseDeleter {
  void operator()(MHD_Response *response) const { MHD_destroy_response(response); }
};
using ResponsePtr = std::unique_ptr<MHD_Response, ResponseDeleter>;

ssize_t ReadStream(void *stream, uint64_t, char *buffer, size_t room) {
  return (*static_cast<std::shared_ptr<EventStream> *>(stream))->Read(buffer, room);
}

void ReleaseStream(void *stream) {
  delete static_cast<std::shared_ptr<EventStream> *>(stream);
}

ResponsePtr StreamResponse(const std::shared_ptr<EventStream> &stream) {
  constexpr size_t kBlock = 4096;
  auto owner = std::make_unique<std::shared_ptr<EventStream>>(stream);
  ResponsePtr response(
      MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kBlock, ReadStream, owner.get(), ReleaseStream));
  if (response != nullptr) static_cast<void>(owner.release());
  return response;
}

// Beyond what a form may have, or not a length at all.
bool IsTooLong(const std::string &length) {
  size_t number = 0;
  const auto [end, error] = std::from_chars(length.data(), length.data() + length.size(), number);
  return !length.empty() && (error != std::errc() || end != length.data() + length.size() || number > kFormBytes);
}

}  // namespace

bool HttpServer::Start(UniqueFd listener) {
  std::array<MHD_OptionItem, 16> options = {{
      {MHD_OPTION_LISTEN_SOCKET, listener.get(), nullptr},
      {MHD_OPTION_CONNECTION_LIMIT, static_cast<intptr_t>(options_.connections), nullptr},
      {MHD_OPTION_CONNECTION_MEMORY_LIMIT, static_cast<intptr_t>(kRequestBytes), nullptr},
      {MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds, nullptr},
      {MHD_OPTION_STRICT_FOR_CLIENT, 1, nullptr},
      {MHD_OPTION_NOTIFY_COMPLETED, reinterpret_cast<intptr_t>(OnCompleted), this},
      {MHD_OPTION_NOTIFY_CONNECTION, reinterpret_cast<intptr_t>(OnConnection), this},
      {MHD_OPTION_END, 0, nullptr},
  }};
  unsigned flags = kFlags;
  if (options_.usesTls()) {
    flags |= MHD_USE_TLS;
    options[7] = {MHD_OPTION_HTTPS_MEM_CERT, 0, options_.certificate.data()};
    options[8] = {MHD_OPTION_HTTPS_MEM_KEY, 0, options_.key.data()};
    options[9] = {MHD_OPTION_HTTPS_PRIORITIES, 0, const_cast<char *>(kTlsVersions)};
    options[10] = {MHD_OPTION_END, 0, nullptr};
  }
  ::fcntl(listener.get(), F_SETFL, ::fcntl(listener.get(), F_GETFL) | O_NONBLOCK);
  daemon_ =
      MHD_start_daemon(flags, 0, nullptr, nullptr, OnRequest, this, MHD_OPTION_ARRAY, options.data(), MHD_OPTION_END);
  if (daemon_ == nullptr) return false;
  listener.release();
  const MHD_DaemonInfo *info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD);
  // The loop closes what it watches.
  UniqueFd epoll(info == nullptr ? -1 : ::fcntl(info->epoll_fd, F_DUPFD_CLOEXEC, 0));
  const auto turn = [](void *self) { static_cast<HttpServer *>(self)->Turn(); };
  const auto onEvents = [](void *self, uint32_t) { static_cast<HttpServer *>(self)->Turn(); };
  const auto sweep = [](void *self) { static_cast<HttpServer *>(self)->CloseLate(); };
  if (!epoll.valid() || !timer_.Open(turn, this) || !sweep_.Open(sweep, this) ||
      !events_.Open(std::move(epoll), UV_READABLE, onEvents, this)) {
    return false;
  }
  sweep_.Set(Clock::now() + std::chrono::seconds(1));
  return true;
}

void HttpServer::Stop() {
  if (daemon_ == nullptr) return;
  events_.Close();
  stopping_ = true;
  // A suspended connection cannot be closed.
  for (const auto &exchange : exchanges_) {
    if (exchange->stream_ != nullptr) {
      exchange->stream_->Drop();
    } else {
      exchange->Answer(PlainReply(MHD_HTTP_SERVICE_UNAVAILABLE, "The server is stopping."));
    }
  }
  MHD_run(daemon_);
  MHD_stop_daemon(std::exchange(daemon_, nullptr));
}

void HttpServer::Turn() {
  constexpr int kInTurn = 64;  // then the bus has its turn
  for (int count = 0; count < kInTurn; ++count) {
    MHD_run(daemon_);
    MHD_UNSIGNED_LONG_LONG wait = 0;
    if (MHD_get_timeout(daemon_, &wait) != MHD_YES) return timer_.Park();
    if (wait > 0) return timer_.Set(Clock::now() + std::chrono::milliseconds(std::min<uint64_t>(wait, INT32_MAX)));
  }
  timer_.Set(Clock::now());
}

void HttpServer::CloseLate() {
  const auto latest = Clock::now() - kRequestTime;
  for (const Connection *each : connections_) {
    if (!each->busy && each->since < latest) ::shutdown(each->fd, SHUT_RDWR);
  }
}

void HttpServer::OnConnection(void *self, MHD_Connection *connection, void **state,
                              MHD_ConnectionNotificationCode what) {
  auto &server = *static_cast<HttpServer *>(self);
  if (what == MHD_CONNECTION_NOTIFY_STARTED) {
    const MHD_ConnectionInfo *info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    auto *record = new Connection{info == nullptr ? -1 : info->connect_fd, Clock::now(), false};
    // What a page does not read waits in its own queue, whose length is ours to say.
    ::setsockopt(record->fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    server.connections_.insert(record);
    *state = record;
  } else {
    auto *record = static_cast<Connection *>(*state);
    server.connections_.erase(record);
    delete record;
    *state = nullptr;
  }
}

void HttpServer::OnCompleted(void *self, MHD_Connection *connection, void **state, MHD_RequestTerminationCode) {
  auto &server = *static_cast<HttpServer *>(self);
  const std::unique_ptr<std::shared_ptr<Exchange>> exchange(static_cast<std::shared_ptr<Exchange> *>(*state));
  *state = nullptr;
  if (exchange == nullptr) return;
  (*exchange)->connection_ = nullptr;
  if ((*exchange)->stream_ != nullptr) (*exchange)->stream_->End();
  server.exchanges_.erase(*exchange);
  const MHD_ConnectionInfo *info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
  auto *record = info == nullptr ? nullptr : static_cast<Connection *>(info->socket_context);
  if (record == nullptr) return;
  record->busy = false;
  record->since = Clock::now();
}

MHD_Result HttpServer::OnRequest(void *self, MHD_Connection *connection, const char *url, const char *method,
                                 const char *, const char *upload, size_t *uploadSize, void **state) {
  auto &server = *static_cast<HttpServer *>(self);
  if (*state == nullptr) {
    if (server.stopping_) return MHD_NO;
    auto exchange =
        std::make_unique<std::shared_ptr<Exchange>>(std::make_shared<Exchange>(connection, server.timer_, method, url));
    server.exchanges_.insert(*exchange);
    Exchange &made = **exchange;
    *state = exchange.release();
    if (made.CountHeaders(MHD_HTTP_HEADER_TRANSFER_ENCODING) == 0 &&
        !IsTooLong(made.Header(MHD_HTTP_HEADER_CONTENT_LENGTH))) {
      return MHD_YES;
    }
    made.Answer(PlainReply(MHD_HTTP_CONTENT_TOO_LARGE, "Too long."));
    return server.Send(connection, made);
  }
  const auto &exchange = *static_cast<std::shared_ptr<Exchange> *>(*state);
  if (*uploadSize == 0) return server.Take(connection, exchange);
  exchange->body_.append(upload, *uploadSize);
  *uploadSize = 0;
  return exchange->body_.size() <= kFormBytes ? MHD_YES : MHD_NO;
}

MHD_Result HttpServer::Take(MHD_Connection *connection, const std::shared_ptr<Exchange> &exchange) {
  const MHD_ConnectionInfo *info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
  if (info != nullptr && info->socket_context != nullptr) static_cast<Connection *>(info->socket_context)->busy = true;
  if (!exchange->isAnswered()) site_.Serve(exchange);
  if (exchange->isAnswered()) return Send(connection, *exchange);
  exchange->suspended_ = true;
  MHD_suspend_connection(connection);
  return MHD_YES;
}

MHD_Result HttpServer::Send(MHD_Connection *connection, const Exchange &exchange) {
  ResponsePtr response;
  Reply reply;
  if (exchange.stream_ != nullptr) {
    exchange.stream_->Attach(connection, timer_);
    reply.type = "text/event-stream";
    response = StreamResponse(exchange.stream_);
  } else {
    reply = *exchange.reply_;
    response.reset(MHD_create_response_from_buffer(reply.body.size(), reply.body.data(), MHD_RESPMEM_MUST_COPY));
  }
  if (response == nullptr) return MHD_NO;
  AddHeaders(response.get(), reply);
  return MHD_queue_response(connection, reply.status, response.get());
}

void HttpServer::AddHeaders(MHD_Response *response, const Reply &reply) const {
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, reply.type.c_str());
  for (const auto &[name, value] : kHeaders) MHD_add_response_header(response, name, value);
  for (const auto &[name, value] : reply.headers) MHD_add_response_header(response, name.c_str(), value.c_str());
}

}  // namespace zor::web
