#include <sqlite3.h>
#include <zor/config_wire.h>
#include <zor/kiva.h>
#include <zor/platform/config.h>
#include <zor/platform/config_file.h>

#include <cstdlib>
#include <filesystem>

#include "daemons/bus_daemon_fixture.h"
#include "support/wire_client.h"

namespace zor::test {
namespace {

using testing::HasSubstr;

constexpr uint32_t kPara = 7;

void SetPara(const std::string &value) {
  EXPECT_EQ(ZOR_DBSetPara(kPara, 0, value.c_str(), static_cast<uint32_t>(value.size() + 1)), ZOR_STORE_OK);
}

std::string Para() {
  char value[32] = "none";
  ZOR_DBGetPara(kPara, 0, value, sizeof value - 1);
  return value;
}

std::string Words(uint32_t first, uint32_t second) {
  const ZOR_CFG_RESTORE words = {first, second};
  return {reinterpret_cast<const char *>(&words), sizeof words};
}

std::string PathBody(const std::string &path) {
  return path + '\0';
}

class Cms : public BusDaemonTest {
 protected:
  Cms() : BusDaemonTest(CMS_PROGRAM), notifyServer_(Child::Program({NOTIFYSERVER})) {
    EXPECT_TRUE(notifyServer_.WaitForOutput("listening"));
    Start();
    client_ = Connect("web");
  }
  WireClient Connect(const std::string &name) {
    WireClient client = WireClient::Connect(root_.Path("/var/msgsvr"));
    client.Register(name);
    return client;
  }
  // The result of a request; checks that the answer has the request's type and no body.
  uint32_t Ask(uint32_t type, const std::string &body = {}, uint32_t data = 0) {
    const Message answer = client_.Ask(MakeMessage(type, "", "", data, body));
    EXPECT_EQ(answer.header.type, type);
    EXPECT_EQ(answer.body, "");
    return answer.header.data;
  }
  // Sends what is not answered, then waits until it is done: the daemon does one thing after another.
  void Tell(uint32_t type, uint32_t data = 0, const std::string &body = {}) {
    client_.Send(MakeMessage(type, "", "", data, body));
    Ask(ZOR_MSG_KILL_ALL_DYN_APP);
  }

