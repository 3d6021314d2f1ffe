// The flat file of the example platform. What platform_test asks of any store is asked there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zor/platform/config.h>
#include <zor/platform/config_file.h>
#include <zor/platform/config_list.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/temp_root.h"

namespace {

using testing::ElementsAre;

class VendorStore : public testing::Test {
 protected:
  static uint32_t SetPara(uint32_t id, const std::string &value) {
    return ZOR_DBSetPara(id, 0, value.data(), static_cast<uint32_t>(value.size()));
  }

  static std::string GetPara(uint32_t id) {
    std::array<char, 64> value = {};
    const uint32_t status = ZOR_DBGetPara(id, 0, value.data(), value.size() - 1);
    return status == ZOR_STORE_OK ? value.data() : "status " + std::to_string(status & 0xff);
  }

  static std::vector<std::string> List() {
    std::vector<std::string> lines;
    const auto visit = [](const ZOR_STORE_ENTRY *entry, void *context) {
      std::string line;
      for (const uint32_t each : {entry->kind, entry->id, entry->instance, entry->size}) {
        line += std::to_string(each) + " ";
      }
      static_cast<std::vector<std::string> *>(context)->push_back(line + (entry->name != nullptr ? entry->name : "-"));
    };
    EXPECT_EQ(ZOR_STORE_List(visit, &lines), ZOR_STORE_OK);
    return lines;
  }

  zor::test::TempRoot root_;
  const std::string path_ = root_.Path(ZOR_STORE_PATH);
  const std::string file_ = root_.Path("/saved");
};

TEST_F(VendorStore, ObjectsAreMergedCountedAndListedInOrder) {
  ZOR_CFM_OBJ *object = nullptr;
  ASSERT_EQ(ZOR_CFM_SetObjStrValue(&object, "b", "1"), ZOR_STORE_OK);
  ASSERT_EQ(ZOR_CFM_SetObjStrValue(&object, "a", "long"), ZOR_STORE_OK);
  ASSERT_EQ(ZOR_CFM_SetObjStrValue(&object, "b", "22"), ZOR_STORE_OK);
  uint32_t number = 0;
  ASSERT_EQ(ZOR_DBAddObj(7, object, &number), ZOR_STORE_OK);
  ASSERT_EQ(ZOR_DBAddObj(7, nullptr, &number), ZOR_STORE_OK);
  EXPECT_EQ(number, 2u);
  ZOR_CFM_FreeObj(object);
  object = nullptr;
  ASSERT_EQ(ZOR_CFM_SetObjStrValue(&object, "c", ""), ZOR_STORE_OK);
  object->objectClass = 7;
  object->instance = 1;
  EXPECT_EQ(ZOR_DBSetObj(object), ZOR_STORE_OK);
  object->instance = 3;
  EXPECT_EQ(ZOR_DBSetObj(object), ZOR_STORE_E_NOT_FOUND);
  ZOR_CFM_FreeObj(object);
  const uint32_t item = 5;
  EXPECT_EQ(ZOR_WriteAppDataFunc(9, &item, sizeof item), ZOR_STORE_OK);
  EXPECT_EQ(SetPara(2, "xyz"), ZOR_STORE_OK);
  EXPECT_THAT(List(), ElementsAre("1 2 0 3 -", "2 7 1 4 a", "2 7 1 2 b", "2 7 1 0 c", "2 7 2 0 -", "3 9 0 4 -"));
  ASSERT_EQ(ZOR_DBGetObj(7, 1, &object), ZOR_STORE_OK);
  EXPECT_STREQ(object->values->next->value, "22");
  ZOR_CFM_FreeObj(object);
  uint32_t count = 0;
  EXPECT_EQ(ZOR_DBGetNumOfObjs(7, &count), ZOR_STORE_OK);
  EXPECT_EQ(count, 2u);
}

TEST_F(VendorStore, FilesHoldTheirPartsAndComeBack) {
  const uint32_t item = 5;
  ASSERT_EQ(SetPara(1, "old"), ZOR_STORE_OK);
  ASSERT_EQ(ZOR_WriteAppDataFunc(1, &item, sizeof item), ZOR_STORE_OK);
  ASSERT_EQ(ZOR_STORE_WriteFile(file_.c_str(), ZOR_STORE_CONFIGURATION), ZOR_STORE_OK);
  ASSERT_EQ(SetPara(1, "new"), ZOR_STORE_OK);
  ASSERT_EQ(SetPara(2, "new"), ZOR_STORE_OK);
  ASSERT_EQ(ZOR_STORE_ReadFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_OK);
  EXPECT_THAT(List(), ElementsAre("1 1 0 3 -")) << "the file has no application data";
  EXPECT_EQ(GetPara(1), "old");
  EXPECT_EQ(ZOR_STORE_Clear(ZOR_STORE_CONFIGURATION), ZOR_STORE_OK);
  EXPECT_EQ(GetPara(1), "status 2");
}

TEST_F(VendorStore, AForeignOrDamagedFileIsRefusedAndChangesNothing) {
  ASSERT_EQ(SetPara(1, "kept"), ZOR_STORE_OK);
  zor::test::Capture errors(2);
  const auto refuse = [&](const char *what) {
    EXPECT_EQ(ZOR_STORE_CheckFile(file_.c_str()), ZOR_STORE_E_IO) << what;
    EXPECT_EQ(ZOR_STORE_ReadFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_E_IO) << what;
    EXPECT_EQ(ZOR_STORE_WriteFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_E_IO) << what;
    EXPECT_EQ(GetPara(1), "kept") << what;
    std::filesystem::remove(file_);
  };
  std::ofstream(file_) << "not a store, but longer than its head and its sum together";
  refuse("text");
  ::mkfifo(file_.c_str(), 0600);
  refuse("pipe");
  ASSERT_EQ(ZOR_STORE_WriteFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_OK);
  const auto size = std::filesystem::file_size(file_);
  std::filesystem::resize_file(file_, size - 1);
  refuse("cut");
  for (const auto offset : {uintmax_t{8}, uintmax_t{20}, size - 1}) {
    ASSERT_EQ(ZOR_STORE_WriteFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_OK);
    std::fstream(file_, std::ios::in | std::ios::out | std::ios::binary).seekp(static_cast<std::streamoff>(offset))
        << 'Z';
    refuse("changed");
  }
  std::ofstream(path_) << "no store";
  EXPECT_EQ(SetPara(1, "x"), ZOR_STORE_E_IO);
  EXPECT_THAT(errors.Text(), testing::HasSubstr("no store, or a damaged one"));
}

}  // namespace
