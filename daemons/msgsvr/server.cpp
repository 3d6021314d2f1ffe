#include "msgsvr/server.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "msgsvr/farewell.h"
#include "msgsvr/recorder_store.h"
#include "msgsvr/restoration.h"
#include "programs/boards.h"
#include "programs/journal_store.h"
#include "programs/limits.h"
#include "programs/own_code.h"
#include "programs/peer.h"

namespace zor::msgsvr {
namespace {

constexpr std::chrono::seconds kReportCheck{1};
// For what no event announces while a sender is paused: a reader that reads nothing, and the time that is over.
constexpr std::chrono::milliseconds kPauseCheck{10};

}  // namespace

Server::Server(Bus &bus, daemon::ServerSignals &signals, const ListenersRecord &listeners,
               const daemon::ProgramImage &image)
    : bus_(bus),
      router_(bus),
      watch_(bus),
      signals_(signals),
      local_{listeners.local, Listener::Of::kProcesses},
      tcp_{listeners.tcp, Listener::Of::kBoards},
      tunnel_{listeners.boards, Listener::Of::kTunnel},
      handOver_({bus, newcomers_, pausedSenders_, watch_}, router_.delivery(), listeners, image) {}

void Server::TakeOver(const ServerState &state, daemon::DescriptorSet &descriptors) {
  tookOver_ = true;
  Restoration({bus_, newcomers_, pausedSenders_, watch_}, descriptors).Run(state);
  for (Client &client : bus_.clients) MarkReadable(client);
}

void Server::KeepJournal(const std::vector<daemon::PassedDescriptor> &passed) {
  bus_.WriteRecords();
  const bool stored = daemon::StoreJournal(bus_.journal, passed);
  // Also if it was too busy now: it may have clients' sockets of the server before this one.
  bus_.kept = daemon::HasManager();
  if (bus_.kept && !stored) bus_.log.Print("the journal is not stored: a crash would disconnect all clients");
  for (Client &client : bus_.clients) {
    if (bus_.kept && client.ended) bus_.Unstore(client);
  }
}

void Server::Run() {
  if (!tookOver_) bus_.SweepFiles();
  daemon::ReleaseStartCode();
  while (running_) Turn();
  SayFarewell(bus_, router_.delivery(), signals_);
  for (Client &client : bus_.clients) bus_.End(client);
  bus_.Sweep();
  if (bus_.kept) {
    daemon::RemoveStoredDescriptors(bus_.journal.Name());
    daemon::RemoveStoredDescriptors(kStoredRecorder);
  }
}

bool Server::Watch() {
  spare_.reset(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  return spare_.valid() && bus_.poll.valid() && bus_.poll.Add(signals_.fd(), EPOLLIN, &signals_) && handOver_.valid() &&
         bus_.poll.Add(handOver_.fd(), EPOLLIN, &handOver_) && bus_.poll.Add(watch_.timer(), EPOLLIN, &watch_) &&
         bus_.poll.Add(newcomers_.timer(), EPOLLIN, &newcomers_) && bus_.poll.Add(local_.fd, EPOLLIN, &local_) &&
         (tcp_.fd < 0 || bus_.poll.Add(tcp_.fd, EPOLLIN, &tcp_)) &&
         (tunnel_.fd < 0 || bus_.poll.Add(tunnel_.fd, EPOLLIN, &tunnel_));
}

void Server::Turn() {
  const auto events = bus_.poll.Wait(watchdog_.TimeoutMs(TimeoutMs()));
  bus_.UpdateClock();
  for (const epoll_event &event : events) HandleEvent(event);
  ReadReady();
  router_.delivery().TellUndelivered();
  router_.delivery().FlushCopies();
  ReadDeaf();
  while (bus_.accounts.exceeded()) EndLargest();
  CheckTimers();  // also ends the pauses of clients that have ended
  ready_.RemoveEnded();
  bus_.Sweep();
  bus_.reserve.Refill();
  bus_.WriteRecords();
  bus_.journal.Commit();
  ContinueHandOver([this] { handOver_.EndTurn(); });
  watchdog_.Feed();
}

void Server::HandleEvent(const epoll_event &event) {
  if (event.data.ptr == &signals_) {
    TakeSignal();
  } else if (event.data.ptr == &handOver_) {
    ContinueHandOver([this] { handOver_.Continue(); });
  } else if (event.data.ptr == &watch_) {
    watch_.TakeTimer();
  } else if (event.data.ptr == &newcomers_) {
    EndUnregistered();
  } else if (event.data.ptr == &local_ || event.data.ptr == &tcp_ || event.data.ptr == &tunnel_) {
    Accept(*static_cast<const Listener *>(event.data.ptr));
  } else {
    Client &client = *static_cast<Client *>(event.data.ptr);
    if ((event.events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0) client.hungUp = true;
    if ((event.events & EPOLLOUT) != 0) router_.delivery().FlushQueue(client);
    if ((event.events & ~static_cast<uint32_t>(EPOLLOUT)) != 0) MarkReadable(client);
  }
}

template <typename Step>
void Server::ContinueHandOver(Step step) {
  if (!bus_.Try(step)) bus_.log.Print("no memory to hand over");
}

void Server::TakeSignal() {
  const auto request = signals_.Take();
  if (request == daemon::ServerSignals::Request::kStop) running_ = false;
  if (request == daemon::ServerSignals::Request::kHandOver) handOver_.Request();
}

void Server::Accept(const Listener &listener) {
  for (int accepted = 0; accepted < kNewcomersPerTurn; ++accepted) {
    UniqueFd socket(::accept4(listener.fd, nullptr, nullptr, SOCK_CLOEXEC));
    if (socket.valid()) {
      if (!bus_.Try([&] { Admit(std::move(socket), listener.peers); })) bus_.log.Print("connection refused: no memory");
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

Peer Server::PeerOf(int socket, Listener::Of kind) {
  if (kind != Listener::Of::kProcesses) return {static_cast<uid_t>(-1), -1, false, kind == Listener::Of::kTunnel};
  const ucred peer = daemon::PeerOf(socket);
  return {peer.uid, peer.pid, true};
}

void Server::Admit(UniqueFd socket, Listener::Of kind) {
  const Peer peer = PeerOf(socket.get(), kind);
  const daemon::Holder holder = HolderOf(socket.get(), peer);
  if (!HasRoomFor(holder)) {
    bus_.log.PrintOf(holder, "connection refused: user %u has %zu connections (pid %d), all together %zu", peer.uid,
                     bus_.accounts.ClientsOf(peer.uid), peer.pid, bus_.accounts.clients());
    return;
  }
  if (kind == Listener::Of::kBoards) daemon::SetUpBoard(socket.get(), bus_.settings.boardSilence);
  newcomers_.Prune([this](uint64_t id) {
    const Client *client = bus_.Find(id);
    return client != nullptr && !client->registered();
  });
  newcomers_.Add(bus_.lastId + 1);  // does nothing for an id that is not used
  // The process at the other end of the tunnel's connections is the tunnel.
  access::Admission admission(bus_.guard, peer.throughTunnel ? access::Identity() : access::ReadIdentity(socket.get()));
  Client &client = bus_.clients.emplace_back(std::move(socket), peer, ++bus_.lastId, bus_.journal,
                                             bus_.settings.queueBytes, bus_.accounts);
  if (!client.slot.valid() || !bus_.Try([&] { client.Admit(std::move(admission), bus_.guard); })) {
    bus_.log.Print("connection refused: no memory");
    bus_.clients.pop_back();
    return;
  }
  bus_.Changed(client);
  bus_.Changed();
  if (!bus_.poll.Add(client.socket.get(), kClientEvents, &client)) return bus_.CutOff(client, std::strerror(errno));
  // One that is not stored is served until the server crashes.
  if (bus_.kept) bus_.Try([&] { daemon::StoreDescriptor(StoredName(client.id), client.socket.get()); });
}

// One process that opens many connections must not keep others from connecting.
bool Server::HasRoomFor(const daemon::Holder &newcomer) {
  if (bus_.accounts.MayConnect(newcomer.user)) return true;
  const auto giver = bus_.accounts.GiverTo(newcomer);
  if (!giver) return false;
  const auto newest = std::find_if(bus_.clients.rbegin(), bus_.clients.rend(), [&](const Client &client) {
    return !client.ended && client.charge.holder() == *giver;
  });
  bus_.CutOff(*newest, "its process has the most connections, and there is no room for another's");
  return true;
}

void Server::MarkReadable(Client &client) {
  client.readable = true;
  if (!client.paused && !client.ended) ready_.Add(client);
}

void Server::ReadReady() {
  ready_.ForEach([this](Client &client) {
    if (!client.ended && !client.paused) Serve(client);
  });
}

// What a client sends must not end the others: without memory for it, only this client ends.
void Server::Serve(Client &client) {
  if (!bus_.Try([&] { input_.Read(client); })) bus_.CutOff(client, "no memory for what it sent");
  client.Settle();
  if (Client *slow = router_.delivery().TakeCongested(); slow != nullptr && slow != &client) {
    bus_.Try([&] { pausedSenders_.Add(client, *slow, Clock::now()); });
  }
  if (client.readable) MarkReadable(client);
}

// No event announces them again.
void Server::ReadDeaf() {
  if (!bus_.TakeDeaf()) return;
  for (Client &client : bus_.clients) {
    if (client.deaf) MarkReadable(client);
  }
}

int Server::TimeoutMs() const {
  if (!ready_.empty()) return 0;
  if (!pausedSenders_.empty()) return static_cast<int>(kPauseCheck.count());
  if (bus_.settings.reportSeconds.empty()) return -1;
  return static_cast<int>(std::chrono::milliseconds(kReportCheck).count());
}

void Server::CheckTimers() {
  if (!bus_.Try([&] { watch_.Tick(); })) bus_.log.Print("no memory to look for deadlocks and storms");
  if (pausedSenders_.empty() && bus_.settings.reportSeconds.empty()) return;
  const Clock::time_point now = Clock::now();
  pausedSenders_.Release(now, [this](Client &sender) {
    if (sender.readable) MarkReadable(sender);
  });
  if (!bus_.settings.reportSeconds.empty() && now - reportsChecked_ >= kReportCheck) CheckReports(now);
}

// Connections that never register would keep others from connecting.
void Server::EndUnregistered() {
  newcomers_.TakeTimer();
  while (const auto id = newcomers_.TakeDue()) {
    Client *client = bus_.Find(*id);
    if (client != nullptr && !client->registered()) bus_.CutOff(*client, "it has not registered in time");
  }
}

// When any user is over its share, the one who holds most is too.
void Server::EndLargest() {
  const uid_t user = *bus_.accounts.LargestUser();
  Client *largest = nullptr;
  for (Client &client : bus_.clients) {
    if (client.ended || client.peer.uid != user) continue;
    if (largest == nullptr || client.charge.bytes() > largest->charge.bytes()) largest = &client;
  }
  if (largest == nullptr) return;
  bus_.CutOff(*largest, bus_.accounts.IsOver(user) ? "it holds most of its user's memory, which exceeds user_bytes"
                                                   : "it holds most of the memory, which exceeds memory_bytes");
}

void Server::CheckReports(Clock::time_point now) {
  reportsChecked_ = now;
  for (Client &client : bus_.clients) {
    if (client.ended || client.reportMissed || client.reportPeriod.count() == 0) continue;
    if (now - client.lastReport <= limits::msgsvr::kMissedReports * std::chrono::seconds(client.reportPeriod)) continue;
    client.reportMissed = true;
    bus_.log.PrintOf(client.charge.holder(), "%s: no report for %d periods of %lld s", client.Label().c_str(),
                     limits::msgsvr::kMissedReports, static_cast<long long>(client.reportPeriod.count()));
  }
}

}  // namespace zor::msgsvr
