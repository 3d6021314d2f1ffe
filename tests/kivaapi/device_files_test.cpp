// The crash list, and how both lists handle long and damaged files.
#include <cstdlib>

#include "kivaapi/device_files.h"
#include "support/in_memory.h"

namespace zor::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(DeviceFiles, HoldCrashRecordsAndReportThatThereWasNoneBefore) {
  EXPECT_EQ(ZOR_Crash_RemoveNodeByMac("aa"), ZOR_FILE_E_IO);
  EXPECT_EQ(AddCrash("aa", 1), ZOR_FILE_E_IO);
  EXPECT_EQ(Read(ZOR_PATH_CRASH_LIST), XdrWords({0}) + CrashBytes("aa", 1));
  EXPECT_EQ(AddCrash("bb", 2), ZOR_OK);
  char mac[] = "AA";
  const dev_crash_info empty = {mac, nullptr, nullptr, nullptr, nullptr, 0};
  EXPECT_EQ(ZOR_Crash_UpdateAndAddDevInfoToXdr(&empty), ZOR_OK);
  EXPECT_EQ(Read(ZOR_PATH_CRASH_LIST),
            XdrWords({1, 0}) + CrashBytes("bb", 2) + XdrText("AA") + XdrWords({0, 0, 0, 0, 0}));
  EXPECT_THAT(CrashMacs(), ElementsAre("AA", "bb"));
  for (const char *each : {"other", "aa", "bb"}) EXPECT_EQ(ZOR_Crash_RemoveNodeByMac(each), ZOR_OK);
  EXPECT_EQ(Read(ZOR_PATH_CRASH_LIST), "");
}

TEST_F(DeviceFiles, OfAnyLengthAreReadWithoutRecursion) {
  constexpr size_t kManyRecords = 100000;
  std::string crash;
  for (size_t i = 1; i < kManyRecords; ++i) crash += XdrWords({1});
  crash += XdrWords({0});
  for (size_t i = 0; i < kManyRecords; ++i) crash += CrashBytes("", 0);
  Write(ZOR_PATH_CRASH_LIST, crash);
  EXPECT_EQ(CrashMacs().size(), kManyRecords);
  Write(ZOR_PATH_KIVA_LIST, KivaFile(std::vector<std::string>(kManyRecords, KivaBytes("", 0))));
  EXPECT_EQ(ZOR_UPG_GetKivaInfoListCount(), kManyRecords);
}

TEST_F(DeviceFiles, ThatAreCutAnywhereKeepTheirWholeRecords) {
  const std::string crash = XdrWords({1, 0}) + CrashBytes("B", 2) + CrashBytes("A", 1);
  for (size_t cut = 0; cut < crash.size(); ++cut) {
    Write(ZOR_PATH_CRASH_LIST, crash.substr(0, cut));
    EXPECT_EQ(CrashMacs().size(), cut < 8 + CrashBytes("B", 2).size() ? 0u : 1u) << cut;
  }
  const std::string kiva = XdrWords({1, 1, 0}) + KivaBytes("B", 2) + KivaBytes("A", 1);
  for (size_t cut = 0; cut <= kiva.size(); ++cut) {
    Write(ZOR_PATH_KIVA_LIST, kiva.substr(0, cut));
    EXPECT_EQ(KivaMacs().size(), cut == kiva.size() ? 2u : cut >= 12 + 44 ? 1u : 0u) << cut;
  }
}

TEST_F(DeviceFiles, ThatClaimTooMuchHoldNothingAndCanBeWrittenAnew) {
  std::string markers;
  for (int i = 0; i < 300000; ++i) markers += XdrWords({1});
  const struct {
    std::string crash, kiva;
  } claims[] = {{markers, markers},
                {XdrWords({0, 0xffffffff}), XdrWords({1, 0, 1, 2, 3, 4, 5, 0xffffffff})},
                {"no list at all", "no list at all"}};
  for (const auto &claim : claims) {
    Write(ZOR_PATH_CRASH_LIST, claim.crash);
    EXPECT_THAT(CrashMacs(), IsEmpty());
    Write(ZOR_PATH_KIVA_LIST, claim.kiva);
    EXPECT_THAT(KivaMacs(), IsEmpty());
  }
  EXPECT_EQ(AddKiva("A", 1) | AddCrash("A", 1), ZOR_OK);
  EXPECT_THAT(KivaMacs(), ElementsAre("A"));
}

// The longest text is 5119 bytes.
TEST_F(DeviceFiles, OfUpdatesEndWhereTheirRecordDoes) {
  Write("/var/current_kiva_001122AABBCC.xml", std::string(9000, 'f'));
  ZOR_KIVA_UPDATE_INFO *info = ZOR_UPG_GetUpdateInfo("00:11:22:aa:bb:cc");
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->text, std::string(5119, 'f'));
  std::free(info);
  EXPECT_EQ(ZOR_UPG_SaveUpdateInfo(std::string(40, 'm').c_str(), 42, std::string(5119, 't').c_str()), 0u);
  EXPECT_EQ(Read("/var/current_kiva_" + std::string(35, 'M') + ".xml"), InMemory(uint32_t{42}) + std::string(1, '\0'))
      << "too long";
}

}  // namespace
}  // namespace zor::test
