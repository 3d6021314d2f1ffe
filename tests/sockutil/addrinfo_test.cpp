#include <gtest/gtest.h>

#include <string>

#include "sockutil/socket_fixture.h"
#include "support/capture.h"

namespace zor::test {
namespace {

constexpr uint32_t kLargest = 0x800000 - sizeof(addrinfo);

TEST(Addresses, AreMadeAndCopiedAsBlocksOfALimitedSize) {
  const AddrInfoList source = Parse("::1", 80);
  const AddrInfoList made(ZOR_UTIL_MakeAddrInfo(ZOR_ADDR_UDP | ZOR_ADDR_IPV6, source->ai_addr, source->ai_addrlen));
  made->ai_next = Parse("10.0.0.1").release();
  char name[] = "not to be released twice";
  made->ai_canonname = name;
  EXPECT_EQ(TextOf(AddrInfoList(ZOR_UTIL_CopyAddrInfo(made.get(), 0))), "::1 ");
  EXPECT_EQ(TextOf(AddrInfoList(ZOR_UTIL_CopyAddrInfo(made.get(), 1))), "::1 10.0.0.1 ");
  made->ai_canonname = nullptr;
  const Capture output;
  const std::string large(kLargest, 'x');
  EXPECT_NE(AddrInfoList(ZOR_UTIL_MakeAddrInfo(0, large.data(), kLargest)), nullptr);
  EXPECT_EQ(ZOR_UTIL_MakeAddrInfo(0, large.data(), UINT32_MAX), nullptr) << "the sum does not wrap round";
  made->ai_next->ai_addrlen = kLargest + 1;
  EXPECT_EQ(ZOR_UTIL_CopyAddrInfo(made.get(), 1), nullptr);
}

// The padding of an IPv4 address is ignored, but the same bytes of a record of another length are compared.
TEST(Addresses, AreComparedWithoutPortFamilyAndPadding) {
  const struct {
    const char *a, *b;
    socklen_t length;  // 0: the usual length
    size_t changed;    // this byte of the first
    uint32_t same;
  } cases[] = {
      {"10.0.0.1", "10.0.0.1", 0, 3, 1},   {"10.0.0.1", "10.0.0.1", 0, 7, 0},   {"10.0.0.1", "10.0.0.1", 0, 8, 1},
      {"10.0.0.1", "10.0.0.1", 11, 3, 0},  {"10.0.0.1", "10.0.0.1", 12, 3, 1},  {"10.0.0.1", "10.0.0.1", 15, 14, 0},
      {"fe80::1%1", "fe80::1%1", 0, 3, 1}, {"fe80::1%1", "fe80::1%2", 0, 3, 0}, {"::1", "::1", 0, 5, 0},
      {"::1", "::1", 20, 19, 0},           {"10.0.0.1", "::1", 0, 3, 0},
  };
  for (const auto &each : cases) {
    const AddrInfoList a = Parse(each.a, 80);
    const AddrInfoList b = Parse(each.b, 80);
    reinterpret_cast<char *>(a->ai_addr)[each.changed] ^= 1;
    if (each.length != 0) a->ai_addrlen = b->ai_addrlen = each.length;
    EXPECT_EQ(ZOR_UTIL_IsAddrInfoSame(a.get(), b.get()), each.same) << each.a << ' ' << each.b << ' ' << each.changed;
  }
}

}  // namespace
}  // namespace zor::test
