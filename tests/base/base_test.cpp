#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>
#include <zor/msg_wire.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/alloc.h"
#include "base/fixed_path.h"
#include "base/text.h"
#include "base/wait.h"
#include "support/capture.h"

namespace zor::test {
namespace {

MallocPtr<char> Text(const char *text) {
  return MallocPtr<char>(::strdup(text));
}

TEST(AllocationGuard, RefusesNothingAndTooMuchWithALine) {
  const struct {
    uint64_t size;
    const char *printed;
  } cases[] = {{0, "0"}, {ZOR_ALLOC_MAX + 1, "8388609"}, {0xffffffff, "-1"}, {0x100000027, "39"}};
  for (const auto &c : cases) {
    const std::string length = std::string(c.printed) + "\n";
    const std::string refused = "error: not host tool, but malloc 4M, return NULL, malloc len=" + length;
    Capture out;
    EXPECT_EQ(GuardedAlloc(c.size), nullptr);
    EXPECT_EQ(GuardedCalloc(c.size), nullptr);
    EXPECT_EQ(GuardedRegrow(Text("old"), 3, c.size), nullptr);
    EXPECT_EQ(out.Text(),
              refused + refused + "error: zor_realloc want to malloc 4M, return NULL, malloc len=" + length);
  }
}

TEST(AllocationGuard, AllowsItsLimitAndLeavesZerosBehindEveryBlock) {
  const auto allZero = [](const char *from, size_t count) {
    return std::all_of(from, from + count, [](char c) { return c == 0; });
  };
  for (const size_t size : {size_t{3}, size_t{ZOR_ALLOC_MAX}}) {
    const MallocPtr<char> plain(static_cast<char *>(GuardedAlloc(size)));
    EXPECT_TRUE(allZero(plain.get() + size, 16));
    const MallocPtr<char> zeroed(static_cast<char *>(GuardedCalloc(size)));
    EXPECT_TRUE(allZero(zeroed.get(), size + 16));
    const MallocPtr<char> grown = GuardedRegrow(Text("abcd"), 4, size);
    const size_t kept = std::min<size_t>(size, 4);
    EXPECT_EQ(std::memcmp(grown.get(), "abcd", kept), 0);
    EXPECT_TRUE(allZero(grown.get() + kept, size - kept + 16));
  }
}

TEST(Names, AreCutToElevenCharactersAndPaddedWithZeros) {
  const struct {
    const char *text;
    std::string stored;
  } cases[] = {{nullptr, ""}, {"web", "web"}, {"abcdefghijk", "abcdefghijk"}, {"abcdefghijkl", "abcdefghijk"}};
  for (const auto &c : cases) {
    NameField field;
    std::memset(field, 'x', sizeof field);
    EXPECT_EQ(NameView(field).size(), sizeof field) << "an unterminated name is bounded by its field";
    SetName(field, c.text);
    EXPECT_EQ(std::string(field, sizeof field), c.stored + std::string(sizeof field - c.stored.size(), '\0'));
    CopyName(field, field);
    EXPECT_EQ(NameView(field), c.stored);
  }
}

TEST(FixedPath, ThatDoesNotFitIsInvalid) {
  const struct {
    std::string root;
    bool fits, fitsAnAddress;
  } cases[] = {{"/r", true, true}, {std::string(100, 'r'), true, false}, {std::string(5000, 'r'), false, false}};
  for (const auto &c : cases) {
    ::setenv("ZOR_ROOT", c.root.c_str(), 1);
    EXPECT_EQ(FixedPath("/var/msgsvr").valid(), c.fits);
    EXPECT_EQ(FixedSocketAddress("/var/msgsvr").has_value(), c.fitsAnAddress);
  }
}

}  // namespace
}  // namespace zor::test
