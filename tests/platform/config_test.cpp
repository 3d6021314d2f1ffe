#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/platform/config.h>
#include <zor/platform/config_file.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/child.h"
#include "support/temp_root.h"

namespace {

using testing::HasSubstr;
using zor::test::Capture;
using zor::test::Child;
using zor::test::TempRoot;
using zor::test::WaitUntil;

// The disk of a busy machine may keep a process from its turn for longer than a call waits.
template <typename Call>
uint32_t InTurn(const Call &call) {
  uint32_t status = ZOR_STORE_E_BUSY;
  for (int tries = 0; tries < 20 && status == ZOR_STORE_E_BUSY; ++tries) status = call();
  return status;
}

uint32_t SetPara(uint32_t id, const std::string &value) {
  return ZOR_DBSetPara(id, 0, value.data(), static_cast<uint32_t>(value.size()));
}

std::string GetPara(uint32_t id) {
  std::array<char, 64> value = {};
  const uint32_t status = InTurn([&] { return ZOR_DBGetPara(id, 0, value.data(), value.size() - 1); });
  return status == ZOR_STORE_OK ? value.data() : "status " + std::to_string(status & 0xff);
}

// Another program that uses the store's file.
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

TEST_F(Store, ProcessesThatWriteAtOnceLoseNothingAndNumbersAreGivenAgain) {
  const auto addTen = [] {
    uint32_t failures = 0;
    uint32_t instance = 0;
    for (int i = 0; i < 10; ++i) failures |= InTurn([&] { return ZOR_DBAddObj(1, nullptr, &instance); });
    return failures == 0 ? 0 : 1;
  };
  std::vector<Child> children;
  for (int process = 0; process < 6; ++process) children.push_back(Child::Function(addTen));
  for (Child &child : children) EXPECT_EQ(child.Wait(), 0);
  EXPECT_EQ(ZOR_DBDelObj(1, 2), ZOR_STORE_OK);
  uint32_t instance = 0;
  EXPECT_EQ(ZOR_DBAddObj(1, nullptr, &instance), ZOR_STORE_OK);
  EXPECT_EQ(instance, 2u);
  uint32_t count = 0;
  EXPECT_EQ(ZOR_DBGetNumOfObjs(1, &count), ZOR_STORE_OK);
  EXPECT_EQ(count, 60u);
}

// A reader keeps the journal mode from being changed, and an opening that tries it fails at once.
TEST_F(Store, IsOpenedBesideAReaderWithoutBeingChanged) {
  EXPECT_EQ(Child::Function([] { return SetPara(1, "x") == 0 ? 0 : 1; }).Wait(), 0);
  Intruder reader(path_);
  reader.Run("PRAGMA journal_mode = DELETE; BEGIN; SELECT * FROM parameters");
  EXPECT_EQ(GetPara(1), "x");
}

// Whoever may write beside the store could plant one: SQLite would play it back, and delete it and what it names.
TEST_F(Store, ShowsSqliteNoJournalBesideItOrBesideAnImportedFile) {
  EXPECT_EQ(Child::Function([] { return SetPara(1, "x") == 0 ? 0 : 1; }).Wait(), 0);
  EXPECT_EQ(ZOR_STORE_WriteFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_OK);
  for (const std::string &path : {path_, file_}) std::ofstream(path + "-journal") << std::string(4096, 'j');
  EXPECT_EQ(Child::Function([] { return GetPara(1) == "x" ? 0 : 1; }).Wait(), 0);
  EXPECT_EQ(ZOR_STORE_CheckFile(file_.c_str()), ZOR_STORE_OK);
  EXPECT_EQ(ZOR_STORE_ReadFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_OK);
  EXPECT_EQ(GetPara(1), "x");
  for (const std::string &path : {path_, file_}) EXPECT_EQ(std::filesystem::file_size(path + "-journal"), 4096u);
}

// Others may put one beside it, too, and SQLite would write it into the file.
TEST_F(Store, ReadsAnImportedFileAsItStandsWithoutALogBesideIt) {
  const std::string strange = root_.Path("/50%25 #1?");
  SetPara(1, "imported");
  ASSERT_EQ(ZOR_STORE_WriteFile(strange.c_str(), ZOR_STORE_ALL), ZOR_STORE_OK);
  std::filesystem::copy_file(strange, file_);
  {
    Intruder writer(strange);
    writer.Run("PRAGMA journal_mode = WAL; UPDATE parameters SET value = CAST('planted' AS BLOB)");
    std::filesystem::copy_file(strange + "-wal", file_ + "-wal");
    writer.Run("PRAGMA wal_checkpoint; PRAGMA journal_mode = DELETE");
  }
  const std::uintmax_t size = std::filesystem::file_size(file_ + "-wal");
  SetPara(1, "old");
  EXPECT_EQ(ZOR_STORE_CheckFile(file_.c_str()), ZOR_STORE_OK);
  EXPECT_EQ(ZOR_STORE_ReadFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_OK);
  EXPECT_EQ(GetPara(1), "imported");
  EXPECT_EQ(std::filesystem::file_size(file_ + "-wal"), size);
  EXPECT_EQ(ZOR_STORE_ReadFile(strange.c_str(), ZOR_STORE_ALL), ZOR_STORE_OK);
  EXPECT_EQ(GetPara(1), "planted");
}

// Whoever may write beside a file that is made could have its content written into a log of his.
TEST_F(Store, WritesNoContentIntoALogThatOthersPut) {
  const std::string theirs = root_.Path("/theirs");
  std::ofstream(theirs) << std::string(100, 'x');
  SetPara(1, "secret");
  Child planter = Child::Function([&] {
    const std::string log = file_ + '.' + std::to_string(::getppid()) + "-wal";
    while (true) static_cast<void>(::link(theirs.c_str(), log.c_str()));
    return 0;
  });
  Capture errors(2);
  for (int i = 0; i < 10; ++i) ZOR_STORE_WriteFile(file_.c_str(), ZOR_STORE_ALL);
  planter.Signal(SIGKILL);
  planter.Wait();
  EXPECT_EQ(std::filesystem::file_size(theirs), 100u);
}

// Each of the processes opens the store 50 times: a fork closes it.
TEST_F(Store, ProcessesThatOpenAtOnceLoseNothing) {
  constexpr uint32_t kProcesses = 20;
  constexpr int kStores = 5;
  constexpr int kOpenings = 10;
  const auto openOften = [](uint32_t process) {
    const bool isWritten = InTurn([&] { return SetPara(process, std::to_string(process)); }) == ZOR_STORE_OK;
    int intact = 1;
    for (; intact < kOpenings && Child::Function([] { return 0; }).Wait() == 0; ++intact) {
      if (GetPara(process) != std::to_string(process)) break;
    }
    return isWritten && intact == kOpenings ? 0 : 1;
  };
  for (int store = 0; store < kStores; ++store) {
    std::vector<Child> children;
    for (uint32_t process = 0; process < kProcesses; ++process) {
      children.push_back(Child::Function([=] { return openOften(process); }));
    }
    for (Child &child : children) EXPECT_EQ(child.Wait(), 0);
    for (const char *suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path_ + suffix);
  }
}

// The last process to close the store folds its journal into it and removes the journal: it must notice a process that
// was forked from one with the store open.
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
}

