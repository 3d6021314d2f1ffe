#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zor/blur.h>

#include <array>
#include <climits>
#include <fstream>
#include <sstream>
#include <string>

#include "support/failing_alloc.h"
#include "support/temp_root.h"

namespace {

using Masker = const char *(*)(const char *);

struct Case {
  Masker mask;
  const char *text;
  const char *expected;
};

TEST(Blur, MasksTexts) {
  const Case cases[] = {
      {ZOR_Blur_Mac, "mac=00:11:22:33:44:55 end", "mac=**:**:**:**:**:******"},
      {ZOR_Blur_Mac, "00-11-22-33-44-55\nx", "*******************"},
      {ZOR_Blur_Mac, "00:11:22:33:44", "00:11:22:33:44"},
      {ZOR_Blur_Ip, "10.1.2.3", "**.*.*.*"},
      {ZOR_Blur_Ip, "::ffff:10.1.2.3", "******:**.*.*.*"},
      {ZOR_Blur_Ipv6, "::ffff:192.168.1.20 x", "******************* x"},
      {ZOR_Blur_Ipv6, "std::string", "st***string"},
      {ZOR_Blur_Ipv6, "[2001:db8::1]:80", "[***********]:80"},
      {ZOR_Blur_Ipv6, "1:2:3:4:5:6:7:8", "***************"},
      {ZOR_Blur_Ipv6, "1:2:3:4:5:6:1.2.3.4", "*******************"},
      {ZOR_Blur_Ipv6, "1:2:3:4:5::1.2.3.4", "******************"},
      {ZOR_Blur_Ipv6, "1::3:4:5:6:1.2.3.4", "******************"},
      {ZOR_Blur_Ipv6, "1:2:3:4:5:6:7:: a", "*************** a"},
      {ZOR_Blur_Ipv6, "::2:3:4:5:6:7:8 fe80::1", "*************** *******"},
      {ZOR_Blur_Ipv6, "12:30 is no address", "12:30 is no address"},
      {ZOR_Blur_Uuid, "id 1234-5678-9abc-0123456789ab.", "id 1234-5678-9abc-************."},
      {ZOR_Blur_SSID, "ab", "**"},
      {ZOR_Blur_SSID, "home", "h**e"},
      {ZOR_Blur_SSID, "", ""},
      {ZOR_Blur_Usb_Account, "a", "a******"},
      {ZOR_Blur_Usb_Account, "ab", "a******b"},
      {ZOR_Blur_Usb_Account, "a very long account name", "a******e"},
      {ZOR_Blur_Usb_Account, "", ""},
  };
  for (const Case &c : cases) EXPECT_STREQ(c.mask(c.text), c.expected) << c.text;
  for (const Masker mask :
       {ZOR_Blur_Mac, ZOR_Blur_Ip, ZOR_Blur_Ipv6, ZOR_Blur_Uuid, ZOR_Blur_SSID, ZOR_Blur_Usb_Account}) {
    EXPECT_STREQ(mask(nullptr), "");
  }
}

TEST(Blur, CutsLongTextsAndKeepsTheBufferTerminated) {
  const std::string longText(300, 'x');
  EXPECT_EQ(ZOR_Blur_Mac(longText.c_str()), std::string(259, 'x'));
  EXPECT_EQ(ZOR_Blur_SSID(std::string(35, 's').c_str()), "s" + std::string(33, '*') + "s");
  EXPECT_EQ(ZOR_Blur_SSID(std::string(36, 's').c_str()), "s" + std::string(34, '*'));
  EXPECT_EQ(ZOR_Blur_SSID(std::string(80, 's').c_str()), "s" + std::string(34, '*'));
}

TEST(Blur, ResultsOfTwoOperationsLiveTogetherAndMayBeMaskedAgain) {
  const char *mac = ZOR_Blur_Mac("00:11:22:33:44:55");
  const char *ip = ZOR_Blur_Ip("1.2.3.4");
  EXPECT_STREQ(mac, "**:**:**:**:**:**");
  EXPECT_STREQ(ip, "*.*.*.*");
  EXPECT_STREQ(ZOR_Blur_Mac(mac), "**:**:**:**:**:**");
  EXPECT_STREQ(ZOR_Blur_SSID(ZOR_Blur_SSID("home")), "h**e");
}

TEST(Blur, EveryByteBehindAnAddressIsOneStar) {
  EXPECT_STREQ(ZOR_Blur_Mac("00:11:22:33:44:55 \xc3\xa9"), "**:**:**:**:**:*****");
}

TEST(Blur, NeedsNoMemory) {
  std::array<const char *, 4> masked;
  bool failed;
  {
    const zor::test::FailingAllocations none(0, UINT_MAX);
    masked = {ZOR_Blur_Mac("00:11:22:33:44:55"), ZOR_Blur_Ip("1.2.3.4"), ZOR_Blur_Ipv6("fe80::1"),
              ZOR_Blur_Uuid("1234-5678-9abc-0123456789ab")};
    failed = none.Failed();
  }
  EXPECT_FALSE(failed);
  EXPECT_THAT(masked, testing::ElementsAre(testing::StrEq("**:**:**:**:**:**"), testing::StrEq("*.*.*.*"),
                                           testing::StrEq("*******"), testing::StrEq("1234-5678-9abc-************")));
}

class BlurFile : public testing::Test {
 protected:
  std::string Masked(const std::string &content) {
    std::ofstream(path_, std::ios::binary) << content;
    EXPECT_EQ(ZOR_Blur_File(path_.c_str()), ZOR_BLUR_OK);
    std::stringstream masked;
    masked << std::ifstream(path_, std::ios::binary).rdbuf();
    return masked.str();
  }

