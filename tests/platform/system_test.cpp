#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zor/platform/system.h>

#include <ctime>
#include <set>
#include <string>

#include "support/child.h"

namespace {

TEST(Random, NumbersFillAllBitsAndDiffer) {
  std::set<uint32_t> numbers;
  uint32_t seen = 0;
  for (int i = 0; i < 1000; ++i) seen |= *numbers.insert(ZOR_UTIL_GenRandomInteger()).first;
  EXPECT_EQ(seen, 0xffffffffu);
  EXPECT_GT(numbers.size(), 990u);
}

TEST(TimeText, IsTheCurrentUtcTime) {
  ::setenv("TZ", "XXX-5", 1);
  ::tzset();
  const time_t before = std::time(nullptr);
  const std::string text = ZOR_UTIL_GetCurrUTCTimeStamp();
  EXPECT_THAT(text, testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z"));
  struct tm utc = {};
  ASSERT_NE(::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &utc), nullptr);
  EXPECT_GE(::timegm(&utc), before);
  EXPECT_LE(::timegm(&utc), std::time(nullptr));
}

TEST(Privileges, GivenUpCanBeRegainedAndOthersCannotBeHad) {
  auto child = zor::test::Child::Function([] {
    if (::getuid() != 0) return ZOR_UTIL_UpRootPrivileges() == 1 && ZOR_UTIL_DropAndroidRootPrivileges() == 0 ? 0 : 1;
    if (::setresuid(65534, 0, 0) != 0) return 2;  // as a program that runs with its owner's privileges
    if (ZOR_UTIL_DropAndroidRootPrivileges() != 0 || ::geteuid() != 65534) return 3;
    if (ZOR_UTIL_UpRootPrivileges() != 0 || ::geteuid() != 0) return 4;
    if (::setresuid(65534, 65534, 65534) != 0) return 5;
    return ZOR_UTIL_UpRootPrivileges() == 1 ? 0 : 6;
  });
  EXPECT_EQ(child.Wait(), 0);
}

}  // namespace
