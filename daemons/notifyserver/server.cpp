#include "notifyserver/server.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "programs/peer.h"

namespace zor::notifyserver {
namespace {

// How long a server without free descriptors waits before it tries to accept again.
constexpr int kPauseMs = 1000;

// The longest frame beside the memory of all: what exceeds that is cut off only after the turn.
size_t JournalBytes(const Limits &limits) {
  return limits.memoryBytes + limits.queueBytes;
}

}  // namespace

size_t MostTakenOver(const Limits &limits) {
  constexpr size_t kEnding = 64;  // clients that have made room for others in one turn
  return limits.maxClients + kEnding;
}

std::unique_ptr<daemon::Journal> NewJournal(const Limits &limits, daemon::ProblemLog &log) {
  constexpr size_t kBuffer = 65536;
  auto journal = daemon::Journal::Create(log.program(), {MostTakenOver(limits), JournalBytes(limits), kBuffer});
  if (journal == nullptr) log.PrintErrno("cannot start");
  return journal;
}

Server::Server(const Limits &limits, access::Rules rules, daemon::Journal &journal, const daemon::ProgramImage &image,
               daemon::ProblemLog &log, bool verbose)
    : limits_(limits),
      log_(log),
      accounts_({limits.maxClients, limits.userClients, limits.userBytes, limits.memoryBytes}),
      guard_(std::move(rules)),
      journal_(journal),
      shared_{poll_, journal, accounts_, guard_, limits_, {}, {}, {}},
      router_(limits, guard_, log, verbose),
      intake_(shared_, router_, log),
      succession_(image, log) {}

void Server::Run() {
  while (Turn()) {
  }
  SayFarewell();
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
  journal_.Commit();
  if (handOverWanted_ || (router_.control().owed() && !succession_.underWay())) BeginHandOver();
  if (succession_.underWay()) ContinueHandOver();
  FlushAll(shared_);
  watchdog_.Feed();
  return !stopped_;
}

// Ends early when too much memory is in use: a client's memory is released after the events, and what is still ready
// is reported again.
void Server::HandleEvents(std::span<const epoll_event> events) {
  for (const epoll_event &event : events) {
    if (event.data.ptr == &signals_) {
      TakeSignals();
    } else if (event.data.ptr == &listener_) {
      Accept();
    } else if (event.data.ptr != &succession_) {
      Serve(*static_cast<Client *>(event.data.ptr), event.events);
    }
    if (stopped_ || accounts_.exceeded()) return;
  }
}

void Server::TakeSignals() {
  const auto request = signals_.Take();
  stopped_ = request == daemon::ServerSignals::Request::kStop;
  if (request == daemon::ServerSignals::Request::kHandOver) handOverWanted_ = true;
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
  Client &client = Add(std::make_unique<Client>(std::move(socket), peer, ++lastId_, shared_));
  if (!client.Watch()) {
    log_.PrintErrno("%s refused", client.Label().c_str());
    return client.End();
  }
  registrationCheck_ = std::min(registrationCheck_, client.connectedAt() + limits_.registration);
  daemon::StoreDescriptor(client.StoredName(), client.socket());
}

Client &Server::Add(std::unique_ptr<Client> client) {
  shared_.ended.reserve(clients_.size() + 1);
  shared_.unflushed.reserve(clients_.size() + 1);
  Client *const key = client.get();
  return *clients_.emplace(key, std::move(client)).first->second;
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

void Server::Serve(Client &client, uint32_t events) {
  if (!client.ended() && (events & EPOLLOUT) != 0) client.Flush();
  if (!client.ended() && (events & ~EPOLLOUT) != 0) TakeIn(client, &Intake::Read);
}

// What a client sends must not end the others: without memory for it, only this client ends.
void Server::TakeIn(Client &client, void (Intake::*work)(Client &)) {
  try {
    (intake_.*work)(client);
  } catch (const std::bad_alloc &) {
    client.End("no memory for what it sent");
    intake_.Abandon();
  }
  FlushAll(shared_);
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
  std::vector<Client *> &ended = shared_.ended;
  for (size_t index = 0; index < ended.size(); ++index) {
    router_.Remove(*ended[index]);
    FlushAll(shared_);
    LogEnd(*ended[index]);
  }
  if (!ended.empty() && listeningPaused_) PauseListening(false);
  for (const Client *client : ended) Forget(*client);
  ended.clear();
}

// The manager has a duplicate of the socket, so that closing this one would neither end the connection nor the events
// that it causes. Its name in the store makes a text: without memory the duplicate stays until the next server.
void Server::Forget(const Client &client) {
  poll_.Remove(client.socket());
  ::shutdown(client.socket(), SHUT_RDWR);
  try {
    daemon::RemoveStoredDescriptors(client.StoredName());
  } catch (const std::bad_alloc &) {
    log_.Print("%s: its socket stays stored", client.Label().c_str());
  }
  clients_.erase(&client);
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
