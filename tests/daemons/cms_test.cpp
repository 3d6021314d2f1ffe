#include <sqlite3.h>
#include <zor/config_wire.h>
#include <zor/platform/config.h>
#include <zor/platform/config_file.h>

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
  // The result of a request; checks that the reply has the request's type and no body.
  uint32_t Ask(uint32_t type, const std::string &body = {}, uint32_t data = 0) {
    const Message reply = client_.Ask(MakeMessage(type, "", "", data, body));
    EXPECT_EQ(reply.header.type, type);
    EXPECT_EQ(reply.body, "");
    return reply.header.data;
  }
  // Sends a one-way message, then waits until it was handled: the daemon handles messages in order.
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
  EXPECT_THAT(errors_.Text(), HasSubstr("cms: restore for web failed: result 0x10002\ncms: stop of"));
  EXPECT_THAT(errors_.Text(), HasSubstr("cms: restore for web failed: result 0x1\n"));
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
  std::filesystem::create_symlink("text", root_.Path("/export.") + std::to_string(daemon_->pid()));
  EXPECT_EQ(Ask(ZOR_MSG_EXPORT_CFG_FILE, PathBody("/export")), 0u);
  EXPECT_EQ(std::filesystem::file_size(root_.Path("/text")), 8u) << "nothing is written over";
  EXPECT_EQ(Para(), "kept");
}

TEST_F(Cms, JoinsTheBusAgainWhenTheServerWasKilled) {
  RestartServer();
  client_ = Connect("web");
  SetPara("saved");
  EXPECT_EQ(Ask(ZOR_MSG_DB_SAVE_SYNC), 0u);
  ExpectExitStatusThatSaysWhyItEnds();
}

}  // namespace
}  // namespace zor::test
