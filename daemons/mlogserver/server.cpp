#include "mlogserver/server.h"

#include <poll.h>
#include <zor/paths.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <new>
#include <string_view>

#include "common/socket_address.h"
#include "common/unique_fd.h"
#include "programs/paths.h"
#include "programs/service_manager.h"

namespace zor::mlogserver {
namespace {

constexpr int kBatch = 256;

// The path of a sender; empty if its address is not a path.
std::string PathOf(const sockaddr_un &address, socklen_t length) {
  constexpr size_t kBefore = offsetof(sockaddr_un, sun_path);
  if (length <= kBefore) return {};
  const size_t room = std::min(size_t{length} - kBefore, sizeof address.sun_path);
  return {address.sun_path, ::strnlen(address.sun_path, room)};
}

// The text of a field; nothing if it is unterminated, or empty and may not be.
std::optional<std::string> TextOf(const char (&field)[ZOR_MLOG_STAT_TEXT_SIZE], bool mayBeEmpty) {
  const size_t length = ::strnlen(field, sizeof field);
  if (length == sizeof field || (length == 0 && !mayBeEmpty)) return std::nullopt;
  return std::string(field, length);
}

std::optional<ZOR_MLOG_STAT> StatOf(const ZOR_MLOG_MSG &msg) {
  ZOR_MLOG_STAT stat;
  if (msg.length != sizeof stat) return std::nullopt;
  std::memcpy(&stat, msg.data, sizeof stat);
  return stat;
}

}  // namespace

Server::Server(int socket, CircularLog &log, StatTable &stats, daemon::ProblemLog &problems)
    : socket_(socket),
      log_(log),
      stats_(stats),
      problems_(problems),
      clientDirectory_(daemon::FixedPath(ZOR_PATH_MLOG_DIR)) {}

daemon::ExitCode Server::Run(daemon::StopSignal &stop) {
  daemon::Watchdog watchdog;
  std::array<pollfd, 2> entries = {{{socket_, POLLIN, 0}, {stop.fd(), POLLIN, 0}}};
  do {
    if (::poll(entries.data(), entries.size(), watchdog.TimeoutMs(-1)) < 0 && errno != EINTR && errno != ENOMEM) {
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
  ssize_t count;
  do {
    datagram.senderLength = sizeof datagram.sender;
    count = ::recvfrom(socket_, &datagram.msg, sizeof datagram.msg, MSG_DONTWAIT | MSG_TRUNC, Generic(&datagram.sender),
                       &datagram.senderLength);
  } while (count < 0 && errno == EINTR);
  if (count < 0 && errno != EAGAIN) problems_.PrintErrno("cannot receive");
  datagram.size = count < 0 ? 0 : static_cast<size_t>(count);
  return count >= 0;
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
  if (taken > 0 && !log_.Flush()) problems_.PrintErrno("cannot write the log file");
}

void Server::Handle(const Datagram &datagram) {
  const ZOR_MLOG_MSG &msg = datagram.msg;
  const bool isWhole = datagram.size >= ZOR_MLOG_HEAD_SIZE && datagram.size <= sizeof msg &&
                       datagram.size - ZOR_MLOG_HEAD_SIZE == msg.length;
  bool handled = false;
  if (isWhole) {
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
  problems_.Print("malformed datagram of %zu bytes from \"%s\"", datagram.size,
                  PathOf(datagram.sender, datagram.senderLength).c_str());
}

bool Server::HandleLine(const Datagram &datagram) {
  const std::string_view line(datagram.msg.data, ::strnlen(datagram.msg.data, datagram.msg.length));
  if (line.empty()) return false;
  if (!log_.Append(line)) problems_.Print("line dropped: cannot write the log file");
  return true;
}

bool Server::HandleSetStat(const Datagram &datagram) {
  const std::optional<ZOR_MLOG_STAT> stat = StatOf(datagram.msg);
  if (!stat) return false;
  const std::optional<std::string> name = TextOf(stat->name, false);
  const std::optional<std::string> value = TextOf(stat->value, true);
  if (!name || !value) return false;
  if (!stats_.Set(*name, *value)) {
    problems_.Print("too many statistics: \"%s\" from \"%s\" refused", name->c_str(),
                    PathOf(datagram.sender, datagram.senderLength).c_str());
  }
  return true;
}

bool Server::HandleGetStat(const Datagram &datagram) {
  const std::optional<ZOR_MLOG_STAT> request = StatOf(datagram.msg);
  if (!request) return false;
  const std::optional<std::string> name = TextOf(request->name, false);
  if (!name) return false;
  ZOR_MLOG_STAT stat = {};
  name->copy(stat.name, sizeof stat.name - 1);
  stats_.Get(*name).copy(stat.value, sizeof stat.value - 1);
  ZOR_MLOG_MSG reply = {ZOR_MLOG_GET_STAT, sizeof stat, {}};
  std::memcpy(reply.data, &stat, sizeof stat);
  Reply(datagram, reply);
  return true;
}

bool Server::HandlePowerOff(const Datagram &datagram) {
  if (datagram.msg.length != 0) return false;
  // The reply is sent even if saving fails: power goes off all the same, and waiting would only delay it.
  Save();
  Reply(datagram, {ZOR_MLOG_POWER_OFF, 0, {}});
  return true;
}

ssize_t Server::SendTo(int socket, const Datagram &request, const ZOR_MLOG_MSG &reply) {
  return ::sendto(socket, &reply, ZOR_MLOG_HEAD_SIZE + reply.length, MSG_DONTWAIT | MSG_NOSIGNAL,
                  Generic(&request.sender), request.senderLength);
}

void Server::Reply(const Datagram &request, const ZOR_MLOG_MSG &reply) {
  const std::string path = PathOf(request.sender, request.senderLength);
  const bool isClient = path.starts_with(clientDirectory_) && path.size() > clientDirectory_.size() &&
                        path.find('/', clientDirectory_.size()) == std::string::npos;
  if (!isClient) {
    problems_.Print("no reply to \"%s\": it is outside " ZOR_PATH_MLOG_DIR, path.c_str());
    return;
  }
  ssize_t sent = SendTo(socket_, request, reply);
  // Replies that a client leaves unread use up the send buffer of this socket, for all clients alike; a socket for this
  // one reply has a buffer of its own.
  if (sent < 0 && errno == EAGAIN) {
    const UniqueFd own(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sent = SendTo(own.get(), request, reply);
  }
  // A client that disconnected meanwhile has given up waiting, which is normal.
  const bool isGone = sent < 0 && (errno == ECONNREFUSED || errno == ENOENT);
  if (sent < 0 && !isGone) problems_.PrintErrno("reply to \"%s\" dropped", path.c_str());
}

void Server::Save() {
  if (!log_.Save()) problems_.PrintErrno("cannot save the log file");
}

}  // namespace zor::mlogserver
