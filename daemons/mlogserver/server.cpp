#include "mlogserver/server.h"

#include <poll.h>
#include <sys/un.h>
#include <unistd.h>
#include <zor/paths.h>

#include <array>
#include <cerrno>
#include <new>
#include <optional>

#include "common/socket_address.h"
#include "common/unique_fd.h"
#include "mlogserver/client_socket.h"
#include "mlogserver/log_line.h"
#include "programs/paths.h"
#include "programs/peer.h"
#include "programs/service_manager.h"

namespace zor::mlogserver {
namespace {

constexpr int kBatch = 256;

// So that one user's mistakes leave room in the log for lines about others.
daemon::Holder HolderOf(const Sender &sender) {
  return {sender.user, sender.process};
}

}  // namespace

Server::Server(int socket, const Rules &rules, CircularLog &log, StatTable &stats,
               const daemon::LaidDownCapability &anySocket, daemon::ProblemLog &problems)
    : socket_(socket),
      namesSenders_(rules.namesSenders),
      rates_(rules.userLines, rules.userRate),
      log_(log),
      stats_(stats),
      anySocket_(anySocket),
      problems_(problems),
      clientDirectory_(daemon::FixedPath(ZOR_PATH_MLOG_DIR)) {
  constexpr int kOn = 1;
  if (::setsockopt(socket_, SOL_SOCKET, SO_PASSCRED, &kOn, sizeof kOn) != 0) {
    problems_.PrintErrno("senders are unknown, and get no replies");
  }
  if (!ClientSocket::IsSupported()) problems_.PrintErrno("no replies can be sent: no /proc");
}

daemon::ExitCode Server::Run(daemon::StopSignal &stop) {
  daemon::Watchdog watchdog;
  std::array<pollfd, 2> entries = {{{socket_, POLLIN, 0}, {stop.fd(), POLLIN, 0}}};
  do {
    const int timeoutMs = watchdog.TimeoutMs(rates_.TimeoutMs(LineRates::Clock::now()));
    if (::poll(entries.data(), entries.size(), timeoutMs) < 0 && errno != EINTR && errno != ENOMEM) {
      problems_.PrintErrno("cannot wait for datagrams");
      return daemon::kExitFailure;
    }
    TakeBatch();
    watchdog.Feed();
  } while (!stop.Take());
  TakeBatch();
  Save();
  return daemon::kExitOk;
}

bool Server::Receive(Datagram &datagram) {
  // Room for the credentials alone: descriptors that a sender attaches are closed by the kernel.
  alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(sizeof(ucred))> control;
  iovec bytes = {&datagram.msg, sizeof datagram.msg};
  msghdr message = {};
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  ssize_t count;
  do {
    message.msg_name = &datagram.address;
    message.msg_namelen = sizeof datagram.address;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    count = ::recvmsg(socket_, &message, MSG_DONTWAIT | MSG_TRUNC);
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    if (errno != EAGAIN) problems_.PrintErrno("cannot receive");
    return false;
  }
  datagram.size = static_cast<size_t>(count);
  datagram.addressLength = message.msg_namelen;
  datagram.sender = SenderOf(message);
  return true;
}

void Server::TakeBatch() {
  Datagram datagram;
  int taken = 0;
  while (taken < kBatch && Receive(datagram)) {
    ++taken;
    try {
      Handle(datagram);
    } catch (const std::bad_alloc &) {
      problems_.Print("datagram of %zu bytes dropped: no memory", datagram.size);
    }
  }
  ReportLeftOut(false);
  if (!log_.Flush()) problems_.PrintErrno("cannot write the log file");
}

void Server::Handle(const Datagram &datagram) {
  const ZOR_MLOG_MSG &msg = datagram.msg;
  bool handled = false;
  if (IsWhole(msg, datagram.size)) {
    switch (msg.type) {
      case ZOR_MLOG_LINE:
        handled = HandleLine(datagram);
        break;
      case ZOR_MLOG_SET_STAT:
        handled = HandleSetStat(datagram);
        break;
      case ZOR_MLOG_GET_STAT:
        handled = HandleGetStat(datagram);
        break;
      case ZOR_MLOG_POWER_OFF:
        handled = HandlePowerOff(datagram);
        break;
      default:
        break;
    }
  }
  if (handled) return;
  problems_.PrintOf(HolderOf(datagram.sender), "malformed datagram of %zu bytes from \"%s\", %s", datagram.size,
                    PathOf(datagram).c_str(), NameOf(datagram.sender).c_str());
}

bool Server::HandleLine(const Datagram &datagram) {
  const std::optional<std::string_view> line = LineOf(datagram.msg);
  if (!line) return false;
  if (rates_.Take(datagram.sender.user, LineRates::Clock::now())) Append(datagram.sender, *line);
  return true;
}

bool Server::HandleSetStat(const Datagram &datagram) {
  const std::optional<Statistic> statistic = StatisticOf(datagram.msg);
  if (!statistic) return false;
  const uid_t user = datagram.sender.user;
  const char *refusal = stats_.Set(statistic->name, statistic->value, user, daemon::IsOperator(user));
  if (refusal != nullptr) {
    problems_.PrintOf(HolderOf(datagram.sender), "statistic \"%s\" from \"%s\", %s, refused: %s",
                      statistic->name.c_str(), PathOf(datagram).c_str(), NameOf(datagram.sender).c_str(), refusal);
  }
  return true;
}

bool Server::HandleGetStat(const Datagram &datagram) {
  const std::optional<std::string> name = StatisticNameOf(datagram.msg);
  if (!name) return false;
  Reply(datagram, StatisticReply({*name, stats_.Get(*name)}));
  return true;
}

bool Server::HandlePowerOff(const Datagram &datagram) {
  if (datagram.msg.length != 0) return false;
  // The reply is sent even if saving fails: power goes off all the same, and waiting would only delay it.
  Save();
  Reply(datagram, {ZOR_MLOG_POWER_OFF, 0, {}});
  return true;
}

void Server::Append(const Sender &sender, std::string_view text) {
  if (!log_.Append(namesSenders_ ? LogLine(sender, text) : LogLine(text))) {
    problems_.Print("line dropped: cannot write the log file");
  }
}

void Server::ReportLeftOut(bool all) {
  const Sender self = {::getpid(), ::getuid()};
  try {
    rates_.Report(LineRates::Clock::now(), all, [&](uid_t user, uint64_t lines) {
      const std::string name = NameOf(user);
      Append(self, OwnText("%llu lines of %s left out", static_cast<unsigned long long>(lines), name.c_str()));
    });
  } catch (const std::bad_alloc &) {
    problems_.Print("lines left out are not reported yet: no memory");
  }
}

void Server::Reply(const Datagram &request, const ZOR_MLOG_MSG &reply) {
  const std::string path = PathOf(request);
  const ClientSocket client(path, clientDirectory_, request.sender.user);
  if (client.refusal() != nullptr) {
    problems_.PrintOf(HolderOf(request.sender), "no reply to \"%s\", %s: %s", path.c_str(),
                      NameOf(request.sender).c_str(), client.refusal());
  }
  if (!client.valid()) return;
  const sockaddr_un address = client.Address();
  ssize_t sent = SendTo(address, reply, socket_);
  // Replies that a client leaves unread use up the send buffer of this socket, for all clients alike; a socket for this
  // one reply has a buffer of its own.
  if (sent < 0 && errno == EAGAIN) {
    const UniqueFd own(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sent = SendTo(address, reply, own.get());
  }
  // A client that disconnected meanwhile has given up waiting, which is normal.
  if (sent < 0 && errno != ECONNREFUSED) problems_.PrintErrno("reply to \"%s\" dropped", path.c_str());
}

// Sends to a path, or to what a path of this process's descriptors stands for.
ssize_t Server::SendTo(const sockaddr_un &address, const ZOR_MLOG_MSG &reply, int socket) const {
  return anySocket_.Use([&] {
    return ::sendto(socket, &reply, ZOR_MLOG_HEAD_SIZE + reply.length, MSG_DONTWAIT | MSG_NOSIGNAL, Generic(&address),
                    sizeof address);
  });
}

void Server::Save() {
  ReportLeftOut(true);
  if (!log_.Save()) problems_.PrintErrno("cannot save the log file");
}

}  // namespace zor::mlogserver