TEST_F(Store, IsMadeWhereALinkLeads) {
  const std::string place = root_.Path("/place");
  std::filesystem::create_directory(place);
  std::filesystem::create_symlink(place + "/store", path_);
  EXPECT_EQ(SetPara(1, "x"), ZOR_STORE_OK);
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
  EXPECT_TRUE(std::filesystem::is_regular_file(place + "/store"));
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
  Child::Function([] { return 0; }).Wait();  // closes the connection, so that everything is in the file
  OverwriteBytes(path_, 4096, 20000);
  EXPECT_EQ(GetPara(1), "status 7");
  EXPECT_EQ(SetPara(1, "x"), ZOR_STORE_E_IO);
}

TEST_F(Store, ALockIsAStatusAndLosesNothingOld) {
  EXPECT_EQ(SetPara(1, "old"), ZOR_STORE_OK);
  Capture errors(2);
  Intruder intruder(path_);
  intruder.Run("BEGIN IMMEDIATE");
  EXPECT_EQ(SetPara(1, "blocked"), ZOR_STORE_E_BUSY);
  intruder.Run("ROLLBACK");
  EXPECT_EQ(GetPara(1), "old");
  EXPECT_EQ(SetPara(1, "new"), ZOR_STORE_OK);
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
  ::mkfifo(file_.c_str(), 0600);
  refuse("pipe");
  for (const char *change :
       {"PRAGMA user_version = 2", "CREATE TABLE more (x)", "DROP TABLE app_data",
        "CREATE TRIGGER t AFTER DELETE ON objects BEGIN DELETE FROM parameters; END", "PRAGMA journal_mode = WAL"}) {
    ASSERT_EQ(ZOR_STORE_WriteFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_OK);
    Intruder(file_).Run(change);
    refuse(change);
  }
  ASSERT_EQ(ZOR_STORE_WriteFile(file_.c_str(), ZOR_STORE_ALL), ZOR_STORE_OK);
  std::filesystem::resize_file(file_, std::filesystem::file_size(file_) / 2);
  refuse("cut in half");
  std::filesystem::create_symlink(path_, file_);
  refuse("the store itself");
}

}  // namespace
