#include "msgsvr/server.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "msgsvr/boards.h"
#include "msgsvr/farewell.h"
#include "msgsvr/restoration.h"
#include "programs/limits.h"
#include "programs/peer.h"

namespace zor::msgsvr {
namespace {

constexpr std::chrono::seconds kReportCheck{1};
constexpr std::chrono::milliseconds kPauseCheck{10};
constexpr int kAcceptsPerTurn = 64;  // peers that connect and disconnect in a loop must not starve the clients

Peer PeerOf(int socket, bool local) {
  if (!local) return {false, static_cast<uid_t>(-1), -1};
  const ucred peer = daemon::PeerOf(socket);
  return {true, peer.uid, peer.pid};
}

bool IsZero(std::span<const std::byte> bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](std::byte byte) { return byte == std::byte{0}; });
}

}  // namespace

Server::Server(Bus &bus, daemon::ServerSignals &signals, const ListenersRecord &listeners,
               const daemon::ProgramImage &image)
    : bus_(bus),
      router_(bus),
      watch_(bus),
      signals_(signals),
      local_{listeners.local, true},
      tcp_{listeners.tcp, false},
      handOver_({bus, newcomers_, pausedSenders_, watch_}, router_.delivery(), listeners, image) {}

void Server::TakeOver(const ServerState &state, daemon::DescriptorSet &descriptors) {
  tookOver_ = true;
  Restoration({bus_, newcomers_, pausedSenders_, watch_}, descriptors).Run(state);
  for (Client &client : bus_.clients) MarkReadable(client);
}

void Server::Run() {
  if (!tookOver_) bus_.SweepFiles();
  while (running_) Turn();
  Farewell(bus_, router_.delivery(), signals_).Say(bus_.settings.stopTime);
  for (Client &client : bus_.clients) bus_.End(client);
  bus_.Sweep();
}