  zor::test::TempRoot root_;
  std::string path_ = root_.Path("/log.txt");
};

TEST_F(BlurFile, MasksEveryKindInPlace) {
  EXPECT_EQ(Masked(""), "");
  EXPECT_EQ(Masked("mac 00:11:22:33:44:55\nip 192.168.1.20 v6 fe80::1\nid 1234-5678-9abc-0123456789ab\n"),
            "mac 00:**:**:33:**:55\nip 192.***.*.20 v6 *******\nid 1234-5678-9abc-************\n");
  EXPECT_EQ(Masked(std::string("1.2.3.4\0 5.6.7.8", 16)), std::string("1.*.*.4\0 5.6.7.8", 16))
      << "a piece ends at its first zero byte";
}

TEST_F(BlurFile, ALaterRuleMasksWhatAnEarlierOneLeftToTheEndOfThePiece) {
  EXPECT_EQ(Masked("00:11:22:33:44:55:66:77:88:99:aa tail\n"), "00:**:**:33:**:**:**:**:**:**:********");
}

TEST_F(BlurFile, WorksInPiecesOf2048Bytes) {
  const std::string filler(2048 - 4, '.');
  EXPECT_EQ(Masked(filler + "10.1.2.3 and 10.1.2.3"), filler + "10.1.2.3 and 10.*.*.3");
  EXPECT_EQ(Masked(std::string(2048, 'x')), std::string(2048, 'x'));
}

TEST_F(BlurFile, ChecksThePathInOrder) {
  EXPECT_EQ(ZOR_Blur_File(nullptr), ZOR_BLUR_E_ARGUMENT);
  EXPECT_EQ(ZOR_Blur_File(std::string(4097, 'a').c_str()), ZOR_BLUR_E_PATH_LONG);
  EXPECT_EQ(ZOR_Blur_File(std::string(4096, 'a').c_str()), ZOR_BLUR_E_PATH);
  EXPECT_EQ(ZOR_Blur_File(""), ZOR_BLUR_E_PATH);
  EXPECT_EQ(ZOR_Blur_File(root_.Path("/var").c_str()), ZOR_BLUR_E_ARGUMENT);
}

TEST(DisguiseMac, MasksTheDigitsAndKeepsTheSeparators) {
  char out[18] = "untouched";
  EXPECT_EQ(ZOR_UTIL_Disguise_MacAddress(0, "00:11:22:33:44:55", out, 17), ZOR_BLUR_E_ARGUMENT);
  EXPECT_EQ(ZOR_UTIL_Disguise_MacAddress(0, "001122334455", out, sizeof out), 12u);
  EXPECT_STREQ(out, "untouched");
  EXPECT_EQ(ZOR_UTIL_Disguise_MacAddress(0, "00-11-22-33-44-55", out, sizeof out), ZOR_BLUR_OK);
  EXPECT_STREQ(out, "**-**-**-**-**-**");
  EXPECT_EQ(ZOR_UTIL_Disguise_MacAddress(0, out, out, sizeof out), ZOR_BLUR_OK);
  EXPECT_EQ(ZOR_UTIL_Disguise_MacAddress(1, nullptr, out, sizeof out), ZOR_BLUR_OK);
  EXPECT_STREQ(out, "**:**:**:**:**:**");
  EXPECT_EQ(ZOR_UTIL_Disguise_MacAddress(1, nullptr, nullptr, 99), ZOR_BLUR_E_ARGUMENT);
}

}  // namespace
