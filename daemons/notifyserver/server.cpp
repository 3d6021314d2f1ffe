#include "notifyserver/server.h"

#include <sys/socket.h>
#include <zor/notify_wire.h>
#include <zor/paths.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "programs/limits.h"
#include "programs/paths.h"
#include "programs/peer.h"

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
  journal_ = daemon::Journal::Create(log_.program(), {limits_.maxClients, limits_.memoryBytes, scratch_.size()});
  if (journal_ == nullptr) {
    log_.PrintErrno("cannot start");
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
  const auto ready = poll_.Wait(watchdog_.TimeoutMs(TimeoutMs()));
  if (listeningPaused_ && ready.empty()) PauseListening(false);
  HandleEvents(ready);
  if (registrationCheck_ <= Client::Clock::now()) EndUnregistered();
  ReleaseEnded();
  while (accounts_.exceeded()) {
    EndLargest();
    ReleaseEnded();
  }
  journal_->Commit();
  watchdog_.Feed();
  return !stopped_;
}

// Ends early when too much memory is in use: a client's memory is released after the events, and what is still ready
// is reported again.
void Server::HandleEvents(std::span<const epoll_event> events) {
  for (const epoll_event &event : events) {
    if (event.data.ptr == &stop_) {
      stopped_ = stop_.Take();
    } else if (event.data.ptr == &listener_) {
      Accept();
    } else {
      Serve(*static_cast<Client *>(event.data.ptr), event.events);
    }
    if (stopped_ || accounts_.exceeded()) return;
  }
}

int Server::TimeoutMs() const {
  const int pause = listeningPaused_ ? kPauseMs : -1;
  if (registrationCheck_ == Client::Clock::time_point::max()) return pause;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(registrationCheck_ - Client::Clock::now()).count();
  return static_cast<int>(std::clamp<int64_t>(left, 0, pause < 0 ? INT32_MAX : pause));
}

void Server::Accept() {
  UniqueFd socket(::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!socket.valid()) {
    if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return;
    log_.PrintErrno("cannot accept a connection");
    PauseListening(true);
    return;
  }
  try {
    Admit(std::move(socket));
  } catch (const std::bad_alloc &) {
    log_.Print("connection refused: no memory");
  }
}

void Server::Admit(UniqueFd socket) {
  const ucred peer = daemon::PeerOf(socket.get());
  if (!HasRoomFor({peer.uid, peer.pid})) {
    log_.PrintOf({peer.uid, peer.pid}, "connection refused: user %u has %zu connections (pid %d), all together %zu",
                 peer.uid, accounts_.ClientsOf(peer.uid), peer.pid, accounts_.clients());
    return;
  }
  ended_.reserve(clients_.size() + 1);
  auto client =
      std::make_unique<Client>(std::move(socket), peer, poll_, ended_, accounts_, *journal_, ++lastId_, limits_);
  Client *const key = client.get();
  if (!clients_.emplace(key, std::move(client)).first->second->Watch()) {
    log_.PrintErrno("%s refused", key->Label().c_str());
    clients_.erase(key);
    return;
  }
  registrationCheck_ = std::min(registrationCheck_, key->connectedAt() + limits_.registration);
}

bool Server::HasRoomFor(const daemon::Holder &newcomer) {
  if (accounts_.MayConnect(newcomer.user)) return true;
  const auto giver = accounts_.GiverTo(newcomer);
  if (!giver) return false;
  Client *newest = nullptr;
  for (const auto &[key, client] : clients_) {
    if (client->ended() || client->holder() != *giver) continue;
    if (newest == nullptr || client->connectedAt() > newest->connectedAt()) newest = client.get();
  }
  if (newest == nullptr) return false;  // a connection of it has ended in this turn
  newest->End("its process has the most connections, and there is no room for another's");
  return true;
}

// Without free descriptors the listening socket stays readable, and the loop would spin on it.
void Server::PauseListening(bool on) {
  if (poll_.Change(listener_.fd(), on ? 0u : uint32_t{EPOLLIN}, &listener_)) listeningPaused_ = on;
}

// What a client sends must not end the others: without memory for it, only this client ends.
void Server::Serve(Client &client, uint32_t events) {
  try {
    if (!client.ended() && (events & EPOLLOUT) != 0) client.Flush();
    if (!client.ended() && (events & ~EPOLLOUT) != 0) ReadFrames(client);
  } catch (const std::bad_alloc &) {
    client.End("no memory for what it sent");
  }
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

void Server::EndUnregistered() {
  const Client::Clock::time_point latest = Client::Clock::now() - limits_.registration;
  registrationCheck_ = Client::Clock::time_point::max();
  for (const auto &[key, client] : clients_) {
    if (!client->mustRegister() || client->ended()) continue;
    if (client->connectedAt() <= latest) {
      client->End("it did not register in time");
    } else {
      registrationCheck_ = std::min(registrationCheck_, client->connectedAt() + limits_.registration);
    }
  }
}

// When any user is over its share, the one who holds most is too.
void Server::EndLargest() {
  const auto user = accounts_.LargestUser();
  Client *largest = nullptr;
  for (const auto &[key, client] : clients_) {
    if (client->peer().uid == user && (largest == nullptr || client->held() > largest->held())) largest = client.get();
  }
  if (largest == nullptr) return;
  largest->End(accounts_.IsOver(*user) ? "it holds most of its user's memory, which exceeds user_bytes"
                                       : "it holds most of the memory, which exceeds memory_bytes");
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
  if (*client.reason() != '\0') {
    log_.PrintOf(client.holder(), "%s cut off: %s, %zu messages lost", client.Label().c_str(), client.reason(), lost);
  } else if (lost > 0) {
    log_.PrintOf(client.holder(), "%s left %zu messages unread", client.Label().c_str(), lost);
  }
}

}  // namespace zor::notifyserver
