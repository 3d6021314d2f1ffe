#include <gtest/gtest.h>
#include <zor/cfm.h>
#include <zor/platform/config.h>
#include <zor/status.h>

#include <functional>
#include <string>

#include "support/capture.h"
#include "support/scripted_server.h"

namespace {

using zor::test::Capture;
using zor::test::MakeMessage;
using zor::test::Message;

std::string PathBody(const std::string &path) {
  return path + '\0';
}

class ConfigurationRequests : public testing::Test {
 protected:
  ConfigurationRequests() { ZOR_DBSetCurrUser(9); }

  void ExpectSent(uint32_t type, uint32_t data, const std::string &body) {
    const Message sent = bus_.peer.ReceiveMessage().value_or(Message{});
    EXPECT_EQ(sent.header.type, type);
    EXPECT_STREQ(sent.header.destination, "");
    EXPECT_EQ(sent.header.data, data);
    EXPECT_EQ(sent.body, body);
  }

  zor::test::TempRoot root_;
  zor::test::LoopbackBus bus_;
};

TEST_F(ConfigurationRequests, ThatAreToldCarryTheCurrentUser) {
  EXPECT_EQ(ZOR_DBSaveFunc(), ZOR_OK);
  ExpectSent(0x5009, 9, "");
  EXPECT_EQ(ZOR_DBSaveToAppFunc(), ZOR_OK);
  ExpectSent(0x503F, 9, "");
  EXPECT_EQ(ZOR_CFM_ExtRestoreDft(1), ZOR_OK);
  ExpectSent(0x500F, 0, std::string("\1\0\0\0\x09\0\0\0", 8));
  EXPECT_TRUE(bus_.peer.NothingArrived());
}

TEST_F(ConfigurationRequests, ThatAskReturnTheAnswersWordOrTheFailure) {
  const struct {
    std::function<uint32_t()> ask;
    uint32_t type;
    uint32_t data = 0;
    std::string body = {};
  } cases[] = {
      {[] { return ZOR_CFM_ExportFlashCfgFile(4, "/f"); }, 0x5025, 4, PathBody("/f")},
      {[] { return ZOR_CFM_ExtExportEncryptedCfgFile("/f"); }, 0x5026, 0, PathBody("/f")},
      {[] { return ZOR_CFM_ExtImportEncryptedCfgFile("/f"); }, 0x5027, 0, PathBody("/f")},
      {[] { return ZOR_DBCheckFile("/f"); }, 0x5028, 0, PathBody("/f")},
      {ZOR_CFM_CleanCFG, 0x5029},
      {ZOR_AppSaveSyncFunc, 0x502A},
      {ZOR_DBSaveSyncFunc, 0x502B},
      {ZOR_CFM_DelAppdata, 0x5033},
      {ZOR_DBSaveToAppSyncFunc, 0x5040},
  };
  for (const auto &each : cases) {
    SCOPED_TRACE(each.type);
    bus_.peer.Send(MakeMessage(each.type, "cms", "tester", 77));
    EXPECT_EQ(each.ask(), 77u);
    ExpectSent(each.type, each.data, each.body);
    bus_.peer.Send(MakeMessage(ZOR_MSG_SEND_FAILED_NOTICE, "", "tester", each.type));
    EXPECT_EQ(each.ask(), ZOR_E_PEER_GONE);
    ExpectSent(each.type, each.data, each.body);
  }
  EXPECT_EQ(ZOR_AppSaveSyncFunc(), ZOR_E_TIMEOUT);
}

TEST_F(ConfigurationRequests, CutThePathTheySendButNotTheOneTheyPrint) {
  const std::string path(300, 'p');
  Capture output;
  for (const char *each : {path.c_str(), static_cast<const char *>(nullptr)}) {
    bus_.peer.Send(MakeMessage(0x5027, "cms", "tester", 0));
    EXPECT_EQ(ZOR_CFM_ExtImportEncryptedCfgFile(each), 0u);
    ExpectSent(0x5027, 0, each == nullptr ? "" : PathBody(path.substr(0, 255)));
  }
  EXPECT_EQ(output.Text(), "before send ZOR_MSG_IMPORT_CFG_FILE, file=" + path + ".\n");
}

TEST_F(ConfigurationRequests, NameTheUserOfAnExportBeforehand) {
  bus_.peer.Send(MakeMessage(0x5026, "cms", "tester", 5));
  EXPECT_EQ(ZOR_CFM_ExtExportEncCfgFileByUser("/f", 3), 5u);
  ExpectSent(0x5035, 3, "");
  ExpectSent(0x5026, 0, PathBody("/f"));
}

TEST_F(ConfigurationRequests, ForARebootGoToThePlatform) {
  EXPECT_EQ(ZOR_CFM_ExtReboot(1), 1u) << "a system inside a directory must not reboot the machine";
}

}  // namespace
