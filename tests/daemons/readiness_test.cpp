// The servers' notifications to the service manager.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "common/socket_address.h"
#include "daemons/manager_socket.h"
#include "programs/local_address.h"
#include "support/child.h"
#include "support/temp_root.h"

namespace zor::test {
namespace {

struct Served {
  const char *program;
  const char *path;  // of its socket; null for a client of the bus
  int type = SOCK_STREAM;
};

void PrintTo(const Served &served, std::ostream *out) {
  *out << std::strrchr(served.program, '/') + 1;
}

class Readiness : public testing::TestWithParam<Served> {
 protected:
  // The next notification but those of the descriptor store.
  std::string Told(std::chrono::milliseconds deadline = kPatience) const {
    std::string text;
    do {
      text = manager_.Take(deadline).text;
    } while (text.starts_with("FDSTORE"));
    return text;
  }
  bool CanConnect() const {
    const UniqueFd socket(::socket(AF_UNIX, GetParam().type, 0));
    return Connect(socket.get(), *daemon::LocalAddress(root_.Path(GetParam().path)));
  }

  TempRoot root_;
  const ManagerSocket manager_{root_.Path("/manager")};
};

TEST_P(Readiness, IsToldWhenClientsAreServedAndTheEndWhenItIsAskedFor) {
  const bool isListener = GetParam().path != nullptr;
  std::vector<Child> bus;
  if (!isListener) {
    EXPECT_EQ(Child::Program({GetParam().program}).Wait(), 1) << "without a bus";
    for (const char *program : {MSGSVR_PROGRAM, NOTIFYSERVER}) {
      bus.push_back(Child::Program({program}));
      ASSERT_EQ(Told(), "READY=1") << program;
    }
  }
  Child server = Child::Program({GetParam().program});
  ASSERT_EQ(Told(), "READY=1");
  if (isListener) {
    EXPECT_TRUE(CanConnect());
    EXPECT_EQ(Child::Program({GetParam().program}).Wait(), 4) << "a second one";
  }
  EXPECT_EQ(Told(std::chrono::milliseconds(0)), "") << "by one that cannot serve";
  server.Signal(SIGTERM);
  EXPECT_EQ(Told(), "STOPPING=1");
  EXPECT_EQ(server.Wait(), 0);
}

class WatchedLoop : public Readiness {};

TEST_P(WatchedLoop, IdleLoopFeedsTheWatchdog) {
  std::vector<Child> bus;
  if (GetParam().path == nullptr) {
    for (const char *program : {MSGSVR_PROGRAM, NOTIFYSERVER}) {
      bus.push_back(Child::Program({program}));
      ASSERT_EQ(Told(), "READY=1") << program;
    }
  }
  ::setenv("WATCHDOG_USEC", "100000", 1);
  const Child server = Child::Program({GetParam().program});
  ASSERT_EQ(Told(), "READY=1");
  for (int feed = 0; feed < 4; ++feed) ASSERT_EQ(Told(), "WATCHDOG=1");
}

INSTANTIATE_TEST_SUITE_P(OfEachServer, Readiness,
                         testing::Values(Served{MSGSVR_PROGRAM, "/var/msgsvr"},
                                         Served{NOTIFYSERVER, "/var/run/notify/notifyserver"},
                                         Served{MLOGSERVER, "/var/mlog/mlogServer", SOCK_DGRAM},
                                         Served{CMS_PROGRAM, nullptr}, Served{SYSLOGD_PROGRAM, nullptr}));

INSTANTIATE_TEST_SUITE_P(OfEachProgram, WatchedLoop,
                         testing::Values(Served{MSGSVR_PROGRAM, ""}, Served{NOTIFYSERVER, ""}, Served{MLOGSERVER, ""},
                                         Served{CMS_PROGRAM, nullptr}, Served{SYSLOGD_PROGRAM, nullptr},
                                         Served{LOGIN_KEEPER, nullptr}));

}  // namespace
}  // namespace zor::test
