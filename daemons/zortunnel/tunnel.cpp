#include "zortunnel/tunnel.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <new>

#include "common/socket_address.h"
#include "programs/boards.h"
#include "programs/limits.h"
#include "programs/tcp_listener.h"
#include "zortunnel/credentials.h"
#include "zortunnel/message_server.h"

namespace zor::tunnel {
namespace {

using State = Connection::State;
using limits::zortunnel::kEndTime;
using limits::zortunnel::kFirstPause;
using limits::zortunnel::kMostPause;

constexpr int kNewcomersPerTurn = 16;

}  // namespace

bool Tunnel::Watch() {
  return poll_.valid() && poll_.Add(signals_.fd(), EPOLLIN, &signals_) &&
         poll_.Add(listener_.get(), EPOLLIN, &listener_);
}

void Tunnel::Run() {
  while (running_) {
    const auto events = poll_.Wait(watchdog_.TimeoutMs(TimeoutMs()));
    const bool wasBusy = std::exchange(busy_, false);
    for (const epoll_event &event : events) {
      if (event.data.ptr == &signals_) {
        TakeSignal();
      } else if (event.data.ptr == &listener_) {
        Accept();
      } else {
        Advance(*static_cast<Connection *>(event.data.ptr));
      }
    }
    if (wasBusy) {
      for (Connection &connection : connections_) Advance(connection);
    }
    CheckDeadlines();
    Sweep();
    watchdog_.Feed();
  }
}

// Connections go on with the credentials that they have begun with.
void Tunnel::TakeSignal() {
  const auto request = signals_.Take();
  if (request == daemon::ServerSignals::Request::kStop) running_ = false;
  if (request != daemon::ServerSignals::Request::kHandOver) return;
  daemon::TellReloading();
  if (tls::ContextPtr fresh = LoadCredentials(settings_, log_)) {
    credentials_ = std::move(fresh);
    log_.Print("certificates read again");
  } else {
    log_.Print("certificates not read again: those from before stay in use");
  }
  daemon::TellReady();
}

void Tunnel::Accept() {
  for (int accepted = 0; accepted < kNewcomersPerTurn; ++accepted) {
    sockaddr_in from = {};
    socklen_t size = sizeof from;
    UniqueFd socket(::accept4(listener_.get(), Generic(&from), &size, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (socket.valid()) {
      try {
        Admit(std::move(socket), from);
      } catch (const std::bad_alloc &) {
        log_.Print("connection refused: no memory");
      }
    } else if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
      log_.PrintErrno("no connection accepted");
      return PauseListening(kFirstPause);
    } else if (errno != ECONNABORTED && errno != EINTR) {
      return;
    }
  }
}

void Tunnel::Admit(UniqueFd socket, const sockaddr_in &from) {
  if (connections_.size() >= settings_.maxConnections) {
    return log_.PrintOf({static_cast<uid_t>(-1), from.sin_addr.s_addr}, "%s refused: there are %zu connections",
                        daemon::TextOf(from).c_str(), connections_.size());
  }
  daemon::SetUpBoard(socket.get(), settings_.silence);
  if (settings_.isGateway) {
    MakeRoomForHandshake();
    return Begin(std::move(socket), UniqueFd(), from, State::kHandshake);
  }
  UniqueFd other(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!other.valid() || (!Connect(other.get(), settings_.gateway) && errno != EINPROGRESS)) {
    return log_.PrintErrno("gateway %s: cannot connect", daemon::TextOf(settings_.gateway).c_str());
  }
  daemon::SetUpBoard(other.get(), settings_.silence);
  Begin(std::move(other), std::move(socket), settings_.gateway, State::kConnecting);
}

void Tunnel::Begin(UniqueFd other, UniqueFd plain, const sockaddr_in &address, State state) {
  tls::SslPtr ssl(SSL_new(credentials_.get()));
  if (ssl == nullptr || SSL_set_fd(ssl.get(), other.get()) != 1) throw std::bad_alloc();
  if (settings_.isGateway) {
    SSL_set_accept_state(ssl.get());
  } else {
    SSL_set_connect_state(ssl.get());
  }
  Connection &connection =
      connections_.emplace_back(std::move(other), std::move(plain), std::move(ssl), address, state);
  connection.deadline = Clock::now() + settings_.handshakeTime;
  if (!WatchSocket(connection.other(), connection)) connection.End(std::strerror(errno));
}

void Tunnel::MakeRoomForHandshake() {
  std::map<in_addr_t, std::size_t> byAddress;
  std::size_t unfinished = 0;
  for (const Connection &each : connections_) {
    if (each.state() != State::kHandshake) continue;
    ++unfinished;
    ++byAddress[each.address().sin_addr.s_addr];
  }
  if (unfinished < settings_.maxHandshakes) return;
  const auto most = std::ranges::max_element(byAddress, {}, [](const auto &entry) { return entry.second; });
  const auto oldest = std::ranges::find_if(connections_, [&](const Connection &each) {
    return each.state() == State::kHandshake && each.address().sin_addr.s_addr == most->first;
  });
  oldest->End("too many unfinished handshakes");
}

bool Tunnel::WatchSocket(int socket, Connection &connection) {
  return poll_.Add(socket, EPOLLIN | EPOLLOUT | EPOLLRDHUP | static_cast<uint32_t>(EPOLLET), &connection);
}

void Tunnel::Advance(Connection &connection) {
  try {
    const bool isNew = connection.state() == State::kConnecting || connection.state() == State::kHandshake;
    if (isNew && connection.Establish()) Established(connection);
    if (connection.Move(kEndTime)) busy_ = true;
  } catch (const std::bad_alloc &) {
    connection.End("no memory");
  }
}

void Tunnel::Established(Connection &connection) {
  if (settings_.isGateway) {
    if (!HasRoomFor(connection)) return;
    ProbeOthersOf(connection);
    UniqueFd plain = ConnectToMessageServer(settings_.boards, connection.name(), connection.address());
    if (!plain.valid()) {
      return connection.End(std::string("the message server cannot be reached: ") + std::strerror(errno));
    }
    connection.Open(std::move(plain));
  } else {
    connection.Open();
  }
  if (!WatchSocket(connection.plain(), connection)) return connection.End(std::strerror(errno));
  if (verbose_) log_.PrintOf(connection.holder(), "%s connected", connection.Label().c_str());
}

bool Tunnel::HasRoomFor(Connection &board) {
  const auto same = static_cast<std::size_t>(std::ranges::count_if(connections_, [&](const Connection &each) {
    return each.state() == State::kOpen && each.name() == board.name();
  }));
  if (same < settings_.boardConnections) return true;
  board.End("this board has " + std::to_string(same) + " connections");
  return false;
}

// A board that has lost its connections and returns: the kernel is to find out soon which of them are dead.
void Tunnel::ProbeOthersOf(const Connection &board) {
  for (Connection &each : connections_) {
    if (&each == &board || each.state() != State::kOpen || each.name() != board.name()) continue;
    if (daemon::IsSilent(each.other())) {
      each.End("its board has returned by another connection");
    } else {
      daemon::Probe(each.other());
    }
  }
}

int Tunnel::TimeoutMs() const {
  if (busy_) return 0;
  std::optional<Clock::time_point> first = listenAgain_;
  for (const Connection &each : connections_) {
    if (each.deadline && (!first || *each.deadline < *first)) first = each.deadline;
  }
  if (!first) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*first - Clock::now());
  return static_cast<int>(std::clamp<long long>(left.count(), 0, 1000000));
}

void Tunnel::CheckDeadlines() {
  const auto now = Clock::now();
  if (listenAgain_ && *listenAgain_ <= now) Listen(true);
  for (Connection &each : connections_) {
    if (!each.deadline || *each.deadline > now) continue;
    each.End(each.state() == State::kOpen ? "" : "no handshake in time");
  }
}

void Tunnel::Sweep() {
  for (const Connection &each : connections_) {
    if (each.state() == State::kEnded) Report(each);
  }
  std::erase_if(connections_, [](const Connection &each) { return each.state() == State::kEnded; });
}

void Tunnel::Report(const Connection &connection) {
  if (connection.heard()) pause_ = {};
  const bool failed =
      !settings_.isGateway && !connection.heard() && (connection.endedByOther() || !connection.problem().empty());
  if (failed) return Pause(connection);
  if (!connection.problem().empty()) {
    log_.PrintOf(connection.holder(), "%s: %s", connection.Label().c_str(), connection.problem().c_str());
  } else if (verbose_) {
    log_.PrintOf(connection.holder(), "%s disconnected", connection.Label().c_str());
  }
}

// Daemons connect again at once and for ever; the gateway is not to be asked as often.
void Tunnel::Pause(const Connection &connection) {
  if (listenAgain_) return;  // another one has failed in the same way
  pause_ = std::clamp<std::chrono::milliseconds>(2 * pause_, kFirstPause, kMostPause);
  const char *why =
      connection.problem().empty() ? "the other side has ended the connection" : connection.problem().c_str();
  log_.Print("gateway %s: %s; next attempt in %.1f s", daemon::TextOf(settings_.gateway).c_str(), why,
             static_cast<double>(pause_.count()) / 1000);
  PauseListening(pause_);
}

void Tunnel::PauseListening(std::chrono::milliseconds time) {
  listenAgain_ = Clock::now() + time;
  Listen(false);
}

void Tunnel::Listen(bool on) {
  if (on) listenAgain_.reset();
  poll_.Change(listener_.get(), on ? static_cast<uint32_t>(EPOLLIN) : 0, &listener_);
}

}  // namespace zor::tunnel
