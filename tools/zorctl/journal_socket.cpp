#include "zorctl/journal_socket.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

#include "programs/paths.h"
#include "zorctl/exit_code.h"

namespace zor::ctl {
namespace {

constexpr char kPath[] = "/run/systemd/journal/socket";

Failure NoJournal(const std::string &path, int error) {
  return {kExitNoServer, "cannot write to the journal at " + path + ": " + std::strerror(error),
          "check systemd-journald, or leave out --journal"};
}

// "NAME=value"; a value with line ends has its length, as 64 bits of little endian, in front instead.
void Append(std::string &entry, std::string_view name, const std::string &value) {
  entry.append(name);
  if (value.find('\n') == value.npos) {
    entry.append("=").append(value);
  } else {
    entry += '\n';
    for (int shift = 0; shift < 64; shift += 8) entry += static_cast<char>(value.size() >> shift & 0xff);
    entry.append(value);
  }
  entry += '\n';
}

}  // namespace

JournalSocket::JournalSocket() : fd_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  const std::string path = daemon::FixedPath(kPath);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) throw NoJournal(path, ENAMETOOLONG);
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (!fd_.valid() || ::connect(fd_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
    throw NoJournal(path, errno);
  }
}

void JournalSocket::Send(const std::vector<Field> &fields) {
  std::string entry;
  for (const auto &[name, value] : fields) Append(entry, name, value);
  while (::send(fd_.get(), entry.data(), entry.size(), MSG_NOSIGNAL) < 0) {
    if (errno != EINTR) throw NoJournal(daemon::FixedPath(kPath), errno);
  }
}

}  // namespace zor::ctl
