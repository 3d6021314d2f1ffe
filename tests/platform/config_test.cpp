#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/platform/config.h>
#include <zor/platform/config_file.h>

#include <array>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/child.h"
#include "support/temp_root.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using zor::test::Capture;
using zor::test::Child;
using zor::test::TempRoot;
using zor::test::WaitUntil;
using Values = std::map<std::string, std::string>;

uint32_t SetPara(uint32_t id, const std::string &value) {
  return ZOR_DBSetPara(id, 0, value.data(), static_cast<uint32_t>(value.size()));
}

std::string GetPara(uint32_t id) {
  std::array<char, 64> value = {};
  const uint32_t status = ZOR_DBGetPara(id, 0, value.data(), value.size() - 1);
  return status == ZOR_STORE_OK ? value.data() : "status " + std::to_string(status & 0xff);
}

struct Object {
  explicit Object(const Values &values, uint32_t objectClass = 0, uint32_t instance = 0) {
    for (const auto &[name, value] : values) ZOR_CFM_SetObjStrValue(&record, name.c_str(), value.c_str());
    record->objectClass = objectClass;
    record->instance = instance;
  }
  ~Object() { ZOR_CFM_FreeObj(record); }
  Object(const Object &) = delete;

  ZOR_CFM_OBJ *record = nullptr;
};

Values Stored(uint32_t objectClass, uint32_t instance) {
  ZOR_CFM_OBJ *object = nullptr;
  if (ZOR_DBGetObj(objectClass, instance, &object) != ZOR_STORE_OK) return {{"?", "?"}};
  Values values;
  for (const ZOR_CFM_VALUE *value = object->values; value != nullptr; value = value->next) {
    values[value->name] = value->value;
  }
  ZOR_CFM_FreeObj(object);
  return values;
}

