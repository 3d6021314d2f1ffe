#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zor/mlog.h>
#include <zor/wlan.h>

#include <array>
#include <cstring>

#include "support/temp_root.h"

namespace {

using Mac = std::array<uint8_t, 6>;
using Derive = uint32_t (*)(const uint8_t *, uint8_t *, uint32_t);

struct Rule {
  Derive derive;
  Mac base;
  Mac expected;
};

TEST(InterfaceMac, FollowsTheRulesForEveryInterface) {
  const Mac base = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
  const auto at = [](uint8_t last) { return Mac{0x00, 0x11, 0x22, 0x33, 0x44, last}; };
  const Rule rules[] = {
      {ZOR_WLAN_GetWlanMacFromBaseMac, base, at(0x5c)},
      {ZOR_WLAN_GetWlanDownHiddenIntfMacFromBaseMac, base, at(0x5d)},
      {ZOR_WLAN_GetWlanUpIntfMacFromBaseMac, base, at(0x5f)},
      {ZOR_WLAN_GetWlan5gMacFromBaseMac, base, at(0x60)},
      {ZOR_WLAN_GetWlan5gUpIntfMacFromBaseMac, base, at(0x60)},
      {ZOR_WLAN_GetInternetEthUpIntfMacFromBaseMac, base, at(0x56)},
      {ZOR_WLAN_GetQuorelEthUpIntfMacFromBaseMac, base, at(0x57)},
      {ZOR_WLAN_GetWlanMacFromBaseMac, {1, 2, 3, 0, 0, 0x10}, {1, 2, 3, 0, 0, 0x18}},
      {ZOR_WLAN_GetWlanMacFromBaseMac, {1, 2, 3, 0, 0, 0x13}, {1, 2, 3, 0, 0, 0x1c}},
      {ZOR_WLAN_GetWlanMacFromBaseMac, {1, 2, 3, 0xff, 0xff, 0xfa}, {1, 2, 3, 0, 0, 0}},
      {ZOR_WLAN_GetWlan5gMacFromBaseMac, {1, 2, 3, 0xff, 0xff, 0xf6}, {1, 2, 3, 0, 0, 0}},
      {ZOR_WLAN_GetInternetEthUpIntfMacFromBaseMac, {1, 2, 3, 0xff, 0xff, 0xff}, {1, 2, 3, 0, 0, 0}},
  };
  for (const Rule &rule : rules) {
    Mac inPlace = rule.base;
    EXPECT_EQ(rule.derive(inPlace.data(), inPlace.data(), inPlace.size()), 0u);
    EXPECT_EQ(inPlace, rule.expected) << "rule " << &rule - rules;
  }
}

TEST(InterfaceMac, TheTextRuleFillsOneCharacterACall) {
  char text[18] = "00:11:22:33:44:55";
  const char *expected[] = {"00:11:22:F3:44:55", "00:11:22:FF:44:55", "00:11:22:FF:F4:55", "00:11:22:FF:FF:55",
                            "00:11:2F:FF:FF:55", "00:11:FF:FF:FF:55", "00:1F:FF:FF:FF:55", "00:FF:FF:FF:FF:55",
                            "F0:FF:FF:FF:FF:55", "F0:FF:FF:FF:FF:F5", "F0:FF:FF:FF:FF:FF", "F0:FF:FF:FF:FF:FF"};
  for (const char *step : expected) {
    EXPECT_EQ(ZOR_WLAN_GetWlan5gDownHiddenIntfMacFrom5gMainMac(text, text, sizeof text), 0u);
    EXPECT_STREQ(text, step);
  }
  char shortText[18];
  std::memset(shortText, 'x', sizeof shortText);
  EXPECT_EQ(ZOR_WLAN_GetWlan5gDownHiddenIntfMacFrom5gMainMac("00:11", shortText, sizeof shortText), 0u);
  EXPECT_STREQ(shortText, "00:11");
}

TEST(InterfaceMac, TooLittleRoomOrANullFailsAndTouchesNothing) {
  Mac mac = {};
  char text[18] = "00:11:22:33:44:55";
  EXPECT_EQ(ZOR_WLAN_GetWlanUpIntfMacFromBaseMac(mac.data(), mac.data(), 5), 1u);
  EXPECT_EQ(ZOR_WLAN_GetWlanMacFromBaseMac(nullptr, mac.data(), 6), 1u);
  EXPECT_EQ(ZOR_WLAN_IncreaseMacValByOffset(mac.data(), 14, mac.data(), 6), 1u);
  Mac sum = {};
  EXPECT_EQ(ZOR_WLAN_IncreaseMacValByOffset(mac.data(), 13, sum.data(), 6), 0u);
  EXPECT_EQ(sum, (Mac{0, 0, 0, 0, 0, 13}));
  EXPECT_EQ(ZOR_WLAN_GetWlan5gDownHiddenIntfMacFrom5gMainMac(text, text, 17), 1u);
  EXPECT_EQ(mac, Mac{});
  EXPECT_STREQ(text, "00:11:22:33:44:55");
}

TEST(InterfaceMac, AFailureIsLoggedWithFourExclamationMarks) {
  const zor::test::TempRoot root;
  int32_t fd = -1;
  ZOR_MLOG_MSG line;
  ASSERT_EQ(mlog_socket_open(ZOR_MLOG_SERVER_NAME, &fd), 0);
  EXPECT_EQ(ZOR_WLAN_GetWlan5gMacFromBaseMac(nullptr, nullptr, 0), 1u);
  ASSERT_EQ(mlog_recv_msg(fd, &line, 10, nullptr, 0), 0);
  EXPECT_THAT(line.data, testing::MatchesRegex(".*wlancomapi.*ERRO.:<ZOR_WLAN_GetWlan5gMacFromBaseMac [0-9]+> 1 Input "
                                               "parameters is NULL pointer, and return here!!!!\n"));
  mlog_socket_close(fd, ZOR_MLOG_SERVER_NAME);
}

}  // namespace
