#include <sys/stat.h>
#include <zor/msg_build.h>
#include <zor/platform/config.h>

#include <cstdlib>
#include <cstring>

#include "kivaapi/device_files.h"

namespace zor::test {
namespace {

using testing::ElementsAre;

class KivaList : public DeviceFiles {
 protected:
  // A list of records with the MACs "1", "2" and so on and the given states.
  void WriteStates(const std::vector<uint32_t> &states) {
    std::vector<std::string> records;
    for (size_t i = states.size(); i > 0; --i) records.push_back(KivaBytes(std::to_string(i), states[i - 1]));
    Write(ZOR_PATH_KIVA_LIST, KivaFile(records));
  }
  // Applies a message with the given body.
  static uint32_t Apply(uint32_t (*proc)(ZOR_MSG_HEAD *), const std::string &bytes) {
    void *body = ZOR_MSG_GetMsgBlock(static_cast<uint32_t>(bytes.size()));
    std::memcpy(body, bytes.data(), bytes.size());
    const uint32_t status = proc(ZOR_MSG_GetMsgHead(body));
    std::free(ZOR_MSG_GetMsgHead(body));
    return status;
  }
};

TEST_F(KivaList, TakesNewRecordsInFrontAndOverwritesOldOnes) {
  EXPECT_EQ(AddKiva("aa", 3) | AddKiva("bb", 5), ZOR_OK);
  EXPECT_EQ(Read(ZOR_PATH_KIVA_LIST), KivaFile({KivaBytes("aa", 3), KivaBytes("bb", 5)}));
  EXPECT_EQ(AddKiva("AA", 9), ZOR_OK);
  EXPECT_EQ(Read(ZOR_PATH_KIVA_LIST), KivaFile({KivaBytes("AA", 9), KivaBytes("bb", 5)}));
  EXPECT_THAT(KivaMacs(), ElementsAre("bb", "AA"));
  struct stat status = {};
  ASSERT_EQ(::stat(root_.Path(ZOR_PATH_KIVA_LIST).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST_F(KivaList, AppliesRequestsToAddAndRefusesIncompleteOnes) {
  const kiva_info_status status = {1, 2, 3, 4, 1};
  const std::string whole = std::string(reinterpret_cast<const char *>(&status), 20) + std::string("aa\0d\0x\0", 7);
  for (size_t length = 0; length < whole.size(); ++length) {
    EXPECT_EQ(Apply(ZOR_UPG_DevKivaAddProc, whole.substr(0, length)), ZOR_KIVA_E_ARGUMENT) << length;
  }
  EXPECT_FALSE(std::filesystem::exists(root_.Path(ZOR_PATH_KIVA_LIST)));
  EXPECT_EQ(Apply(ZOR_UPG_DevKivaAddProc, whole), ZOR_OK);
  EXPECT_EQ(Read(ZOR_PATH_KIVA_LIST), KivaFile({KivaBytes("aa", 3, 1)}));
}

TEST_F(KivaList, AppliesRequestsToRemoveWithAndWithoutTheirPadding) {
  WriteStates({0, 0, 0, 0});
  EXPECT_EQ(Apply(ZOR_UPG_DevKivaInfoRemoveProc, "2" + std::string(17, '\0')), ZOR_OK);
  EXPECT_EQ(Apply(ZOR_UPG_DevKivaInfoRemoveProc, "3"), ZOR_OK);
  EXPECT_EQ(Apply(ZOR_UPG_DevKivaInfoRemoveProc, std::string(100, '4')), ZOR_OK);
  EXPECT_EQ(Apply(ZOR_UPG_DevKivaInfoRemoveProc, ""), ZOR_KIVA_E_ARGUMENT);
  EXPECT_THAT(KivaMacs(), ElementsAre("1", "4"));
  WriteStates({0});
  EXPECT_EQ(Apply(ZOR_UPG_DevKivaInfoRemoveProc, "1"), ZOR_OK);
  EXPECT_EQ(Read(ZOR_PATH_KIVA_LIST), std::string(24, '\0'));
}

TEST_F(KivaList, IsPrunedOfEverySecondRecordThatIsNotKept) {
  const struct {
    std::vector<uint32_t> states;
    std::vector<std::string> macs;
  } cases[] = {{{1, 2, 3, 4, 5, 6}, {"2", "4", "6"}},
               {{18, 5, 7, 9}, {"1", "3", "4"}},
               {{5, 7, 18, 9}, {"2", "3", "4"}},
               {{5}, {"1"}},
               {{}, {}}};
  for (const auto &each : cases) {
    WriteStates(each.states);
    EXPECT_EQ(ZOR_UPG_RemoveDevKivaInfoFromXDR(), ZOR_OK);
    EXPECT_EQ(KivaMacs(), each.macs);
  }
}

TEST_F(KivaList, MarksTheListedDevicesForAnUpdate) {
  const std::string a = "0011223344aa";
  const std::string b = "0011223344bb";
  const struct {
    std::string macs;
    uint32_t a, b;
  } cases[] = {{"", 0, 0},
               {"0011223344AA", 1, 0},
               {"unknown_mac_;" + b, 0, 1},
               {a + ";" + b + ";", 1, 1},
               {a + ";" + b.substr(0, 11), 1, 0}};
  for (const auto &each : cases) {
    Write(ZOR_PATH_KIVA_LIST, KivaFile({KivaBytes(b, 1), KivaBytes(a, 1)}));
    EXPECT_EQ(ZOR_UPG_SetUpdateFlag(each.macs.c_str()), ZOR_OK);
    EXPECT_EQ(ZOR_UPG_IsDevNeedUpdate(a.c_str()), each.a) << each.macs;
    EXPECT_EQ(ZOR_UPG_IsDevNeedUpdate(b.c_str()), each.b) << each.macs;
  }
}

TEST_F(KivaList, IsSearchedForAMacOrTheGatewaysOwn) {
  Write(ZOR_PATH_KIVA_LIST, KivaFile({KivaBytes("001122aabbcc", 7), KivaBytes("1", 2)}));
  EXPECT_EQ(ZOR_UPG_GetKivaInfoByMac(nullptr), nullptr);
  const unsigned char own[] = {0, 0x11, 0x22, 0xaa, 0xbb, 0xcc};
  ASSERT_EQ(ZOR_WriteAppDataFunc(0x80000306, own, sizeof own), ZOR_STORE_OK);
  char *mac = ZOR_UPG_GetDevMac(nullptr);
  EXPECT_STREQ(mac, "001122AABBCC");
  for (const char *key : {static_cast<const char *>(nullptr), static_cast<const char *>(mac)}) {
    dev_kiva_info *info = ZOR_UPG_GetKivaInfoByMac(key);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->status.state, 7u);
    ZOR_UPG_DestroyKivaInfo(info);
    std::free(info);
  }
  std::free(mac);
}

TEST_F(KivaList, ReportsThatItCannotBeReadAndWritesNothingThen) {
  std::filesystem::create_directory(root_.Path(ZOR_PATH_KIVA_LIST));
  dev_kivainfo_list head;
  EXPECT_EQ(ZOR_UPG_GetKivaInfoList(&head), ZOR_FILE_E_IO);
  EXPECT_EQ(head.next, nullptr);
  EXPECT_EQ(AddKiva("aa", 0), ZOR_FILE_E_IO);
  EXPECT_EQ(ZOR_UPG_SetUpdateFlag(""), ZOR_FILE_E_IO);
  EXPECT_EQ(ZOR_UPG_RemoveDevKivaInfoFromXDR(), ZOR_FILE_E_IO);
  EXPECT_EQ(Apply(ZOR_UPG_DevKivaInfoRemoveProc, "1"), ZOR_FILE_E_IO);
}

TEST_F(KivaList, ShowsOnlyHalfOfAMac) {
  const struct {
    const char *mac;
    uint32_t size;
    const char *out;
  } cases[] = {{"001122AABBCC", 13, "**11**AA**CC"},
               {"001122AABBCC", 12, "untouched"},
               {"001122AABBC", 20, "untouched"},
               {"001122AABBCCD", 20, "untouched"}};
  for (const auto &each : cases) {
    char out[20] = "untouched";
    ZOR_KIVA_DisguiseMacAddress(each.mac, out, each.size);
    EXPECT_STREQ(out, each.out);
  }
}

}  // namespace
}  // namespace zor::test
