// Who is at the other end of a connection.
#include "programs/access/identity.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>

#include "common/unique_fd.h"
#include "support/temp_root.h"

namespace zor::test {
namespace {

using access::Identity;
using access::Proof;
using access::ReadIdentity;
using access::UnitOf;

class Listener {
 public:
  Listener() : path_(root_.Path("/listener")), socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    address_.sun_family = AF_UNIX;
    std::strncpy(address_.sun_path, path_.c_str(), sizeof address_.sun_path - 1);
    EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<const sockaddr *>(&address_), sizeof address_), 0);
    EXPECT_EQ(::listen(socket_.get(), 8), 0);
  }

  // Runs in a child after its connection is made. The child's end of it stays open in both.
  pid_t ConnectChild(const std::function<void()> &run, UniqueFd &far) {
    far.reset(::socket(AF_UNIX, SOCK_STREAM, 0));
    const pid_t child = ::fork();
    if (child == 0) {
      if (::connect(far.get(), reinterpret_cast<const sockaddr *>(&address_), sizeof address_) == 0) run();
      ::_exit(1);
    }
    return child;
  }

  UniqueFd Accept() { return UniqueFd(::accept(socket_.get(), nullptr, nullptr)); }
  const TempRoot &root() const { return root_; }

 private:
  TempRoot root_;
  std::string path_;
  UniqueFd socket_;
  sockaddr_un address_ = {};
};

// A program that is at a path of its own and waits to be killed.
class Sleeper {
 public:
  explicit Sleeper(Listener &listener) : path(listener.root().Path("/sleeper")) {
    std::filesystem::copy_file("/bin/sleep", path);
    child_ = listener.ConnectChild([this] { ::execl(path.c_str(), "sleep", "1000", nullptr); }, far_);
    socket = listener.Accept();
    const std::string link = "/proc/" + std::to_string(child_) + "/exe";
    std::error_code error;
    while (std::filesystem::read_symlink(link, error) != path && !error) ::usleep(1000);
  }
  ~Sleeper() { Kill(); }

  void Kill() {
    if (child_ > 0 && ::kill(child_, SIGKILL) == 0) ::waitpid(child_, nullptr, 0);
    child_ = 0;
  }

  std::string path;
  UniqueFd socket;

 private:
  UniqueFd far_;
  pid_t child_ = 0;
};

// An emulated system may lack this.
bool KernelKnowsGroups(int socket) {
  socklen_t size = 0;
  return ::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, nullptr, &size) == 0 || errno != ENOPROTOOPT;
}

constexpr Proof kProofs[] = {Proof::kPidfd, Proof::kConnection};

TEST(ReadIdentity, ReportsTheProcessThatHasConnected) {
  Listener listener;
  const Sleeper sleeper(listener);
  std::vector<gid_t> groups(static_cast<std::size_t>(::getgroups(0, nullptr)));
  ASSERT_GE(::getgroups(static_cast<int>(groups.size()), groups.data()), 0);
  groups.push_back(::getegid());
  std::sort(groups.begin(), groups.end());
  groups.erase(std::unique(groups.begin(), groups.end()), groups.end());
  std::ifstream cgroups("/proc/self/cgroup");
  const std::string own((std::istreambuf_iterator<char>(cgroups)), {});
  for (const Proof proof : kProofs) {
    const Identity identity = ReadIdentity(sleeper.socket.get(), proof);
    EXPECT_EQ(identity.user, ::geteuid());
    if (KernelKnowsGroups(sleeper.socket.get())) {
      EXPECT_EQ(identity.groups, groups);
    }
    EXPECT_EQ(identity.executable, sleeper.path);
    EXPECT_EQ(identity.unit, UnitOf(own));
    EXPECT_EQ(identity.board, std::nullopt);
  }
}

TEST(ReadIdentity, KnowsNoExecutableThatIsNoLongerAtItsPath) {
  Listener listener;
  const Sleeper sleeper(listener);
  ASSERT_TRUE(std::filesystem::remove(sleeper.path));
  std::filesystem::copy_file("/bin/sleep", sleeper.path);
  for (const Proof proof : kProofs) EXPECT_EQ(ReadIdentity(sleeper.socket.get(), proof).executable, std::nullopt);
}

// Its number may already be that of another process, although the connection is still open.
TEST(ReadIdentity, KnowsOfAnEndedProcessOnlyItsUserAndGroups) {
  Listener listener;
  Sleeper sleeper(listener);
  sleeper.Kill();
  for (const Proof proof : kProofs) {
    const Identity identity = ReadIdentity(sleeper.socket.get(), proof);
    EXPECT_EQ(identity.user, ::geteuid());
    EXPECT_EQ(identity.groups.has_value(), KernelKnowsGroups(sleeper.socket.get()));
    EXPECT_EQ(identity.executable, std::nullopt);
    EXPECT_EQ(identity.unit, std::nullopt);
  }
}

TEST(ReadIdentity, OfAnotherBoardIsItsAddress) {
  const UniqueFd listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ASSERT_EQ(::bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), size), 0);
  ASSERT_EQ(::listen(listener.get(), 1), 0);
  ASSERT_EQ(::getsockname(listener.get(), reinterpret_cast<sockaddr *>(&address), &size), 0);
  const UniqueFd far(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(::connect(far.get(), reinterpret_cast<const sockaddr *>(&address), size), 0);
  const UniqueFd near(::accept(listener.get(), nullptr, nullptr));
  Identity expected;
  expected.board = INADDR_LOOPBACK;
  EXPECT_EQ(ReadIdentity(near.get()), expected);
  EXPECT_EQ(ReadIdentity(-1), Identity());
}

TEST(UnitOf, IsTheOutermostUnit) {
  const std::pair<const char *, std::optional<std::string>> kCases[] = {
      {"0::/system.slice/web.service\n", "web.service"},
      {"0::/system.slice/system-ui.slice/ui@1.service/inner\n", "ui@1.service"},
      {"0::/system.slice/web.service/cms.service\n", "web.service"},
      {"0::/user.slice/user-7.slice/user@7.service/app.slice/cms.service\n", "user@7.service"},
      {"0::/user.slice/user-7.slice/session-2.scope\n", "session-2.scope"},
      {"0::/init.scope\n", "init.scope"},
      {"0::/system.slice/_cgroup.service\n", "cgroup.service"},
      {"4:cpu:/x.service\n1:name=systemd:/system.slice/web.service\n0::/other.service\n", "web.service"},
      {"0::/docker/web.service\n", ""},
      {"0::/cms.slice\n", ""},
      {"0::/\n", ""},
      {"0::/../web.service\n", std::nullopt},
      {"4:cpu:/x.service\n", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto &[text, unit] : kCases) EXPECT_EQ(UnitOf(text), unit) << text;
}

}  // namespace
}  // namespace zor::test
