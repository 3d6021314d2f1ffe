#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zor/zorutil.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "support/child.h"

namespace zor::test {
namespace {

using testing::ElementsAre;
using Pids = std::vector<int32_t>;

Pids Find(const std::string &name) {
  const std::unique_ptr<int32_t, decltype(&std::free)> found(ZOR_UTIL_FindPidByName(name.c_str()), &std::free);
  if (found == nullptr) return {};
  if (*found == -1) return {-1};
  Pids pids;
  for (const int32_t *pid = found.get(); *pid != 0; ++pid) pids.push_back(*pid);
  return pids;
}

class Lookup : public testing::Test {
 protected:
  // A process with these arguments after the shell's own, stopped so that it stays.
  void Start(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"/bin/sh", "-c", "kill -STOP $$"});
    children_.push_back(Child::Program(arguments));
    EXPECT_TRUE(WaitUntil([this] {
      const Pids pids = Find("-STOP $$" + token_);
      return std::find(pids.begin(), pids.end(), children_.back().pid()) != pids.end();
    }));
  }

  const std::string token_ = "zor" + std::to_string(::getpid());
  std::vector<Child> children_;
};

TEST_F(Lookup, SeesTheArgumentsPutTogetherUpToALimit) {
  const std::string before = "/bin/sh-ckill -STOP $$";
  Start({token_, "two three", "", token_ + "hidden"});
  Start({token_ + "\nlater"});
  Start({token_ + std::string(232 - before.size() - token_.size() - 2, 'x') + "abcdefgh"});
  const struct {
    std::string name;
    int32_t pid;
  } cases[] = {
      {before + token_ + "two three", children_[0].pid()},
      {token_ + "hidden", -1},
      {token_ + "\n", children_[1].pid()},
      {"\nlater", -1},
      {"xxabcd", children_[2].pid()},
      {"xxabcdefgh", -1},
  };
  for (const auto &each : cases) EXPECT_THAT(Find(each.name), ElementsAre(each.pid)) << each.name;
}

}  // namespace
}  // namespace zor::test
