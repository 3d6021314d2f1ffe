// Who is at the other end of a connection. The kernel records the peer's user and groups when it connects; its
// executable and its service unit are read once, when the connection is accepted, and never again. Between the two the
// process may have ended and its number may belong to another one, so they count only with a proof that it lives:
// the peer's pidfd, or on kernels before 6.5, which have none for a socket, its open connection.
#ifndef PROGRAMS_ACCESS_IDENTITY_H
#define PROGRAMS_ACCESS_IDENTITY_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zor::access {

// A fact without value is not known: it never earns a permission, and never escapes a prohibition.
struct Identity {
  std::optional<uid_t> user;                 // none for another board
  std::optional<std::vector<gid_t>> groups;  // with the effective one
  std::optional<std::string> executable;
  std::optional<std::string> unit;         // empty: it belongs to none
  std::optional<std::uint32_t> board;      // IPv4 address of another board, in the host's byte order
  std::optional<std::string> certificate;  // that board's name in its certificate, if it has proved to have one

  // Whether a name that one of them holds may also be given to the other.
  bool IsSameOwner(const Identity &other) const;

  friend bool operator==(const Identity &, const Identity &) = default;
};

enum class Proof { kPidfd, kConnection };

// The process or board at the other end of a connected socket.
Identity ReadIdentity(int socket, Proof proof = Proof::kPidfd);

// The service unit of a process, from its file "cgroup": the outermost unit, since units further inside may be named by
// the process itself. No value for a text that names no cgroup of this system.
std::optional<std::string> UnitOf(std::string_view cgroups);

}  // namespace zor::access

#endif
