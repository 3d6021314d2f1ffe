#include <dlfcn.h>
#include <gtest/gtest.h>
#include <zor/platform/config.h>
#include <zor/status.h>

#include <cerrno>
#include <string>
#include <vector>

#include "sockutil/socket_fixture.h"
#include "support/temp_root.h"

namespace zor::test {
namespace {

// Outcomes of the next lookups. While there are any, they replace the system's resolver.
struct Outcome {
  int result;
  int error;
};
std::vector<Outcome> outcomes;
std::string lookups;  // '4' and '6' for the families asked for

}  // namespace
}  // namespace zor::test

int getaddrinfo(const char *host, const char *service, const addrinfo *hints, addrinfo **list) {
  using zor::test::outcomes;
  const auto resolve = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, __func__));
  if (outcomes.empty()) return resolve(host, service, hints, list);
  zor::test::lookups += hints->ai_family == AF_INET6 ? '6' : '4';
  const zor::test::Outcome outcome = outcomes.front();
  outcomes.erase(outcomes.begin());
  if (outcome.error != 0) errno = outcome.error;
  if (outcome.result != 0) return outcome.result;
  return resolve(hints->ai_family == AF_INET6 ? "::1" : "127.0.0.1", service, hints, list);
}

namespace zor::test {
namespace {

TEST(Resolve, AsksForTheFamiliesOfTheDeviceAndOnceMoreWhenItFailsForNow) {
  const TempRoot root;
  constexpr Outcome kGood = {0, 0};
  constexpr Outcome kNever = {EAI_NONAME, 0};
  constexpr Outcome kLater = {EAI_AGAIN, 0};
  const struct {
    uint32_t ipv6;
    std::vector<Outcome> outcomes;
    const char *lookups;
    uint32_t status;
    const char *list;
  } cases[] = {
      {0, {kGood}, "4", ZOR_OK, "127.0.0.1 "},
      {1, {kGood, kGood}, "64", ZOR_OK, "::1 127.0.0.1 "},
      {1, {kGood, kNever}, "64", ZOR_E_IO, "::1 "},
      {1, {kLater, kGood, kLater, kGood}, "6644", ZOR_OK, "::1 127.0.0.1 "},
      {0, {kLater, kLater}, "44", ZOR_E_IO, ""},
      {0, {{EAI_SYSTEM, EINTR}, kGood}, "44", ZOR_OK, "127.0.0.1 "},
      {0, {{EAI_SYSTEM, EAGAIN}, kNever}, "44", ZOR_E_IO, ""},
      {0, {{EAI_SYSTEM, EIO}}, "4", ZOR_E_IO, ""},
  };
  for (const auto &each : cases) {
    EXPECT_EQ(ZOR_DBSetPara(ZOR_PARA_IPV6_ENABLED, 0, &each.ipv6, sizeof each.ipv6), ZOR_STORE_OK);
    outcomes = each.outcomes;
    lookups.clear();
    errno = EINTR;
    addrinfo *out = nullptr;
    EXPECT_EQ(ZOR_UTIL_GetIpAddresses("name", nullptr, 4660, &out), each.status) << each.lookups;
    const AddrInfoList list(out);
    EXPECT_EQ(lookups, each.lookups);
    EXPECT_EQ(TextOf(list), each.list);
  }
}

}  // namespace
}  // namespace zor::test
