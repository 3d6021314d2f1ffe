// Configuration requests and process helpers: what they send, and how they treat the reply.
#include <gtest/gtest.h>
#include <sys/utsname.h>
#include <zor/cfm.h>
#include <zor/msg_build.h>
#include <zor/platform/config.h>
#include <zor/pubutil.h>
#include <zor/status.h>

#include <cstdio>
#include <functional>
#include <string>

#include "support/capture.h"
#include "support/in_memory.h"
#include "support/scripted_server.h"

namespace {

using zor::test::Capture;
using zor::test::MakeMessage;
using zor::test::Message;

const std::string kPath = std::string("/f") + '\0';
const std::string kLong(300, 'l');
const std::string kStopLine = "==========================ZOR_UTIL_UpdateDynAppListenFd app name ";
const char *kernelRelease = nullptr;  // null: uname fails

class Requests : public testing::Test {
 protected:
  void ExpectSent(uint32_t type, uint32_t data, const std::string &body, const char *destination = "") {
    const Message sent = bus_.peer.ReceiveMessage().value_or(Message{});
    EXPECT_EQ(sent.header.type, type);
    EXPECT_STREQ(sent.header.destination, destination);
    EXPECT_EQ(sent.header.data, data);
    EXPECT_EQ(sent.body, body);
  }
  void ExpectUpdate(uint32_t value, const std::string &name) {
    ExpectSent(0x5001, value, name + std::string(12 - name.size(), '\0'));
  }

  zor::test::TempRoot root_;
  zor::test::LoopbackBus bus_{"eleven_char"};
};

TEST_F(Requests, ThatAreToldCarryTheCurrentUser) {
  ZOR_DBSetCurrUser(9);
  EXPECT_EQ(ZOR_DBSaveFunc() | ZOR_DBSaveToAppFunc() | ZOR_CFM_ExtRestoreDft(1), ZOR_OK);
  ExpectSent(0x5009, 9, "");
  ExpectSent(0x503F, 9, "");
  ExpectSent(0x500F, 0, zor::test::InMemory(1u, 9u));
}

TEST_F(Requests, ThatAskReturnTheWordOfTheReplyOrTheFailure) {
  ZOR_DBSetCurrUser(9);
  const struct {
    std::function<uint32_t()> ask;
    uint32_t type, data;
    std::string body;
  } cases[] = {
      {[] { return ZOR_CFM_ExportFlashCfgFile(4, "/f"); }, 0x5025, 4, kPath},
      {[] { return ZOR_CFM_ExtExportEncryptedCfgFile("/f"); }, 0x5026, 0, kPath},
      {[] { return ZOR_CFM_ExtImportEncryptedCfgFile(nullptr); }, 0x5027, 0, ""},
      {[] { return ZOR_DBCheckFile(kLong.c_str()); }, 0x5028, 0, kLong.substr(0, 255) + '\0'},
      {ZOR_CFM_CleanCFG, 0x5029, 0, ""},
      {ZOR_AppSaveSyncFunc, 0x502A, 0, ""},
      {ZOR_DBSaveSyncFunc, 0x502B, 0, ""},
      {ZOR_CFM_DelAppdata, 0x5033, 0, ""},
      {ZOR_DBSaveToAppSyncFunc, 0x5040, 0, ""},
      {ZOR_UTIL_KillAllDynApp, 0x504D, 0, ""},
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
  bus_.peer.Send(MakeMessage(0x5026, "cms", "tester", 5));
  EXPECT_EQ(ZOR_CFM_ExtExportEncCfgFileByUser("/f", 3), 5u);
  ExpectSent(0x5035, 3, "");
  ExpectSent(0x5026, 0, kPath);
  Capture output;
  bus_.peer.Send(MakeMessage(0x5027, "cms", "tester", 0));
  ZOR_CFM_ExtImportEncryptedCfgFile(kLong.c_str());
  EXPECT_EQ(output.Text(), "before send ZOR_MSG_IMPORT_CFG_FILE, file=" + kLong + ".\n");
}

TEST_F(Requests, StopAnApplicationOnlyForANonzeroValueAndNeverThisProcessItself) {
  Capture output;
  ZOR_UTIL_UpdateDynAppStatus("upnp", 1);
  ExpectUpdate(0, "upnp");
  ZOR_UTIL_UpdateDynAppStatus("upnp", 5);
  ExpectUpdate(0, "upnp");
  ZOR_UTIL_UpdateDynAppListenFd("eleven_chars", 7);
  ExpectUpdate(7, "eleven_char");
  EXPECT_EQ(output.Text(), "");
  bus_.peer.Send(MakeMessage(ZOR_MSG_SAFE_EXIT, "upnp", "eleven_char"));
  EXPECT_EQ(ZOR_UTIL_UpdateDynAppStatus("upnp", 0), ZOR_OK);
  ExpectSent(0x706, 0, "", "upnp");
  ExpectUpdate(1, "upnp");
  g_ulSafeExitMsgTimeout = 20;
  EXPECT_EQ(ZOR_UTIL_RestartDynApp("ssdpd"), ZOR_OK);
  ExpectSent(0x706, 0, "", "ssdpd");
  ExpectUpdate(2, "ssdpd");
  EXPECT_EQ(output.Text(), kStopLine + "upnp should stop.\n" + kStopLine +
                               "ssdpd should stop.\n============================UTilSafeExitProcesses fail to "
                               "ZOR_MSG_SendAndRecv, pcName=ssdpd, ret=65541\n");
  EXPECT_EQ(ZOR_UTIL_UpdateDynAppListenFd(nullptr, 1), 1u);
  EXPECT_TRUE(bus_.peer.NothingArrived());
}

TEST_F(Requests, PostAScriptBehindItsTargetUpToTheAllocationLimit) {
  EXPECT_EQ(ZOR_UTIL_PostLua(kLong.c_str(), "print(1)"), ZOR_OK);
  ExpectSent(0x490C, 0, kLong.substr(0, 255) + '\0' + "print(1)" + '\0', "web");
  const std::string largest(0x800000 - 297, 's');
  EXPECT_EQ(ZOR_UTIL_PostLua("a", largest.c_str()), ZOR_OK);
  EXPECT_EQ(bus_.peer.ReceiveMessage()->header.bodyLength, 260u) << "a path: the body is in a file";
  Capture output;
  EXPECT_EQ(ZOR_UTIL_PostLua("a", (largest + 's').c_str()), 1u);
  EXPECT_EQ(output.Text(), "error: not host tool, but malloc 4M, return NULL, malloc len=8388609\n");
}

}  // namespace

// Replaces the C library's function, for the library too.
extern "C" ZOR_API int uname(struct utsname *kernel) noexcept {
  if (kernelRelease == nullptr) return -1;
  std::snprintf(kernel->release, sizeof kernel->release, "%s", kernelRelease);
  return 0;
}
