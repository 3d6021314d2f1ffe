// The protocol with the service manager, by itself.
#include "programs/service_manager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zor/msg.h>

#include "daemons/manager_socket.h"
#include "programs/bus_daemon.h"
#include "support/child.h"
#include "support/temp_root.h"

namespace zor::test {
namespace {

using namespace zor::daemon;  // NOLINT(google-build-using-namespace): the subject

ino_t InodeOf(int fd) {
  struct stat status = {};
  return ::fstat(fd, &status) == 0 ? status.st_ino : 0;
}

TEST(ServiceManager, StoresDescriptorsByNameAtAPathAndAtAnAbstractName) {
  const TempRoot root;
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const UniqueFd read(ends[0]);
  const UniqueFd write(ends[1]);
  EXPECT_FALSE(StoreDescriptor("client", read.get())) << "without a manager";
  for (const std::string &name : {root.Path("/manager"), "@" + root.Path("/manager")}) {
    const ManagerSocket manager(name);
    EXPECT_TRUE(StoreDescriptor("client", read.get()));
    const Notification stored = manager.Take();
    EXPECT_EQ(stored.text, "FDSTORE=1\nFDPOLL=0\nFDNAME=client");
    EXPECT_EQ(InodeOf(stored.fd.get()), InodeOf(read.get()));
    EXPECT_TRUE(RemoveStoredDescriptors("client"));
    EXPECT_EQ(manager.Take().text, "FDSTOREREMOVE=1\nFDNAME=client");
    EXPECT_TRUE(ReplaceStoredDescriptors({"old"}, "new", read.get()));
    const std::string stores = "FDSTORE=1\nFDPOLL=0\nFDNAME=new";  // twice, for a store that was full
    for (const std::string &text : {stores, std::string("FDSTOREREMOVE=1\nFDNAME=old"), stores}) {
      EXPECT_EQ(manager.Take().text, text);
    }
  }
}

// In a fork, since the descriptors have fixed numbers. The status is the number of the check that failed.
int TakeThreePassed() {
  int ends[2];
  if (::pipe(ends) != 0) return 1;
  const int high = ::fcntl(ends[0], F_DUPFD, 100);
  const ino_t inode = InodeOf(high);
  for (const int fd : {3, 4, 5}) ::dup2(high, fd);
  ::setenv("LISTEN_FDS", "3", 1);
  ::setenv("LISTEN_FDNAMES", "listener::client", 1);
  ::setenv("LISTEN_PID", std::to_string(::getppid()).c_str(), 1);
  if (!TakePassedDescriptors().empty()) return 2;  // they are another process's
  ::setenv("LISTEN_FDS", "3", 1);
  ::setenv("LISTEN_FDNAMES", "listener::client", 1);
  ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
  const auto passed = TakePassedDescriptors();
  if (passed.size() != 3) return 3;
  if (passed[0].name != "listener" || passed[1].name != "unknown" || passed[2].name != "client") return 4;
  for (const PassedDescriptor &each : passed) {
    if (InodeOf(each.fd.get()) != inode || (::fcntl(each.fd.get(), F_GETFD) & FD_CLOEXEC) == 0) return 5;
  }
  return ::getenv("LISTEN_FDS") == nullptr && TakePassedDescriptors().empty() ? 0 : 6;
}

TEST(ServiceManager, PassesDescriptorsWithTheirNamesOnce) {
  EXPECT_EQ(Child::Function(TakeThreePassed).Wait(), 0);
}

TEST(ServiceManager, WatchdogIsFedAtHalfTheIntervalByTheProcessThatItIsMeantFor) {
  const TempRoot root;
  const ManagerSocket manager(root.Path("/manager"));
  const std::string self = std::to_string(::getpid());
  const struct {
    const char *interval;
    const char *pid;
    int periodMs;
  } cases[] = {
      {"60000000", self.c_str(), 30000},
      {"60000000", nullptr, 30000},
      {"60000000", "1", 0},
      {"60000000", "x", 0},
      {"0", self.c_str(), 0},
      {"-5", self.c_str(), 0},
      {"9s", nullptr, 0},
      {nullptr, nullptr, 0},
  };
  for (const auto &each : cases) {
    each.interval == nullptr ? ::unsetenv("WATCHDOG_USEC") : ::setenv("WATCHDOG_USEC", each.interval, 1);
    each.pid == nullptr ? ::unsetenv("WATCHDOG_PID") : ::setenv("WATCHDOG_PID", each.pid, 1);
    Watchdog watchdog;
    EXPECT_EQ(watchdog.period().count(), each.periodMs);
    EXPECT_EQ(watchdog.TimeoutMs(-1), watchdog.enabled() ? 0 : -1) << "the first feed is due at once";
    watchdog.Feed();
    watchdog.Feed();
    EXPECT_EQ(manager.Take(watchdog.enabled() ? kPatience : std::chrono::milliseconds(0)).text,
              watchdog.enabled() ? "WATCHDOG=1" : "");
    EXPECT_EQ(manager.Take(std::chrono::milliseconds(0)).text, "") << "half of the interval has not passed";
    EXPECT_EQ(watchdog.TimeoutMs(7), 7);
    if (!watchdog.enabled()) continue;
    EXPECT_GT(watchdog.TimeoutMs(-1), 0);
    EXPECT_LE(watchdog.TimeoutMs(-1), each.periodMs);
  }
}

int entered[2];
int resumed[2];

// Stays in the handler until the test lets it return.
void OnMessage(ZOR_MSG_HEAD *) {
  char byte = 0;
  EXPECT_EQ(1, ::write(entered[1], &byte, 1));
  EXPECT_EQ(1, ::read(resumed[0], &byte, 1));
}

TEST(ServiceManager, BusDaemonWhoseHandlerDoesNotReturnIsNotFed) {
  constexpr uint32_t kType = 0x4001;
  constexpr std::chrono::milliseconds kTenFeeds{200};
  const TempRoot root;
  Child bus = Child::Program({MSGSVR_PROGRAM});
  ASSERT_TRUE(bus.WaitForOutput("listening"));
  const ManagerSocket manager(root.Path("/manager"));
  ::setenv("WATCHDOG_USEC", "40000", 1);
  ASSERT_EQ(::pipe2(entered, O_CLOEXEC) | ::pipe2(resumed, O_CLOEXEC), 0);
  const Child daemon = Child::Function([] {
    ProblemLog problems("test");
    const StopSignal stop;
    ZOR_MSG_RegMsgProc(kType, OnMessage, 0, nullptr);
    return ServeBus("watched", stop, problems);
  });
  ASSERT_EQ(manager.Take().text, "READY=1");
  for (int feed = 0; feed < 3; ++feed) ASSERT_EQ(manager.Take().text, "WATCHDOG=1");

  ASSERT_EQ(ZOR_MSG_Init("asker"), uint32_t{ZOR_OK});
  ZOR_MSG_SendSimpleMsg("watched", kType, 0);
  char byte = 0;
  ASSERT_EQ(::read(entered[0], &byte, 1), 1);
  while (!manager.Take(std::chrono::milliseconds(0)).text.empty()) {
  }
  EXPECT_EQ(manager.Take(kTenFeeds).text, "");
  ASSERT_EQ(::write(resumed[1], &byte, 1), 1);
  EXPECT_EQ(manager.Take().text, "WATCHDOG=1");
}

}  // namespace
}  // namespace zor::test
