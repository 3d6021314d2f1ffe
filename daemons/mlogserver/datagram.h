// What a datagram contains. The reader trusts nothing: neither the length field nor that a text ends.
#ifndef MLOGSERVER_DATAGRAM_H
#define MLOGSERVER_DATAGRAM_H

#include <sys/socket.h>
#include <sys/un.h>
#include <zor/mlog_wire.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace zor::mlogserver {

constexpr uid_t kUnknownUser = static_cast<uid_t>(-1);  // which is no user

// The process that sent a datagram, as the kernel reports it.
struct Sender {
  pid_t process = 0;  // 0: unknown, or invisible from here
  uid_t user = kUnknownUser;
};

// The sender in the control part of a received message; unknown without one.
Sender SenderOf(const msghdr &message);

struct Datagram {
  ZOR_MLOG_MSG msg;
  size_t size;  // as sent, which may be more than a message holds
  sockaddr_un address;
  socklen_t addressLength;
  Sender sender;
};

// The path of the sender's socket; empty if its address is not a path.
std::string PathOf(const Datagram &datagram);

// Whether a message of that size on the wire is as long as its head says.
bool IsWhole(const ZOR_MLOG_MSG &msg, size_t size);

// The readers below need a whole message.

// A text line, up to its first NUL; none if it is empty.
std::optional<std::string_view> LineOf(const ZOR_MLOG_MSG &msg);

struct Statistic {
  std::string name;
  std::string value;
};
// A statistic to keep; none if it has no name, or a text without an end.
std::optional<Statistic> StatisticOf(const ZOR_MLOG_MSG &msg);
// The name in a request for a statistic, whose value does not matter.
std::optional<std::string> StatisticNameOf(const ZOR_MLOG_MSG &msg);

// The reply to such a request. Texts that are too long are cut.
ZOR_MLOG_MSG StatisticReply(const Statistic &statistic);

}  // namespace zor::mlogserver

#endif
