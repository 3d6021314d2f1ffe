#include <zor/msg_build.h>

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
               {{}, {}}};
  for (const auto &each : cases) {
    WriteStates(each.states);
    EXPECT_EQ(ZOR_UPG_RemoveDevKivaInfoFromXDR(), ZOR_OK);
    EXPECT_EQ(KivaMacs(), each.macs);
  }
}

}  // namespace
}  // namespace zor::test
