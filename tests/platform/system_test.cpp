#include <gtest/gtest.h>
#include <unistd.h>
#include <zor/platform/system.h>

#include "support/child.h"

namespace {

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