// Another program that works on the store's file.
class Intruder {
 public:
  explicit Intruder(const std::string &path) { sqlite3_open(path.c_str(), &db_); }
  ~Intruder() { sqlite3_close(db_); }
  Intruder(const Intruder &) = delete;
  void Run(const char *sql) { EXPECT_EQ(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sql; }

 private:
  sqlite3 *db_ = nullptr;
};

void OverwriteBytes(const std::string &path, std::streamoff offset, size_t count) {
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(offset);
  file << std::string(count, '\x5a');
}

class Store : public testing::Test {
 protected:
  TempRoot root_;
  const std::string path_ = root_.Path(ZOR_STORE_PATH);
  const std::string file_ = root_.Path("/saved");
};

TEST_F(Store, ParametersAndAppDataComeBackCutToTheBuffer) {
  char buffer[] = "....";
  EXPECT_EQ(ZOR_DBGetPara(1, 0, buffer, 4), ZOR_STORE_E_NOT_FOUND);
  EXPECT_EQ(SetPara(1, "first"), ZOR_STORE_OK);
  EXPECT_EQ(ZOR_DBSetPara(1, 1, "x", 1), ZOR_STORE_OK);
  EXPECT_EQ(ZOR_WriteAppDataFunc(0xffffffff, "ab", 3), ZOR_STORE_OK);
  EXPECT_EQ(ZOR_DBGetPara(1, 1, buffer, 4), ZOR_STORE_OK);
  EXPECT_STREQ(buffer, "x...");
  EXPECT_EQ(ZOR_DBGetPara(1, 0, buffer, 2), ZOR_STORE_OK);
  EXPECT_STREQ(buffer, "fi..");
  uint32_t length = 9;
  EXPECT_EQ(ZOR_GetAppDataLen(0xffffffff, &length), ZOR_STORE_OK);
  EXPECT_EQ(length, 3u);
  EXPECT_EQ(ZOR_ReadAppData(0xffffffff, buffer, 4), ZOR_STORE_OK);
  EXPECT_EQ(std::memcmp(buffer, "ab\0.", 4), 0);
  EXPECT_EQ(ZOR_GetAppDataLen(7, &length), ZOR_STORE_E_NOT_FOUND);
  EXPECT_EQ(length, 0u);
}

TEST_F(Store, RefusesNullAndEmptyArgumentsBeforeItOpensAnything) {
  char byte = 0;
  EXPECT_EQ(ZOR_DBGetPara(1, 0, nullptr, 1), ZOR_STORE_E_ARGUMENT);
  EXPECT_EQ(ZOR_WriteAppDataFunc(1, &byte, 0), ZOR_STORE_E_ARGUMENT);
  EXPECT_EQ(ZOR_DBSetObj(nullptr), ZOR_STORE_E_ARGUMENT);
  EXPECT_EQ(ZOR_STORE_WriteFile(file_.c_str(), 4), ZOR_STORE_E_ARGUMENT);
  ZOR_CFM_OBJ *object = nullptr;
  EXPECT_EQ(ZOR_CFM_SetObjStrValue(&object, "", "v"), ZOR_STORE_E_ARGUMENT);
  EXPECT_EQ(object, nullptr);
  EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(Store, ObjectsKeepTheirNumbersAndMergeTheirValues) {
  uint32_t instance = 0;
  for (int each = 0; each < 3; ++each) ZOR_DBAddObj(5, Object(Values{{"name", "old"}}).record, &instance);
  EXPECT_EQ(instance, 3u);
  EXPECT_EQ(ZOR_DBDelObj(5, 2), ZOR_STORE_OK);
  EXPECT_EQ(ZOR_DBDelObj(5, 2), ZOR_STORE_E_NOT_FOUND);
  EXPECT_EQ(ZOR_DBSetObj(Object(Values{{"lost", "x"}}, 5, 2).record), ZOR_STORE_E_NOT_FOUND);
  EXPECT_EQ(ZOR_DBAddObj(5, nullptr, &instance), ZOR_STORE_OK);
  EXPECT_EQ(instance, 2u);
  EXPECT_THAT(Stored(5, 2), IsEmpty());
  EXPECT_EQ(ZOR_DBSetObj(Object(Values{{"name", "new"}, {"Name", "other"}}, 5, 3).record), ZOR_STORE_OK);
  EXPECT_EQ(Stored(5, 3), (Values{{"name", "new"}, {"Name", "other"}}));
  uint32_t count = 9;
  EXPECT_EQ(ZOR_DBGetNumOfObjs(5, &count), ZOR_STORE_OK);
  EXPECT_EQ(count, 3u);
}

TEST_F(Store, ProcessesThatWriteAtOnceLoseNothing) {
  const auto addTen = [] {
    uint32_t failures = 0;
    uint32_t instance = 0;
    for (int i = 0; i < 10; ++i) failures |= ZOR_DBAddObj(1, Object(Values{{"a", "b"}}).record, &instance);
    return failures == 0 ? 0 : 1;
  };
  std::vector<Child> children;
  for (int process = 0; process < 6; ++process) children.push_back(Child::Function(addTen));
  for (Child &child : children) EXPECT_EQ(child.Wait(std::chrono::seconds(50)), 0);
  uint32_t count = 0;
  EXPECT_EQ(ZOR_DBGetNumOfObjs(1, &count), ZOR_STORE_OK);
  EXPECT_EQ(count, 60u);
}

// Whoever closes the store last folds its journal into it and removes the journal: it must notice a process that was
// forked from one that had the store open.
TEST_F(Store, AForkedProcessHasAConnectionOfItsOwn) {
  const std::string go = root_.Path("/go");
  const std::string done = root_.Path("/done");
  const auto exists = [](const std::string &path) { return WaitUntil([&] { return std::filesystem::exists(path); }); };
  Child parent = Child::Function([&] {
    SetPara(1, "parent");
    if (::fork() != 0) return 0;
    if (exists(go) && SetPara(1, "child") == ZOR_STORE_OK) std::ofstream(done) << "x";
    ::_exit(0);
  });
  EXPECT_EQ(parent.Wait(), 0);
  Intruder(path_).Run("SELECT * FROM parameters");
  std::ofstream(go) << "x";
  EXPECT_TRUE(exists(done));
  EXPECT_EQ(GetPara(1), "child");
  ZOR_DBSetCurrUser(3);
  EXPECT_EQ(Child::Function([] { return GetPara(1) == "child" && ZOR_DBGetCurrUser() == 3 ? 0 : 1; }).Wait(), 0);
}

TEST_F(Store, ALockedStoreIsBusyAndWorksAgainAfterwards) {
  EXPECT_EQ(SetPara(1, "before"), ZOR_STORE_OK);
  Intruder intruder(path_);
  intruder.Run("BEGIN IMMEDIATE");
  Capture errors(2);
  EXPECT_EQ(SetPara(1, "blocked"), ZOR_STORE_E_BUSY);
  EXPECT_EQ(GetPara(1), "before");
  EXPECT_THAT(errors.Text(), HasSubstr("configuration store /var/zor_config.db: database is locked\n"));
  intruder.Run("ROLLBACK");
  EXPECT_EQ(SetPara(1, "free"), ZOR_STORE_OK);
}

TEST_F(Store, WhatCannotBeOpenedOrIsDamagedIsAStatusAndALine) {
  Capture errors(2);
  std::filesystem::create_directory(path_);
  EXPECT_EQ(SetPara(1, "x"), ZOR_STORE_E_IO);
  std::filesystem::remove(path_);
  std::ofstream(path_) << "this is a text and no store";
  EXPECT_EQ(SetPara(1, "x"), ZOR_STORE_E_IO);
  EXPECT_THAT(errors.Text(), HasSubstr("file is not a database\n"));
  std::filesystem::remove(path_);
  EXPECT_EQ(SetPara(1, std::string(50000, 'x')), ZOR_STORE_OK);
  Child::Function([] { return 0; }).Wait();  // closes the connection, so that all is in the file
  OverwriteBytes(path_, 4096, 20000);
  EXPECT_EQ(GetPara(1), "status 7");
  EXPECT_EQ(SetPara(1, "x"), ZOR_STORE_E_IO);
  EXPECT_THAT(errors.Text(), HasSubstr("malformed"));
  std::filesystem::remove_all(root_.Path("/var"));
  EXPECT_EQ(GetPara(1), "status 7");
}

TEST_F(Store, AFullDiskIsAStatusAndLosesNothingOld) {
  EXPECT_EQ(SetPara(1, "old"), ZOR_STORE_OK);
  EXPECT_EQ(Child::Function([] {
              std::signal(SIGXFSZ, SIG_IGN);
              const rlimit limit = {100000, 100000};
              ::setrlimit(RLIMIT_FSIZE, &limit);
              if (SetPara(1, std::string(500000, 'x')) != ZOR_STORE_E_IO) return 1;
              return GetPara(1) == "old" ? 0 : 2;
            }).Wait(),
            0);
  EXPECT_EQ(GetPara(1), "old");
  EXPECT_EQ(SetPara(1, "new"), ZOR_STORE_OK);
}

TEST_F(Store, AFileBringsBackThePartsThatAreAskedFor) {
  uint32_t instance = 0;
  SetPara(1, "saved");
  ZOR_DBAddObj(1, Object(Values{{"a", "1"}}).record, &instance);
  ZOR_WriteAppDataFunc(1, "data", 4);
  EXPECT_EQ(ZOR_STORE_ReadFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_E_NOT_FOUND);
  EXPECT_EQ(ZOR_STORE_WriteFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_OK);
  EXPECT_EQ(ZOR_STORE_CheckFile(file_.c_str()), ZOR_STORE_OK);
  struct stat status = {};
  ::stat(file_.c_str(), &status);
  EXPECT_EQ(status.st_mode & 0777, 0600u);

  EXPECT_EQ(ZOR_STORE_Clear(ZOR_STORE_CONFIGURATION), ZOR_STORE_OK);
  SetPara(2, "later");
  ZOR_WriteAppDataFunc(1, "more", 4);
  EXPECT_EQ(ZOR_STORE_ReadFile(file_.c_str(), ZOR_STORE_CONFIGURATION), ZOR_STORE_OK);
  EXPECT_EQ(GetPara(1) + GetPara(2), "savedstatus 2");
  EXPECT_EQ(Stored(1, 1), (Values{{"a", "1"}}));
  char data[5] = {};
  ZOR_ReadAppData(1, data, 4);
  EXPECT_STREQ(data, "more");
  EXPECT_EQ(ZOR_STORE_WriteFile(file_.c_str(), ZOR_STORE_APPDATA), ZOR_STORE_OK);
  EXPECT_EQ(ZOR_STORE_ReadFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_OK);
  EXPECT_EQ(GetPara(1), "status 2");
}

TEST_F(Store, AForeignOrDamagedFileIsRefusedAndChangesNothing) {
  SetPara(1, std::string(20000, 'x'));
  const auto refuse = [&](const char *what) {
    EXPECT_EQ(ZOR_STORE_CheckFile(file_.c_str()), ZOR_STORE_E_IO) << what;
    EXPECT_EQ(ZOR_STORE_ReadFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_E_IO) << what;
    EXPECT_EQ(ZOR_STORE_WriteFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_E_IO) << what;
    EXPECT_EQ(GetPara(1), std::string(63, 'x')) << what;
    std::filesystem::remove_all(file_);
  };
  Capture errors(2);
  std::ofstream(file_) << "not a store";
  refuse("text");
  std::filesystem::create_directory(file_);
  refuse("directory");
  ::mkfifo(file_.c_str(), 0600);
  refuse("pipe");
  for (const char *change : {"PRAGMA user_version = 2", "CREATE TABLE more (x)", "DROP TABLE app_data",
                             "CREATE TRIGGER t AFTER DELETE ON objects BEGIN DELETE FROM parameters; END"}) {
    ASSERT_EQ(ZOR_STORE_WriteFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_OK);
    Intruder(file_).Run(change);
    refuse(change);
  }
  ASSERT_EQ(ZOR_STORE_WriteFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_OK);
  const auto size = static_cast<std::streamoff>(std::filesystem::file_size(file_));
  OverwriteBytes(file_, 4096, static_cast<size_t>(size - 4096));
  refuse("damaged pages");
  ASSERT_EQ(ZOR_STORE_WriteFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_OK);
  std::filesystem::resize_file(file_, static_cast<uintmax_t>(size / 2));
  refuse("cut in half");
}

}  // namespace
