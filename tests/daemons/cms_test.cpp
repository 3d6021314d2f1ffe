#include <sqlite3.h>
#include <sys/stat.h>
#include <zor/config_wire.h>
#include <zor/platform/config.h>
#include <zor/platform/config_file.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <span>
#include <string_view>

#include "cms/seal.h"
#include "daemons/bus_daemon_fixture.h"
#include "support/wire_client.h"

namespace zor::test {
namespace {

using testing::HasSubstr;

constexpr uint32_t kPara = 7;
constexpr char kQuickKeys[] = "key_cost = 10\n";

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
    Start(kQuickKeys);
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

  void WriteSecret(const std::string &text, mode_t mode = 0400) {
    const std::string path = root_.Path("/etc/zor/cms.passphrase");
    std::filesystem::create_directories(root_.Path("/etc/zor"));
    std::filesystem::remove(path);
    std::ofstream(path) << text;
    EXPECT_EQ(::chmod(path.c_str(), mode), 0);
  }
  void Restart(const std::string &settings) {
    EXPECT_EQ(Stop(SIGTERM), 0);
    Start(settings);
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
  WriteSecret("correct horse battery\n");
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
  EXPECT_EQ(Ask(ZOR_MSG_CHECK_CFG_FILE, PathBody("/third.cfg")), 0u);
  Restart(std::string("import_plain = always\n") + kQuickKeys);
  EXPECT_EQ(Ask(ZOR_MSG_CHECK_CFG_FILE, PathBody("/flash.cfg")), 0u);
  for (const auto &[file, value] : {std::pair{"/now.cfg", "now"},
                                    {"/other.cfg", "now"},
                                    {"/third.cfg", "third's"},
                                    {"/again.cfg", "now"},
                                    {"/flash.cfg", "third's"}}) {
    SetPara("changed");
    EXPECT_EQ(Ask(ZOR_MSG_IMPORT_CFG_FILE, PathBody(file)), 0u) << file;
    EXPECT_EQ(Para(), value) << file;
    const bool isPlain = ContentOf(root_.Path(file)).find(value) != std::string::npos;
    EXPECT_EQ(isPlain, std::string(file) == "/flash.cfg") << "all but the copy of what was saved is encrypted";
  }
  EXPECT_NE(ContentOf(root_.Path("/now.cfg")), ContentOf(root_.Path("/other.cfg"))) << "each has its own key";
}

TEST_F(Cms, LeavesEverythingAsItWasWhenAnEncryptedExportIsNotAuthentic) {
  SetPara("exported");
  EXPECT_EQ(Ask(ZOR_MSG_EXPORT_ENC_CFG_FILE, PathBody("/good.cfg")), ZOR_CFG_E_NO_PASSPHRASE);
  EXPECT_FALSE(std::filesystem::exists(root_.Path("/good.cfg"))) << "nothing is written instead";
  WriteSecret("correct horse battery\n");
  EXPECT_EQ(Ask(ZOR_MSG_EXPORT_ENC_CFG_FILE, PathBody("/good.cfg")), 0u);
  const std::string good = ContentOf(root_.Path("/good.cfg"));
  Tell(ZOR_MSG_DB_SAVE, 3);
  EXPECT_EQ(Ask(ZOR_MSG_EXPORT_CFG_FILE, PathBody("/plain.cfg"), 3), 0u);
  const std::string plain = ContentOf(root_.Path("/plain.cfg"));
  const auto with = [&](size_t at, char byte) { return std::string(good).replace(at, 1, 1, byte); };

  constexpr char kRight[] = "correct horse battery";
  const struct {
    const char *what;
    std::string file;
    std::string passphrase;
    mode_t mode;
    uint32_t result;
  } cases[] = {
      {"another passphrase", good, "correct horse batterx", 0400, ZOR_CFG_E_NOT_AUTHENTIC},
      {"other content", with(60, static_cast<char>(good[60] ^ 1)), kRight, 0400, ZOR_CFG_E_NOT_AUTHENTIC},
      {"cut", good.substr(0, good.size() - 1), kRight, 0400, ZOR_CFG_E_NOT_AUTHENTIC},
      {"longer", good + "x", kRight, 0400, ZOR_CFG_E_NOT_AUTHENTIC},
      {"cut in its head", good.substr(0, 40), kRight, 0400, ZOR_CFG_E_NOT_ENCRYPTED},
      {"a later version", with(8, 2), kRight, 0400, ZOR_CFG_E_FORMAT},
      {"gigabytes to make the key", with(11, 20), kRight, 0400, ZOR_CFG_E_FORMAT},
      {"minutes to make the key", with(11, 15).replace(13, 1, "\xff"), kRight, 0400, ZOR_CFG_E_FORMAT},
      {"not encrypted", plain, kRight, 0400, ZOR_CFG_E_NOT_ENCRYPTED},
      {"a passphrase that others may read", good, kRight, 0444, ZOR_CFG_E_NO_PASSPHRASE},
      {"a passphrase that others may read protects all the same", plain, kRight, 0440, ZOR_CFG_E_NOT_ENCRYPTED},
      {"a short passphrase", good, "short", 0400, ZOR_CFG_E_NO_PASSPHRASE},
  };
  SetPara("kept");
  for (const auto &each : cases) {
    std::ofstream(root_.Path("/file.cfg"), std::ios::binary) << each.file;
    WriteSecret(each.passphrase, each.mode);
    EXPECT_EQ(Ask(ZOR_MSG_CHECK_CFG_FILE, PathBody("/file.cfg")), each.result) << each.what;
    EXPECT_EQ(Ask(ZOR_MSG_IMPORT_CFG_FILE, PathBody("/file.cfg")), each.result) << each.what;
    EXPECT_EQ(Para(), "kept") << each.what;
  }
  EXPECT_THAT(errors_.Text(),
              HasSubstr("import for web failed: result 0x3: encrypted with another passphrase, incomplete"));
  std::filesystem::remove(root_.Path("/etc/zor/cms.passphrase"));
  EXPECT_EQ(Ask(ZOR_MSG_IMPORT_CFG_FILE, PathBody("/plain.cfg")), 0u) << "as before there was a passphrase";
  EXPECT_EQ(Para(), "exported");
  for (const auto &entry : std::filesystem::directory_iterator(root_.Path("/var/cfg"))) {
    EXPECT_EQ(entry.path().filename(), "config_3.db") << "no unencrypted copy stays";
  }
}

// Made by another implementation of scrypt and AES-256-GCM, as docs/protocol.md shows.
TEST(Seal, IsOfTheDocumentedFormat) {
  const auto bytes = [](std::string_view text) { return std::as_bytes(std::span(text)); };
  const std::string file(
      "zorcfenc\1\1\1\1\10\1\0\0\0\1\2\3\4\5\6\7\10\11\12\13\14\15\16\17 !\"#$%&'()*+\0\0\0\4"
      "\x4f\xb3\x6f\xd5\x33\xa8\x7f\xb1\x63\xd4\x7f\x9b\x0d\x24\x78\x68\xd0\x55\x0b\x1f",
      68);
  cms::Secret content;
  ASSERT_EQ(cms::Unseal(bytes(file), bytes("a passphrase"), &content), cms::Unsealed::kGood);
  EXPECT_TRUE(std::ranges::equal(content, bytes("hi!\n")));
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
  std::filesystem::create_directory_symlink("cfg", root_.Path("/var/link"));
  for (const char *path : {"/var/cfg/config_0.db", "/var//cfg/./new", "/var/link/config_0.db"}) {
    EXPECT_NE(Ask(ZOR_MSG_EXPORT_CFG_FILE, PathBody(path)), 0u) << "in the place of what was saved: " << path;
  }
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
