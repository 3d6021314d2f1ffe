#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <zor/status.h>

#include <cstring>

#include "base/unique_fd.h"
#include "sockutil/socket_fixture.h"
#include "support/capture.h"

namespace zor::test {
namespace {

constexpr uint32_t kLargest = 0x800000 - sizeof(addrinfo);

TEST(Addresses, ParseOnlyWhatIsNumeric) {
  const struct {
    const char *host, *text;
  } cases[] = {{"127.0.0.1", "127.0.0.1 "}, {"::1", "::1 "}, {"127.1", "127.0.0.1 "}, {"localhost", ""}, {"", ""}};
  for (const auto &each : cases) EXPECT_EQ(TextOf(Parse(each.host)), each.text) << each.host;
  EXPECT_THAT(TextOf(Parse(nullptr)), testing::AllOf(testing::HasSubstr("0.0.0.0 "), testing::HasSubstr(":: ")));
  EXPECT_EQ(Parse("::1", 0, ZOR_ADDR_UDP)->ai_socktype, SOCK_DGRAM);
}

TEST(Addresses, AreMadeAndCopiedAsBlocksOfALimitedSize) {
  const AddrInfoList source = Parse("::1", 80);
  const AddrInfoList made(ZOR_UTIL_MakeAddrInfo(ZOR_ADDR_UDP | ZOR_ADDR_IPV6, source->ai_addr, source->ai_addrlen));
  EXPECT_EQ(made->ai_family, AF_INET6);
  EXPECT_EQ(made->ai_socktype, SOCK_DGRAM);
  EXPECT_EQ(static_cast<void *>(made->ai_addr), made.get() + 1);
  made->ai_next = Parse("10.0.0.1").release();
  char name[] = "not to be released twice";
  made->ai_canonname = name;
  EXPECT_EQ(TextOf(AddrInfoList(ZOR_UTIL_CopyAddrInfo(made.get(), 0))), "::1 ");
  EXPECT_EQ(TextOf(AddrInfoList(ZOR_UTIL_CopyAddrInfo(made.get(), 1))), "::1 10.0.0.1 ");
  made->ai_canonname = nullptr;
  EXPECT_EQ(ZOR_UTIL_CopyAddrInfo(nullptr, 1), nullptr);

  Capture output;
  const std::string large(kLargest, 'x');
  EXPECT_NE(AddrInfoList(ZOR_UTIL_MakeAddrInfo(0, large.data(), kLargest)), nullptr);
  EXPECT_EQ(ZOR_UTIL_MakeAddrInfo(0, large.data(), UINT32_MAX), nullptr) << "the sum does not wrap round";
  made->ai_next->ai_addrlen = kLargest + 1;
  EXPECT_EQ(ZOR_UTIL_CopyAddrInfo(made.get(), 1), nullptr);
  EXPECT_THAT(output.Text(),
              testing::EndsWith("error: not host tool, but malloc 4M, return NULL, malloc len=8388609\n"));
}

// The padding of an IPv4 address does not count, but what a record of another length holds in its place does.
TEST(Addresses, AreComparedWithoutPortFamilyAndPadding) {
  const struct {
    const char *a, *b;
    socklen_t length;  // 0: their own
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
    EXPECT_EQ(ZOR_UTIL_IsAddrInfoSame(a.get(), nullptr) + ZOR_UTIL_IsAddrInfoSame(nullptr, b.get()), 0u);
  }
}

TEST(Addresses, AreLoopbackForTwoAddressesOnly) {
  const struct {
    const char *text;
    uint32_t loopback;
  } cases[] = {{"127.0.0.1", 1}, {"127.0.0.2", 0}, {"::1", 1}, {"::ffff:127.0.0.1", 0}};
  for (const auto &each : cases) EXPECT_EQ(ZOR_UTIL_IsAddrLoopback(Parse(each.text).get()), each.loopback) << each.text;
  EXPECT_EQ(ZOR_UTIL_IsAddrLoopback(nullptr), 0u);
}

TEST(Multicast, GroupsAreJoinedInTheFamilyOfTheLocalAddress) {
  const struct {
    const char *local, *group;
    uint32_t status;
  } cases[] = {
      {"127.0.0.1", "239.1.2.3", ZOR_OK},
      {"127.0.0.1", "group", ZOR_E_ARGUMENT},
      {"127.0.0.1", "10.0.0.1", ZOR_E_IO},
      {"::1", "ff02::1234", ZOR_OK},
      {"::1", "group", ZOR_OK},
      {"::1", nullptr, ZOR_E_ARGUMENT},
  };
  for (const auto &each : cases) {
    const AddrInfoList local = Parse(each.local);
    const UniqueFd fd(::socket(local->ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(ZOR_UTIL_SocketJoinMcastEx(fd.get(), each.group, local.get(), "lo"), each.status) << each.local;
    int broadcast = -1;
    socklen_t size = sizeof broadcast;
    EXPECT_EQ(::getsockopt(fd.get(), SOL_SOCKET, SO_BROADCAST, &broadcast, &size), 0);
    EXPECT_EQ(broadcast, each.status == ZOR_OK ? 1 : 0);
    EXPECT_EQ(ZOR_UTIL_SocketJoinMcast(-1, "239.1.2.3", local.get()), ZOR_E_ARGUMENT);
    EXPECT_EQ(ZOR_UTIL_SocketJoinMcast(fd.get(), "239.1.2.3", nullptr), ZOR_E_ARGUMENT);
    if (each.status == ZOR_OK && local->ai_family == AF_INET6 && each.group[0] == 'f') {
      ipv6_mreq request = {reinterpret_cast<sockaddr_in6 *>(Parse(each.group)->ai_addr)->sin6_addr, 1};
      EXPECT_EQ(::setsockopt(fd.get(), IPPROTO_IPV6, IPV6_LEAVE_GROUP, &request, sizeof request), 0)
          << "can be left only on the interface on which it was joined";
    }
  }
  EXPECT_EQ(ZOR_UTIL_SocketSetTTL(-1, 1), ZOR_E_ARGUMENT);
  EXPECT_EQ(ZOR_UTIL_SocketSetTTL(9999, 1), 0xffffffffu);
}

}  // namespace
}  // namespace zor::test
