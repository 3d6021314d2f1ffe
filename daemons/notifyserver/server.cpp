#include "notifyserver/server.h"

#include <sys/socket.h>
#include <zor/notify_wire.h>
#include <zor/paths.h>

#include <cerrno>
#include <utility>

#include "programs/limits.h"
#include "programs/paths.h"

namespace zor::notifyserver {
namespace {

// Every module creates a socket beside the server's, whatever user it runs as; as in /tmp, users can remove only their
// own.
constexpr mode_t kDirectoryMode = 01777;
constexpr mode_t kSocketMode = 0666;

// How long a server without free descriptors waits before it tries to accept again.
constexpr int kPauseMs = 1000;

}  // namespace

daemon::ExitCode Server::Open() {
  if (!stop_.valid() || !poll_.valid()) {
    log_.PrintErrno("cannot wait for events");
    return daemon::kExitFailure;
  }
  if (!daemon::MakeDirectory(ZOR_PATH_NOTIFY_DIR, kDirectoryMode)) {
    log_.PrintErrno("%s", ZOR_PATH_NOTIFY_DIR);
    return daemon::kExitFailure;
  }
  if (const auto code = listener_.Open(ZOR_PATH_NOTIFY_SERVER, SOCK_STREAM, kSocketMode, log_);
      code != daemon::kExitOk) {
    return code;
  }
  if (poll_.Add(stop_.fd(), EPOLLIN, &stop_) && poll_.Add(listener_.fd(), EPOLLIN, &listener_)) return daemon::kExitOk;
  log_.PrintErrno("cannot wait for events");
  return daemon::kExitFailure;
}

void Server::Run() {
  while (Turn()) {
  }
  for (const auto &entry : clients_) {
    entry.second->Flush();
    LogEnd(*entry.second);
  }
}

bool Server::Turn() {
  const auto ready = poll_.Wait(watchdog_.TimeoutMs(listeningPaused_ ? kPauseMs : -1));
  if (listeningPaused_ && ready.empty()) PauseListening(false);
  for (const epoll_event &event : ready) {
    if (event.data.ptr == &stop_) {
      if (stop_.Take()) return false;
    } else if (event.data.ptr == &listener_) {
      Accept();
    } else {
      Serve(*static_cast<Client *>(event.data.ptr), event.events);
    }
  }
  ReleaseEnded();
  watchdog_.Feed();
  return true;
}

void Server::Accept() {
  UniqueFd socket(::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!socket.valid()) {
    if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return;
    log_.PrintErrno("cannot accept a connection");
    PauseListening(true);
    return;
  }
  if (clients_.size() >= limits_.maxClients) {
    log_.Print("connection refused: %zu clients are connected", clients_.size());
    return;
  }
  auto client = std::make_unique<Client>(std::move(socket), poll_, ended_, limits_);
  if (!client->Watch()) {
    log_.PrintErrno("%s refused", client->Label().c_str());
    return;
  }
  clients_.emplace(client.get(), std::move(client));
}

// Without free descriptors the listening socket stays readable, and the loop would spin on it.
void Server::PauseListening(bool on) {
  if (poll_.Change(listener_.fd(), on ? 0u : uint32_t{EPOLLIN}, &listener_)) listeningPaused_ = on;
}

void Server::Serve(Client &client, uint32_t events) {
  if (!client.ended() && (events & EPOLLOUT) != 0) client.Flush();
  if (!client.ended() && (events & ~EPOLLOUT) != 0) ReadFrames(client);
}

void Server::ReadFrames(Client &client) {
  client.Read(scratch_);
  while (!client.ended()) {
    // Before it registers, a client may send nothing longer than a registration.
    const size_t limit = client.registered() ? limits_.maxDataBytes : limits::notifyserver::kRegistration;
    Parsed parsed = ParseFrame(client.input(), limit);
    if (parsed.state == Parsed::State::kPartial) break;
    if (parsed.state == Parsed::State::kMalformed) {
      client.End(parsed.reason);
      break;
    }
    router_.Route(client, parsed.frame);
    client.Consume(parsed.frame.bytes.size());
  }
  client.CompactInput();
}

// Sending the empty replies that are due when one client ends may end another, which then joins the list.
void Server::ReleaseEnded() {
  for (size_t index = 0; index < ended_.size(); ++index) {
    router_.Remove(*ended_[index]);
    LogEnd(*ended_[index]);
  }
  if (!ended_.empty() && listeningPaused_) PauseListening(false);
  for (const Client *client : ended_) clients_.erase(client);
  ended_.clear();
}

void Server::LogEnd(const Client &client) {
  const size_t lost = client.Lost();
  if (!client.reason().empty()) {
    log_.Print("%s cut off: %s, %zu messages lost", client.Label().c_str(), client.reason().c_str(), lost);
  } else if (lost > 0) {
    log_.Print("%s left %zu messages unread", client.Label().c_str(), lost);
  }
}

}  // namespace zor::notifyserver
