#include "base/alloc.h"

#include <gtest/gtest.h>
#include <zor/msg_wire.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "support/capture.h"

namespace {

using zor::GuardedAlloc;
using zor::GuardedCalloc;
using zor::GuardedRegrow;
using zor::MallocPtr;
using zor::test::Capture;

bool AllZero(const char *bytes, size_t count) {
  return std::all_of(bytes, bytes + count, [](char c) { return c == 0; });
}

MallocPtr<char> Text(const char *text) {
  return MallocPtr<char>(::strdup(text));
}

TEST(AllocationGuard, RefusesNothingAndTooMuchWithALine) {
  struct {
    uint64_t size;
    const char *printed;
  } const cases[] = {{0, "0"}, {ZOR_ALLOC_MAX + 1, "8388609"}, {0xffffffff, "-1"}, {0x100000027, "39"}};
  for (const auto &c : cases) {
    const std::string length = std::string(c.printed) + "\n";
    Capture out;
    EXPECT_EQ(GuardedAlloc(c.size), nullptr);
    EXPECT_EQ(GuardedCalloc(c.size), nullptr);
    EXPECT_EQ(GuardedRegrow(Text("old"), 3, c.size), nullptr);
    const std::string refused = "error: not host tool, but malloc 4M, return NULL, malloc len=" + length;
    EXPECT_EQ(out.Text(),
              refused + refused + "error: zor_realloc want to malloc 4M, return NULL, malloc len=" + length);
  }
}

TEST(AllocationGuard, AllowsItsLimitAndLeavesZerosBehindEveryBlock) {
  for (uint64_t size : {uint64_t{1}, uint64_t{41}, uint64_t{ZOR_ALLOC_MAX}}) {
    const MallocPtr<char> plain(static_cast<char *>(GuardedAlloc(size)));
    const MallocPtr<char> zeroed(static_cast<char *>(GuardedCalloc(size)));
    ASSERT_TRUE(plain != nullptr && zeroed != nullptr);
    EXPECT_TRUE(AllZero(plain.get() + size, 16));
    EXPECT_TRUE(AllZero(zeroed.get(), size + 16));
  }
}

TEST(AllocationGuard, RegrowingKeepsWhatFitsAndZeroesTheRest) {
  const MallocPtr<char> longer = GuardedRegrow(Text("abcd"), 4, 10);
  EXPECT_EQ(std::memcmp(longer.get(), "abcd", 4), 0);
  EXPECT_TRUE(AllZero(longer.get() + 4, 6 + 16));
  const MallocPtr<char> shorter = GuardedRegrow(Text("abcd"), 4, 2);
  EXPECT_EQ(std::memcmp(shorter.get(), "ab\0", 3), 0);
  const MallocPtr<char> fresh = GuardedRegrow(MallocPtr<char>(), 4, 8);
  EXPECT_TRUE(AllZero(fresh.get(), 8));
}

}  // namespace
