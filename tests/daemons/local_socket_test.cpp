// How a local socket is adopted from the service manager.
#include "programs/local_socket.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/socket_address.h"
#include "daemons/manager_socket.h"
#include "programs/local_address.h"
#include "programs/peer.h"
#include "support/capture.h"
#include "support/child.h"
#include "support/temp_root.h"

namespace zor::test {
namespace {

using namespace zor::daemon;  // NOLINT(google-build-using-namespace): the subject
using testing::HasSubstr;

constexpr char kPath[] = "/var/server";
constexpr char kOther[] = "/var/other";

UniqueFd ConnectTo(const std::string &path) {
  UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return Connect(fd.get(), *LocalAddress(path)) ? std::move(fd) : UniqueFd();
}

ino_t InodeOf(const std::string &path) {
  struct stat status = {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0);
  return status.st_ino;
}

// What a server at that path leaves with the manager when it crashes.
std::vector<PassedDescriptor> Crash(const ManagerSocket &manager, const char *path, int type = SOCK_STREAM) {
  Child server = Child::Function([path, type] {
    ProblemLog log("server");
    std::vector<PassedDescriptor> nothing;
    LocalSocket socket;
    if (socket.OpenPassed(path, type, 0666, nothing, log) != kExitOk) return 1;
    std::_Exit(0);
  });
  EXPECT_EQ(server.Wait(), 0);
  std::vector<PassedDescriptor> stored;
  for (const char *name : {"lock", "listener"}) {
    Notification each = manager.Take();
    EXPECT_EQ(each.text, std::string("FDSTORE=1\nFDPOLL=0\nFDNAME=") + name);
    stored.push_back({name, std::move(each.fd)});
  }
  return stored;
}

TEST(LocalSocket, IsAdoptedWithItsConnectionsByTheNextServerOnly) {
  const TempRoot root;
  const ManagerSocket manager(root.Path("/manager"));
  std::vector<PassedDescriptor> passed = Crash(manager, kPath);
  const UniqueFd waiting = ConnectTo(root.Path(kPath));
  ASSERT_TRUE(waiting.valid()) << "nothing serves, and nothing is refused";
  ProblemLog log("server");
  EXPECT_EQ(LocalSocket().Open(kPath, SOCK_STREAM, 0666, log), kExitBusy) << "one that is started by hand";
  {
    LocalSocket next;
    ASSERT_EQ(next.OpenPassed(kPath, SOCK_STREAM, 0666, passed, log), kExitOk);
    EXPECT_TRUE(passed.empty());
    EXPECT_TRUE(UniqueFd(::accept(next.fd(), nullptr, nullptr)).valid());
    EXPECT_EQ(PeerOf(ConnectTo(root.Path(kPath)).get()).pid, ::getpid()) << "the living process";
  }
  EXPECT_EQ(manager.Take(std::chrono::milliseconds(0)).text, "") << "it is stored already";
  EXPECT_EQ(::access(root.Path(kPath).c_str(), F_OK), 0) << "the manager holds it";
}

// As behind the link of an installed system, where a socket unit holds the socket and passes it blocking.
TEST(LocalSocket, OfASocketUnitBehindALinkIsUsedInsteadOfAStoredOne) {
  const TempRoot root;
  const ManagerSocket manager(root.Path("/manager"));
  std::vector<PassedDescriptor> passed = Crash(manager, kOther);
  ASSERT_EQ(::symlink("other", root.Path(kPath).c_str()), 0);
  UniqueFd unit = std::move(passed.back().fd);
  ASSERT_EQ(::fcntl(unit.get(), F_SETFL, 0), 0);
  const ino_t file = InodeOf(root.Path(kOther));
  passed.clear();
  passed.push_back({"listener", std::move(unit)});
  passed.push_back({"listener", UniqueFd(::socket(AF_UNIX, SOCK_STREAM, 0))});
  passed.push_back({"client-1", UniqueFd(::socket(AF_UNIX, SOCK_STREAM, 0))});
  Capture lines(STDERR_FILENO);
  ProblemLog log("server");
  {
    LocalSocket next;
    ASSERT_EQ(next.OpenPassed(kPath, SOCK_STREAM, 0666, passed, log), kExitOk);
    EXPECT_EQ(::accept(next.fd(), nullptr, nullptr), -1) << "and does not block";
    EXPECT_TRUE(ConnectTo(root.Path(kPath)).valid());
  }
  EXPECT_EQ(InodeOf(root.Path(kOther)), file) << "the unit holds it";
  EXPECT_EQ(passed.size(), 1u);
  EXPECT_THAT(lines.Text(), HasSubstr("a socket unit has another one"));
}

TEST(LocalSocket, RefusesAnotherSocketAndNamesWhy) {
  const struct {
    const char *path;
    int type;
    bool removed;
    const char *why;
  } cases[] = {{kOther, SOCK_STREAM, false, "it is bound elsewhere"},
               {kPath, SOCK_DGRAM, false, "its type is another"},
               {kPath, SOCK_STREAM, true, "its file is gone"}};
  for (const auto &each : cases) {
    const TempRoot root;
    const ManagerSocket manager(root.Path("/manager"));
    std::vector<PassedDescriptor> passed = Crash(manager, each.path, each.type);
    if (each.removed || each.type == SOCK_DGRAM) ::unlink(root.Path(kPath).c_str());
    Capture lines(STDERR_FILENO);
    ProblemLog log("server");
    LocalSocket next;
    EXPECT_EQ(next.OpenPassed(kPath, SOCK_STREAM, 0666, passed, log), kExitOk) << each.why;
    EXPECT_TRUE(ConnectTo(root.Path(kPath)).valid()) << each.why;
    EXPECT_THAT(lines.Text(), HasSubstr(each.why));
  }
}

}  // namespace
}  // namespace zor::test
