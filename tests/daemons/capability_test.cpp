#include "programs/capability.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/child.h"

namespace zor::test {
namespace {

using daemon::HasCapability;

constexpr uid_t kOther = 65534;
constexpr int kNobodyElse = 9;  // in this namespace there is only root

// As a server that is started with one right of root.
bool BecomeAnother() {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
  data[0].effective = data[0].permitted = CAP_TO_MASK(CAP_DAC_OVERRIDE);
  return ::prctl(PR_SET_KEEPCAPS, 1) == 0 && ::setresuid(kOther, kOther, kOther) == 0 &&
         ::syscall(SYS_capset, &header, data) == 0;
}

TEST(LaidDownCapability, IsThereOnlyWhereItIsUsed) {
  if (::geteuid() != 0 || !HasCapability(CAP_DAC_OVERRIDE)) GTEST_SKIP() << "this user has none";
  const auto use = [] {
    const auto has = [] { return HasCapability(CAP_DAC_OVERRIDE); };
    if (!BecomeAnother()) return kNobodyElse;
    if (!has()) return 1;
    {
      const daemon::LaidDownCapability laidDown(CAP_DAC_OVERRIDE);
      if (has() || !laidDown.Use(has) || has()) return 2;
    }
    return has() ? 0 : 3;
  };
  const int result = Child::Function(use).Wait();
  if (result == kNobodyElse) GTEST_SKIP() << "there are no other users";
  EXPECT_EQ(result, 0);
}

TEST(LaidDownCapability, ThatAProcessDoesNotHaveIsNotGained) {
  const auto use = [] {
    if (::geteuid() == 0 && ::setresuid(kOther, kOther, kOther) != 0) return kNobodyElse;
    const daemon::LaidDownCapability laidDown(CAP_DAC_OVERRIDE);
    return laidDown.Use([] { return HasCapability(CAP_DAC_OVERRIDE); }) ? 2 : 0;
  };
  const int result = Child::Function(use).Wait();
  EXPECT_TRUE(result == 0 || result == kNobodyElse) << result;
}

}  // namespace
}  // namespace zor::test