bool Server::Watch() {
  spare_.reset(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  return spare_.valid() && bus_.poll.valid() && bus_.poll.Add(signals_.fd(), EPOLLIN, &signals_) && handOver_.valid() &&
         bus_.poll.Add(handOver_.fd(), EPOLLIN, &handOver_) && bus_.poll.Add(watch_.timer(), EPOLLIN, &watch_) &&
         bus_.poll.Add(newcomers_.timer(), EPOLLIN, &newcomers_) && bus_.poll.Add(local_.fd, EPOLLIN, &local_) &&
         (tcp_.fd < 0 || bus_.poll.Add(tcp_.fd, EPOLLIN, &tcp_));
}

void Server::Turn() {
  const auto events = bus_.poll.Wait(watchdog_.TimeoutMs(TimeoutMs()));
  bus_.UpdateClock();
  for (const epoll_event &event : events) HandleEvent(event);
  ReadReady();
  router_.delivery().TellUndelivered();
  router_.delivery().FlushCopies();
  ReadDeaf();
  CheckTimers();
  std::erase_if(ready_, [](const Client *client) { return client->ended; });
  bus_.Sweep();
  handOver_.EndTurn();
  bus_.journal.Commit();
  watchdog_.Feed();
}

void Server::HandleEvent(const epoll_event &event) {
  if (event.data.ptr == &signals_) {
    TakeSignal();
  } else if (event.data.ptr == &handOver_) {
    handOver_.Continue();
  } else if (event.data.ptr == &watch_) {
    watch_.TakeTimer();
  } else if (event.data.ptr == &newcomers_) {
    EndUnregistered();
  } else if (event.data.ptr == &local_ || event.data.ptr == &tcp_) {
    Accept(*static_cast<const Listener *>(event.data.ptr));
  } else {
    Client &client = *static_cast<Client *>(event.data.ptr);
    if ((event.events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0) client.hungUp = true;
    if ((event.events & EPOLLOUT) != 0) router_.delivery().FlushQueue(client);
    if ((event.events & ~static_cast<uint32_t>(EPOLLOUT)) != 0) MarkReadable(client);
  }
}

void Server::TakeSignal() {
  const auto request = signals_.Take();
  if (request == daemon::ServerSignals::Request::kStop) running_ = false;
  if (request == daemon::ServerSignals::Request::kHandOver) handOver_.Request();
}

void Server::Accept(const Listener &listener) {
  for (int accepted = 0; accepted < kAcceptsPerTurn; ++accepted) {
    UniqueFd socket(::accept4(listener.fd, nullptr, nullptr, SOCK_CLOEXEC));
    if (socket.valid()) {
      Admit(std::move(socket), listener.local);
    } else if (errno == EMFILE || errno == ENFILE) {
      return AcceptWithoutDescriptors(listener);
    } else if (errno != ECONNABORTED && errno != EINTR) {
      return;
    }
  }
}

// A connection that stays in the backlog would keep the listener readable and the loop busy.
void Server::AcceptWithoutDescriptors(const Listener &listener) {
  bus_.log.PrintErrno("connection refused");
  spare_.reset();
  UniqueFd(::accept4(listener.fd, nullptr, nullptr, SOCK_CLOEXEC)).reset();
  spare_.reset(::open("/dev/null", O_RDONLY | O_CLOEXEC));
}

void Server::Admit(UniqueFd socket, bool local) {
  if (bus_.clients.size() >= bus_.settings.maxClients) {
    bus_.log.Print("connection refused: %zu clients are connected", bus_.clients.size());
    return;
  }
  if (!local) SetUpBoard(socket.get(), bus_.settings.boardSilence);
  const Peer peer = PeerOf(socket.get(), local);
  Client &client =
      bus_.clients.emplace_back(std::move(socket), peer, ++bus_.lastId, bus_.journal, bus_.settings.queueBytes);
  if (!client.slot.valid()) {
    bus_.log.Print("connection refused: no memory");
    bus_.clients.pop_back();
    return;
  }
  newcomers_.Add(client.id);
  if (!bus_.poll.Add(client.socket.get(), kClientEvents, &client)) bus_.CutOff(client, std::strerror(errno));
}

void Server::MarkReadable(Client &client) {
  client.readable = true;
  if (client.queued || client.paused || client.ended) return;
  client.queued = true;
  ready_.push_back(&client);
}

void Server::ReadReady() {
  std::swap(ready_, reading_);
  for (Client *client : reading_) {
    client->queued = false;
    if (client->ended || client->paused) continue;
    Read(*client);
    if (Client *slow = router_.delivery().TakeCongested(); slow != nullptr && slow != client) {
      pausedSenders_.Add(*client, *slow, Clock::now());
    }
    if (client->readable) MarkReadable(*client);
  }
  reading_.clear();
}

void Server::Read(Client &client) {
  const size_t kept = client.partial.size();
  std::copy(client.partial.begin(), client.partial.end(), buffer_.begin());
  const std::span<std::byte> room = std::span(buffer_).subspan(kept);
  Received received = Receive(client.socket.get(), room);
  if (received.count < 0 && errno == EAGAIN && !client.deaf) {
    client.readable = false;
    return;
  }
  if (received.count <= 0) {
    if (received.count < 0 && (errno == ECONNRESET || errno == ETIMEDOUT)) client.reset = true;
    return bus_.End(client);
  }
  // A short read means that nothing is left, unless a descriptor ended the read or the end of the stream is still
  // pending, which no further event will announce.
  const auto count = static_cast<size_t>(received.count);
  client.readable = count == room.size() || received.descriptor.valid() || client.hungUp || client.deaf;
  if (received.excessive) return bus_.CutOff(client, "it sent more than one descriptor at a time");
  HandleInput(client, std::span(buffer_).first(kept + count), received);
}

void Server::HandleInput(Client &client, std::span<std::byte> bytes, Received &received) {
  bytes = bytes.subspan(HandleHalfDescriptor(client, bytes));
  bytes = bytes.subspan(router_.Route(client, bytes));
  client.partial.clear();
  if (client.ended) return;
  if (received.descriptor.valid()) return HandleDescriptor(client, bytes, std::move(received.descriptor));
  client.partial.assign(bytes.begin(), bytes.end());
}

// The descriptor arrived with the first of its two bytes, because the buffer ended there.
size_t Server::HandleHalfDescriptor(Client &client, std::span<const std::byte> bytes) {
  if (!client.halfDescriptor.valid()) return 0;
  HandleDescriptor(client, bytes.first(2), std::move(client.halfDescriptor));
  return 2;
}

// After the last complete frame there must be the two zero bytes that carry a descriptor, and nothing else.
void Server::HandleDescriptor(Client &client, std::span<const std::byte> rest, UniqueFd descriptor) {
  if (!client.registered() || rest.empty() || rest.size() > 2 || !IsZero(rest)) {
    return bus_.CutOff(client, "it sent a descriptor out of place");
  }
  if (rest.size() == 2) return router_.delivery().PassDescriptor(client, std::move(descriptor));
  client.halfDescriptor = std::move(descriptor);
  client.partial.assign(rest.begin(), rest.end());
}

// No event announces them again.
void Server::ReadDeaf() {
  for (Client *client : bus_.TakeDeaf()) MarkReadable(*client);
}

int Server::TimeoutMs() const {
  if (!ready_.empty()) return 0;
  if (!pausedSenders_.empty()) return static_cast<int>(kPauseCheck.count());
  if (bus_.settings.reportSeconds.empty()) return -1;
  return static_cast<int>(std::chrono::milliseconds(kReportCheck).count());
}

void Server::CheckTimers() {
  watch_.Tick();
  if (pausedSenders_.empty() && bus_.settings.reportSeconds.empty()) return;
  const Clock::time_point now = Clock::now();
  pausedSenders_.Release(now, [this](Client &sender) {
    if (sender.readable) MarkReadable(sender);
  });
  if (!bus_.settings.reportSeconds.empty() && now - reportsChecked_ >= kReportCheck) CheckReports(now);
}

// Connections that never register would keep others from connecting.
void Server::EndUnregistered() {
  for (const uint64_t id : newcomers_.TakeDue()) {
    Client *client = bus_.Find(id);
    if (client != nullptr && !client->registered()) bus_.CutOff(*client, "it has not registered in time");
  }
}

void Server::CheckReports(Clock::time_point now) {
  reportsChecked_ = now;
  for (Client &client : bus_.clients) {
    if (client.ended || client.reportMissed || client.reportPeriod.count() == 0) continue;
    if (now - client.lastReport <= limits::msgsvr::kMissedReports * client.reportPeriod) continue;
    client.reportMissed = true;
    bus_.log.Print("%s: no report for %d periods of %lld s", client.Label().c_str(), limits::msgsvr::kMissedReports,
                   static_cast<long long>(client.reportPeriod.count()));
  }
}

}  // namespace zor::msgsvr
