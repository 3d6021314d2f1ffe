#include "programs/access/identity.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <utility>

#include "common/unique_fd.h"
#include "programs/peer.h"

namespace zor::access {
namespace {

constexpr int kPeerPidfd = 77;  // SO_PEERPIDFD of Linux 6.5; the C library's headers may be older
constexpr std::size_t kProcText = 4096;

std::optional<std::vector<gid_t>> GroupsOf(int socket, gid_t effective) {
  socklen_t size = 0;
  // Without room the kernel reports how much it takes.
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, nullptr, &size) != 0 && errno != ERANGE) return std::nullopt;
  std::vector<gid_t> groups(size / sizeof(gid_t));
  if (size > 0 && ::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) != 0) return std::nullopt;
  groups.push_back(effective);
  std::sort(groups.begin(), groups.end());
  groups.erase(std::unique(groups.begin(), groups.end()), groups.end());
  return groups;
}

// The process of a peer. Everything is read through its directory, which stays that of this process.
class Process {
 public:
  Process(int socket, const ucred &peer, Proof proof) : socket_(socket), user_(peer.uid) {
    int pidfd = -1;
    socklen_t size = sizeof pidfd;
    if (peer.pid <= 0) return;
    if (proof == Proof::kPidfd && ::getsockopt(socket, SOL_SOCKET, kPeerPidfd, &pidfd, &size) == 0) {
      pidfd_.reset(pidfd);
    } else if (proof == Proof::kPidfd && errno != ENOPROTOOPT) {
      return;  // it has ended: on such a kernel an open connection alone is no proof
    }
    directory_.reset(::open(("/proc/" + std::to_string(peer.pid)).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  }

  // Whether what was read so far is about the peer, and not about a process that has got its number since.
  bool IsProven() const {
    if (!directory_.valid()) return false;
    // A pidfd becomes readable when its process ends. A connection is readable at any time, so that its end counts.
    pollfd state = {pidfd_.valid() ? pidfd_.get() : socket_, static_cast<short>(pidfd_.valid() ? POLLIN : POLLRDHUP),
                    0};
    if (::poll(&state, 1, 0) != 0) return false;
    return pidfd_.valid() || RunsAs(user_);
  }

  std::optional<std::string> Text(const char *name) const {
    const UniqueFd file(::openat(directory_.get(), name, O_RDONLY | O_CLOEXEC));
    std::string text(kProcText, '\0');
    const ssize_t length = file.valid() ? ::read(file.get(), text.data(), text.size()) : -1;
    if (length < 0) return std::nullopt;
    text.resize(static_cast<std::size_t>(length));
    return text;
  }

  // The path of its executable, if the same file is there for this process too: in a mount namespace of its own anyone
  // can put any file at any path.
  std::optional<std::string> Executable() const {
    std::string path(PATH_MAX, '\0');
    const ssize_t length = ::readlinkat(directory_.get(), "exe", path.data(), path.size());
    if (length <= 0 || length == PATH_MAX) return std::nullopt;
    path.resize(static_cast<std::size_t>(length));
    struct stat running = {};
    struct stat named = {};
    if (::fstatat(directory_.get(), "exe", &running, 0) != 0 || ::stat(path.c_str(), &named) != 0 ||
        running.st_dev != named.st_dev || running.st_ino != named.st_ino) {
      return std::nullopt;
    }
    return path;
  }

 private:
  bool RunsAs(uid_t user) const {
    constexpr std::string_view kUser = "\nUid:\t";
    const std::string text = Text("status").value_or("");
    const std::size_t at = text.find(kUser);
    uid_t real = 0;
    if (at == std::string::npos) return false;
    const char *first = text.data() + at + kUser.size();
    return std::from_chars(first, text.data() + text.size(), real).ec == std::errc() && real == user;
  }

  int socket_;
  uid_t user_;
  UniqueFd pidfd_;
  UniqueFd directory_;
};

Identity ReadLocal(int socket, Proof proof) {
  Identity identity;
  const ucred peer = daemon::PeerOf(socket);
  if (peer.uid == static_cast<uid_t>(-1)) return identity;
  identity.user = peer.uid;
  identity.groups = GroupsOf(socket, peer.gid);
  const Process process(socket, peer, proof);
  auto executable = process.Executable();
  auto unit = UnitOf(process.Text("cgroup").value_or(""));
  if (!process.IsProven()) return identity;
  identity.executable = std::move(executable);
  identity.unit = std::move(unit);
  return identity;
}

// Slices group units; behind the first component that is none, everything belongs to that unit.
bool IsSlice(std::string_view component) {
  return component.ends_with(".slice");
}

std::string UnitOfPath(std::string_view path) {
  while (!path.empty()) {
    path.remove_prefix(1);
    std::string_view component = path.substr(0, path.find('/'));
    path.remove_prefix(component.size());
    if (IsSlice(component)) continue;
    if (component.starts_with('_')) component.remove_prefix(1);  // protects names that the kernel uses
    const std::size_t dot = component.rfind('.');
    return dot == 0 || dot == std::string_view::npos ? "" : std::string(component);
  }
  return "";
}

}  // namespace

// A board keeps its certificate when it gets another address.
bool Identity::IsSameOwner(const Identity &other) const {
  if (certificate || other.certificate) return certificate == other.certificate;
  return (user.has_value() || board.has_value()) && user == other.user && board == other.board;
}

Identity ReadIdentity(int socket, Proof proof) {
  sockaddr_in address = {};
  socklen_t size = sizeof address;
  Identity identity;
  if (::getpeername(socket, reinterpret_cast<sockaddr *>(&address), &size) != 0) return identity;
  if (address.sin_family == AF_UNIX) return ReadLocal(socket, proof);
  if (address.sin_family == AF_INET) identity.board = ntohl(address.sin_addr.s_addr);
  return identity;
}

// Lines of "NUMBER:CONTROLLERS:PATH". On older systems the service manager's hierarchy has a name of its own; where
// there is one for all, it has the number 0.
std::optional<std::string> UnitOf(std::string_view cgroups) {
  std::optional<std::string_view> found;
  while (!cgroups.empty()) {
    const std::string_view line = cgroups.substr(0, cgroups.find('\n'));
    cgroups.remove_prefix(std::min(line.size() + 1, cgroups.size()));
    const std::size_t named = line.find(":name=systemd:/");
    if (named != std::string_view::npos) {
      found = line.substr(line.rfind(':') + 1);
      break;
    }
    if (line.starts_with("0::/")) found = line.substr(3);
  }
  // A path out of the reader's own cgroup namespace means nothing here.
  if (!found || found->starts_with("/..")) return std::nullopt;
  return UnitOfPath(*found);
}

}  // namespace zor::access
