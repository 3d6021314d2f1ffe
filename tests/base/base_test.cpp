#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>
#include <zor/systime.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/fixed_path.h"
#include "base/list.h"
#include "base/text.h"
#include "base/wait.h"

namespace {

using zor::NameField;
using zor::WaitResult;

std::string Bytes(const NameField &field) {
  return {field, sizeof(NameField)};
}

TEST(Names, AreCutToElevenCharactersAndPaddedWithZeros) {
  struct {
    const char *text;
    std::string stored;
  } const cases[] = {
      {"", ""}, {nullptr, ""}, {"web", "web"}, {"abcdefghijk", "abcdefghijk"}, {"abcdefghijkl", "abcdefghijk"}};
  for (const auto &c : cases) {
    NameField field;
    std::memset(field, 'x', sizeof field);
    zor::SetName(field, c.text);
    EXPECT_EQ(Bytes(field), c.stored + std::string(sizeof field - c.stored.size(), '\0'));
  }
}

TEST(Names, FromTheWireAreBoundedByTheirField) {
  NameField from;
  NameField to;
  std::memset(from, 'x', sizeof from);
  EXPECT_EQ(zor::NameView(from), std::string(12, 'x'));
  zor::CopyName(to, from);
  EXPECT_EQ(zor::NameView(to), std::string(11, 'x'));
  std::memcpy(from, "ab\0cdefghijk", sizeof from);
  zor::CopyName(to, from);
  EXPECT_EQ(Bytes(to), std::string("ab") + std::string(10, '\0'));
  zor::SetName(to, to);
  EXPECT_EQ(zor::NameView(to), "ab");
}

struct Item {
  Item *next;
  int value;
};

TEST(ListView, AllowsItsBodyToReleaseTheItem) {
  Item *head = nullptr;
  for (int value : {1, 2, 3}) {
    auto *item = static_cast<Item *>(std::malloc(sizeof(Item)));
    item->value = value;
    zor::Append(head, item);
  }
  int sum = 0;
  for (Item *item : zor::ListView(head)) {
    sum += item->value;
    EXPECT_TRUE(zor::Unlink(head, item));
    std::free(item);
  }
  EXPECT_EQ(sum, 6);
  EXPECT_EQ(head, nullptr);
}

TEST(Waits, TellReadinessTimeOutAndBadDescriptorsApart) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
  EXPECT_EQ(zor::WaitReadable(ends[0], 0), WaitResult::kTimedOut);
  EXPECT_EQ(zor::WaitWritable(ends[1], 0), WaitResult::kReady);
  ::close(ends[1]);
  EXPECT_EQ(zor::WaitReadable(ends[0], -1), WaitResult::kReady);  // end of file: for read to report
  ::close(ends[0]);
  for (int bad : {-1, ends[0]}) {
    EXPECT_EQ(zor::WaitReadable(bad, -1), WaitResult::kFailed);
    EXPECT_EQ(errno, EBADF);
  }
}

TEST(Waits, EndWhenASignalArrives) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  ::sigaction(SIGALRM, &action, nullptr);
  const itimerval soon = {{0, 10000}, {0, 10000}};
  ::setitimer(ITIMER_REAL, &soon, nullptr);
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  EXPECT_EQ(zor::WaitReadable(ends[0], 30000), WaitResult::kInterrupted);
}

TEST(FixedPath, ThatDoesNotFitIsInvalid) {
  ::setenv("ZOR_ROOT", "/r", 1);
  EXPECT_STREQ(zor::FixedPath("/var/msgsvr").c_str(), "/r/var/msgsvr");
  EXPECT_STREQ(zor::FixedSocketAddress("/var/msgsvr")->sun_path, "/r/var/msgsvr");
  ::setenv("ZOR_ROOT", std::string(100, 'r').c_str(), 1);
  EXPECT_TRUE(zor::FixedPath("/var/msgsvr").valid());
  EXPECT_FALSE(zor::FixedSocketAddress("/var/msgsvr").has_value());
  ::setenv("ZOR_ROOT", std::string(5000, 'r').c_str(), 1);
  EXPECT_FALSE(zor::FixedPath("/var/msgsvr").valid());
}

TEST(SysTime, IsMonotonicAndAgreesWithTheSystem) {
  EXPECT_EQ(ZOR_UTIL_GetSysTime(nullptr), 1u);
  ZOR_SYS_TIME first = {};
  ZOR_SYS_TIME second = {};
  ASSERT_EQ(ZOR_UTIL_GetSysTime(&first), 0u);
  ASSERT_EQ(ZOR_UTIL_GetSysTime(&second), 0u);
  EXPECT_LT(second.microseconds, 1000000u);
  EXPECT_GE(second.seconds * 1000000ull + second.microseconds, first.seconds * 1000000ull + first.microseconds);
  timespec boot = {};
  ASSERT_EQ(::clock_gettime(CLOCK_BOOTTIME, &boot), 0);
  EXPECT_NEAR(ZOR_UTIL_GetSysUpTime(), static_cast<double>(boot.tv_sec), 5);
}

}  // namespace