  Child notifyServer_;
  WireClient client_;
};

TEST_F(Cms, RestoresWhatEachUserSavedAndTheFactorysConfiguration) {
  SetPara("nobody's");
  EXPECT_EQ(Ask(ZOR_MSG_DB_SAVE_SYNC), 0u);
  SetPara("third's");
  Tell(ZOR_MSG_DB_SAVE, 3);
  SetPara("changed");
  Tell(ZOR_MSG_RESTORE_DEFAULT, 0, Words(ZOR_CFG_RESTORE_SAVED, 0));
  EXPECT_EQ(Para(), "nobody's");
  Tell(ZOR_MSG_RESTORE_DEFAULT, 0, Words(ZOR_CFG_RESTORE_SAVED, 3));
  EXPECT_EQ(Para(), "third's");
  Tell(ZOR_MSG_RESTORE_DEFAULT, 0, Words(ZOR_CFG_RESTORE_SAVED, 4));
  Tell(ZOR_MSG_RESTORE_DEFAULT, 0, Words(2, 0));
  Tell(ZOR_MSG_RESTORE_DEFAULT, 0, "short");
  EXPECT_EQ(Para(), "third's");
  EXPECT_THAT(errors_.Text(), HasSubstr("cms: restore for web: result 0x10002\ncms: stop of"));
  EXPECT_THAT(errors_.Text(), HasSubstr("cms: restore for web: result 0x1\n"));
  Tell(ZOR_MSG_RESTORE_DEFAULT, 0, Words(ZOR_CFG_RESTORE_FACTORY, 3));
  EXPECT_EQ(Para(), "none");
  SetPara("delivered");
  std::filesystem::create_directories(root_.Path("/etc/zor"));
  ASSERT_EQ(ZOR_STORE_WriteFile(root_.Path("/etc/zor/factory.db").c_str(), ZOR_STORE_ALL), ZOR_STORE_OK);
  SetPara("changed");
  Tell(ZOR_MSG_RESTORE_DEFAULT, 0, Words(ZOR_CFG_RESTORE_FACTORY, 0));
  EXPECT_EQ(Para(), "delivered");
}

TEST_F(Cms, ExportsAndImportsFilesThatOthersName) {
  SetPara("third's");
  Tell(ZOR_MSG_DB_SAVE, 3);
  SetPara("now");
  EXPECT_EQ(Ask(ZOR_MSG_EXPORT_ENC_CFG_FILE, PathBody("/now.cfg")), 0u);
  // The user counts for one export of the same sender.
  client_.Send(MakeMessage(ZOR_MSG_EXPORT_CFG_USER, "", "", 3));
  Connect("other").Ask(MakeMessage(ZOR_MSG_EXPORT_ENC_CFG_FILE, "", "", 0, PathBody("/other.cfg")));
  EXPECT_EQ(Ask(ZOR_MSG_EXPORT_ENC_CFG_FILE, PathBody("/third.cfg")), 0u);
  EXPECT_EQ(Ask(ZOR_MSG_EXPORT_ENC_CFG_FILE, PathBody("/again.cfg")), 0u);
  EXPECT_EQ(Ask(ZOR_MSG_EXPORT_CFG_FILE, PathBody("/flash.cfg"), 3), 0u);
  EXPECT_EQ(Ask(ZOR_MSG_EXPORT_CFG_FILE, PathBody("/flash.cfg"), 4), ZOR_STORE_E_NOT_FOUND);
  for (const auto &[file, value] : {std::pair{"/now.cfg", "now"},
                                    {"/other.cfg", "now"},
                                    {"/third.cfg", "third's"},
                                    {"/again.cfg", "now"},
                                    {"/flash.cfg", "third's"}}) {
    SetPara("changed");
    EXPECT_EQ(Ask(ZOR_MSG_CHECK_CFG_FILE, PathBody(file)), 0u) << file;
    EXPECT_EQ(Ask(ZOR_MSG_IMPORT_CFG_FILE, PathBody(file)), 0u) << file;
    EXPECT_EQ(Para(), value) << file;
  }
}

TEST_F(Cms, RefusesPathsAndFilesThatAreNone) {
  SetPara("kept");
  Tell(ZOR_MSG_DB_SAVE, 0);
  std::ofstream(root_.Path("/text")) << "precious";
  for (const std::string &body :
       {std::string(), PathBody(""), std::string("/unterminated"), PathBody("relative"), PathBody("/var/../text"),
        PathBody("/text"), PathBody("/missing/file"), PathBody("/" + std::string(300, 'x'))}) {
    for (uint32_t type :
         {ZOR_MSG_EXPORT_CFG_FILE, ZOR_MSG_EXPORT_ENC_CFG_FILE, ZOR_MSG_IMPORT_CFG_FILE, ZOR_MSG_CHECK_CFG_FILE}) {
      EXPECT_NE(Ask(type, body), 0u) << std::hex << type << " " << body;
    }
  }
  std::filesystem::create_symlink("text", root_.Path("/export.new"));
  EXPECT_EQ(Ask(ZOR_MSG_EXPORT_CFG_FILE, PathBody("/export")), 0u);
  EXPECT_EQ(std::filesystem::file_size(root_.Path("/text")), 8u) << "nothing is written over";
  EXPECT_EQ(Para(), "kept");
}

std::string Device(const std::string &mac, uint32_t state) {
  const kiva_info_status status = {0, 0, state, 0, 0};
  return std::string(reinterpret_cast<const char *>(&status), sizeof status) + mac + '\0' + "detail" + '\0' + "/x" +
         '\0';
}

uint32_t StateOf(const char *mac) {
  dev_kiva_info *info = ZOR_UPG_GetKivaInfoByMac(mac);
  const uint32_t state = info == nullptr ? 0 : info->status.state;
  ZOR_UPG_DestroyKivaInfo(info);
  std::free(info);
  return state;
}

TEST_F(Cms, KeepsTheDeviceListThatOtherProcessesRead) {
  Tell(ZOR_MSG_KIVA_ADD, 0, Device("001122AABBCC", 5));
  EXPECT_EQ(Ask(ZOR_MSG_KIVA_ADD_SYNC, Device("001122AABBDD", 6)), 0u);
  EXPECT_EQ(Ask(ZOR_MSG_KIVA_ADD_SYNC, Device("001122aabbcc", 7)), 0u);
  EXPECT_EQ(ZOR_UPG_GetKivaInfoListCount(), 2u);
  EXPECT_EQ(StateOf("001122AABBCC"), 7u);
  EXPECT_EQ(Ask(ZOR_MSG_KIVA_ADD_SYNC, Device("x", 1).substr(0, 25)), ZOR_KIVA_E_ARGUMENT);
  EXPECT_EQ(Ask(ZOR_MSG_KIVA_REMOVE_SYNC), ZOR_KIVA_E_ARGUMENT);
  EXPECT_EQ(Ask(ZOR_MSG_KIVA_REMOVE_SYNC, "001122aabbdd"), 0u);
  Tell(ZOR_MSG_KIVA_REMOVE, 0, "001122AABBCC" + std::string(6, '\0'));
  EXPECT_EQ(ZOR_UPG_GetKivaInfoListCount(), 0u);
}

TEST_F(Cms, AnswersWithAStatusWhenTheStoreIsDamagedOrLockedAndRecovers) {
  SetPara("saved");
  EXPECT_EQ(Ask(ZOR_MSG_DB_SAVE_SYNC), 0u);
  const std::string saved = root_.Path("/var/cfg/config_0.db");
  std::filesystem::resize_file(saved, 1000);
  EXPECT_EQ(Ask(ZOR_MSG_DB_SAVE_SYNC), ZOR_STORE_E_IO);
  std::filesystem::remove(saved);
  EXPECT_EQ(Ask(ZOR_MSG_DB_SAVE_SYNC), 0u);
  sqlite3 *lock = nullptr;
  sqlite3_open(root_.Path(ZOR_STORE_PATH).c_str(), &lock);
  sqlite3_exec(lock, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
  EXPECT_EQ(Ask(ZOR_MSG_CLEAN_CFG), ZOR_STORE_E_BUSY);
  sqlite3_close(lock);
  EXPECT_EQ(Para(), "saved");
  EXPECT_EQ(Ask(ZOR_MSG_CLEAN_CFG), 0u);
}

}  // namespace
}  // namespace zor::test
