#include <zor/platform/config.h>

#include <cstdlib>
#include <ctime>
#include <memory>

#include "kivaapi/device_files.h"
#include "mlogapi/log_socket.h"

namespace zor::test {
namespace {

struct Free {
  void operator()(void *block) const { std::free(block); }
};
using Info = std::unique_ptr<ZOR_KIVA_UPDATE_INFO, Free>;
using Text = std::unique_ptr<char, Free>;

constexpr char kFile[] = "/var/current_kiva_001122AABBCC.xml";
const std::string kValue("\x2a\0\0\0", 4);

class UpdateInfo : public DeviceFiles {};

TEST_F(UpdateInfo, OfADeviceIsAFileOfExactlyItsText) {
  const std::string longest(5118, 't');
  const std::string tooLong(5119, 't');
  const struct {
    const char *text;
    std::string stored;
  } cases[] = {{"report", "report"}, {nullptr, ""}, {longest.c_str(), longest}, {tooLong.c_str(), ""}};
  for (const auto &each : cases) {
    EXPECT_EQ(ZOR_UPG_SaveUpdateInfo("00:11:22:aa:bb:cc", 42, each.text), 0u);
    EXPECT_EQ(Read(kFile), kValue + each.stored + '\0');
    const Info info(ZOR_UPG_GetUpdateInfo("001122AABBCC"));
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->value, 42u);
    EXPECT_EQ(info->text, each.stored);
  }
  EXPECT_EQ(ZOR_UPG_ClearUpdateInfo("001122aabbcc"), 0u);
  EXPECT_FALSE(std::filesystem::exists(root_.Path(kFile)));
  EXPECT_EQ(ZOR_UPG_GetUpdateInfo("001122aabbcc"), nullptr);
}

TEST_F(UpdateInfo, OfADeviceNeedsANameAndEndsWhereTheRecordDoes) {
  Write(kFile, std::string(9000, 'f'));
  const Info info(ZOR_UPG_GetUpdateInfo("001122AABBCC"));
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->text, std::string(5119, 'f'));
  EXPECT_EQ(ZOR_UPG_SaveUpdateInfo(std::string(40, 'm').c_str(), 42, ""), 0u);
  EXPECT_EQ(Read("/var/current_kiva_" + std::string(35, 'M') + ".xml"), kValue + '\0');
  EXPECT_EQ(ZOR_UPG_SaveUpdateInfo("::", 42, ""), 0u);
  EXPECT_EQ(ZOR_UPG_GetUpdateInfo("::"), nullptr);
  EXPECT_EQ(ZOR_UPG_SaveUpdateInfo(nullptr, 42, ""), 1u);
  EXPECT_EQ(ZOR_UPG_ClearUpdateInfo(""), 1u);
}

TEST_F(UpdateInfo, OfTheGatewayIsItsDescriptionOrNothing) {
  ::setenv("TZ", "UTC-2", 1);
  const auto before = static_cast<uint32_t>(std::time(nullptr));
  EXPECT_EQ(ZOR_UPG_RecordTimeAndLog(1), 1u) << "without a MAC there is no description";
  const unsigned char mac[] = {0, 0x11, 0x22, 0xaa, 0xbb, 0xcc};
  ZOR_WriteAppDataFunc(0x80000306, mac, sizeof mac);
  EXPECT_EQ(ZOR_UPG_RecordTimeAndLog(1), 1u) << "without a file there is none";
  const Info none(ZOR_UPG_GetSelfUpdateInfo());
  EXPECT_GE(none->value, before);
  EXPECT_STREQ(none->text, "");
  Write("/var/kiva/kiva_001122AABBCC.xml", "<new/>");
  EXPECT_EQ(ZOR_UPG_RecordTimeAndLog(1), 0u);
  EXPECT_STREQ(Info(ZOR_UPG_GetSelfUpdateInfo())->text, "<new/>");
  EXPECT_EQ(ZOR_UPG_RecordTimeAndLog(2), 1u);
  EXPECT_STREQ(Info(ZOR_UPG_GetSelfUpdateInfo())->text, "");
  const uint32_t time = 86400;
  ZOR_WriteAppDataFunc(0x2000050b, &time, sizeof time);
  EXPECT_STREQ(Text(ZOR_UPG_GetSelfUpdateInfoTime()).get(), "1970-01-02 02:00:00");
}

TEST_F(UpdateInfo, OfTheGatewayMayBeMissingOrTooLong) {
  LogSocket log;
  const Info missing(ZOR_UPG_GetSelfUpdateInfo());
  ASSERT_NE(missing, nullptr);
  EXPECT_EQ(missing->value, 0u);
  EXPECT_THAT(log.NextLine(), testing::EndsWith("[upgapi][ERRO]:kiva update info read upgtime failed 10002\n"));
  EXPECT_EQ(ZOR_UPG_GetSelfUpdateInfoTime(), nullptr);
  const std::string longest(5119, 'l');
  EXPECT_EQ(ZOR_UPG_SetSelfUpdateInfo(longest.c_str()), 1u);
  EXPECT_EQ(Info(ZOR_UPG_GetSelfUpdateInfo())->text, longest);
  EXPECT_EQ(ZOR_UPG_SetSelfUpdateInfo((longest + 'l').c_str()), 1u);
  EXPECT_STREQ(Info(ZOR_UPG_GetSelfUpdateInfo())->text, "");
}

}  // namespace
}  // namespace zor::test
