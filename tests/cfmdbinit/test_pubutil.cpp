#include <gtest/gtest.h>
#include <sys/utsname.h>
#include <zor/msg_build.h>
#include <zor/pubutil.h>
#include <zor/status.h>

#include <cstdio>
#include <string>

#include "support/capture.h"
#include "support/scripted_server.h"

namespace {

const char *kernelRelease = nullptr;  // null: uname fails

}  // namespace

// Stands in for the C library's, for the library too.
extern "C" ZOR_API int uname(struct utsname *kernel) noexcept {
  if (kernelRelease == nullptr) return -1;
  std::snprintf(kernel->release, sizeof kernel->release, "%s", kernelRelease);
  return 0;
}

namespace {

using zor::test::Capture;
using zor::test::MakeMessage;
using zor::test::Message;

const std::string kStopLine = "==========================ZOR_UTIL_UpdateDynAppListenFd app name ";

class ProcessHelpers : public testing::Test {
 protected:
  Message Sent() { return bus_.peer.ReceiveMessage().value_or(Message{}); }
  // Checks the request for a new value, and that nothing was sent before it.
  void ExpectUpdate(uint32_t value, const std::string &name) {
    const Message update = Sent();
    EXPECT_EQ(update.header.type, 0x5001u);
    EXPECT_STREQ(update.header.destination, "");
    EXPECT_EQ(update.header.data, value);
    EXPECT_EQ(update.body, name + std::string(12 - name.size(), '\0'));
  }

  zor::test::TempRoot root_;
  zor::test::LoopbackBus bus_{"eleven_char"};
};

TEST_F(ProcessHelpers, ClassifyTheKernel) {
  const struct {
    const char *release;
    uint32_t value;
  } cases[] = {{"2.6.210", 0}, {"2.6.36.4", 2}, {"x-2.6.36 2.6.21", 0}, {"3.10.0", 1}, {"", 1}, {nullptr, 1}};
  for (const auto &each : cases) {
    kernelRelease = each.release;
    EXPECT_EQ(ZOR_UTIL_GetLinuxVersion(), each.value);
  }
}

TEST_F(ProcessHelpers, TellNewValuesWithoutStoppingForZeroOrThisProcessItself) {
  Capture output;
  EXPECT_EQ(ZOR_UTIL_UpdateDynAppStatus("upnp", 1), ZOR_OK);
  ExpectUpdate(0, "upnp");
  EXPECT_EQ(ZOR_UTIL_UpdateDynAppStatus("upnp", 5), ZOR_OK);
  ExpectUpdate(0, "upnp");
  for (const char *own : {"eleven_char", "eleven_chars"}) {
    EXPECT_EQ(ZOR_UTIL_UpdateDynAppListenFd(own, 7), ZOR_OK);
    ExpectUpdate(7, "eleven_char");
  }
  EXPECT_EQ(ZOR_UTIL_UpdateDynAppListenFd(nullptr, 1), 1u);
  EXPECT_TRUE(bus_.peer.NothingArrived());
  EXPECT_EQ(output.Text(), "");
}

TEST_F(ProcessHelpers, StopAnotherApplicationFirstAndTellEvenWhenThatFails) {
  Capture output;
  bus_.peer.Send(MakeMessage(ZOR_MSG_SAFE_EXIT, "upnp", "eleven_char"));
  EXPECT_EQ(ZOR_UTIL_UpdateDynAppStatus("upnp", 0), ZOR_OK);
  EXPECT_STREQ(Sent().header.destination, "upnp");
  ExpectUpdate(1, "upnp");
  g_ulSafeExitMsgTimeout = 20;
  EXPECT_EQ(ZOR_UTIL_RestartDynApp("ssdpd"), ZOR_OK);
  const Message stop = Sent();
  EXPECT_EQ(stop.header.type, 0x706u);
  EXPECT_EQ(stop.body, "");
  ExpectUpdate(2, "ssdpd");
  EXPECT_EQ(output.Text(), kStopLine + "upnp should stop.\n" + kStopLine +
                               "ssdpd should stop.\n============================UTilSafeExitProcesses fail to "
                               "ZOR_MSG_SendAndRecv, pcName=ssdpd, ret=65541\n");
}

TEST_F(ProcessHelpers, KillAllDynamicApplications) {
  bus_.peer.Send(MakeMessage(0x504D, "cms", "eleven_char", 3));
  EXPECT_EQ(ZOR_UTIL_KillAllDynApp(), 3u);
  EXPECT_EQ(Sent().header.type, 0x504Du);
  bus_.peer.Close();
  EXPECT_EQ(ZOR_UTIL_KillAllDynApp(), ZOR_E_PEER_GONE);
}

TEST_F(ProcessHelpers, PostAScriptBehindItsTarget) {
  const std::string longTarget(300, 't');
  EXPECT_EQ(ZOR_UTIL_PostLua(longTarget.c_str(), "print(1)"), ZOR_OK);
  const Message posted = Sent();
  EXPECT_EQ(posted.header.type, 0x490Cu);
  EXPECT_STREQ(posted.header.destination, "web");
  EXPECT_NE(posted.header.sequence, 0u);
  EXPECT_EQ(posted.body, longTarget.substr(0, 255) + '\0' + "print(1)" + '\0');
  EXPECT_EQ(ZOR_UTIL_PostLua("a", ""), ZOR_OK);
  EXPECT_EQ(Sent().body, 'a' + std::string(256, '\0'));
}

TEST_F(ProcessHelpers, RefuseAScriptThatNoMessageHolds) {
  Capture output;
  const std::string largest(0x800000 - 297, 's');
  EXPECT_EQ(ZOR_UTIL_PostLua("a", largest.c_str()), ZOR_OK);
  EXPECT_EQ(Sent().header.bodyLength, 260u) << "a path: the body lies in a file";
  EXPECT_EQ(ZOR_UTIL_PostLua("a", (largest + 's').c_str()), 1u);
  EXPECT_EQ(output.Text(), "error: not host tool, but malloc 4M, return NULL, malloc len=8388609\n");
  EXPECT_EQ(ZOR_UTIL_PostLua(nullptr, "a"), 1u);
  EXPECT_EQ(ZOR_UTIL_PostLua("a", nullptr), 1u);
  EXPECT_TRUE(bus_.peer.NothingArrived());
}

}  // namespace
