#include <gtest/gtest.h>
#include <zor/lctrl.h>
#include <zor/platform/config.h>
#include <zor/status.h>

#include <cstring>
#include <optional>
#include <string>
#include <thread>

#include "support/capture.h"
#include "support/in_memory.h"
#include "support/scripted_server.h"
#include "support/temp_root.h"

namespace {

using zor::test::LoopbackBus;
using zor::test::MakeMessage;
using zor::test::Message;

const std::string kRequest(ZOR_LCTRL_LOGIN_SIZE, 'q');

TEST(LoginControl, SendsTheRequestWithoutADestinationAndTakesTheResult) {
  LoopbackBus bus;
  bus.peer.Send(MakeMessage(ZOR_LCTRL_CHECK, "lctrl", "tester", 0, std::string(30, 'r')));
  char result[ZOR_LCTRL_RESULT_SIZE + 1] = {};
  EXPECT_EQ(ZOR_LCTRLAPI_Check(kRequest.data(), result), ZOR_OK);
  EXPECT_EQ(std::string(result, sizeof result), std::string(ZOR_LCTRL_RESULT_SIZE, 'r') + '\0');
  const std::optional<Message> sent = bus.peer.ReceiveMessage();
  ASSERT_TRUE(sent);
  EXPECT_EQ(sent->header.type, ZOR_LCTRL_CHECK);
  EXPECT_STREQ(sent->header.destination, "");
  EXPECT_EQ(sent->body, kRequest);
}

TEST(LoginControl, AShortReplyIsFilledWithZerosAndAnEmptyOneTouchesNothing) {
  LoopbackBus bus;
  char result[ZOR_LCTRL_ROUND_RESULT_SIZE];
  std::memset(result, 'u', sizeof result);
  bus.peer.Send(MakeMessage(ZOR_LCTRL_FORBIDDEN_ROUND, "lctrl", "tester"));
  EXPECT_EQ(ZOR_LCTRLAPI_GetForbiddenRound(kRequest.data(), result), ZOR_LCTRL_E_EMPTY_REPLY);
  EXPECT_EQ(std::string(result, sizeof result), "uuuuuuuu");
  bus.peer.Send(MakeMessage(ZOR_LCTRL_FORBIDDEN_ROUND, "lctrl", "tester", 0, "abc"));
  EXPECT_EQ(ZOR_LCTRLAPI_GetForbiddenRound(kRequest.data(), result), ZOR_OK);
  EXPECT_EQ(std::string(result, sizeof result), std::string("abc\0\0\0\0\0", 8));
}

TEST(LoginControl, ATimeOutIsPrintedAndFollowedByOneRetryWithTheSameBody) {
  LoopbackBus bus;
  std::thread service([&] {
    const std::optional<Message> first = bus.peer.ReceiveMessage();
    const std::optional<Message> second = bus.peer.ReceiveMessage();
    ASSERT_TRUE(first && second);
    EXPECT_EQ(second->body, first->body);
    EXPECT_NE(second->header.sequence, first->header.sequence);
    bus.peer.Send(MakeMessage(ZOR_LCTRL_LOGIN, "lctrl", "tester", 0, std::string(ZOR_LCTRL_RESULT_SIZE, 'r')));
  });
  char result[ZOR_LCTRL_RESULT_SIZE] = {};
  zor::test::Capture out;
  EXPECT_EQ(ZOR_LCTRLAPI_Login(kRequest.data(), result), ZOR_OK);
  EXPECT_EQ(out.Text(), "msg timeout error : 65541 \n");
  EXPECT_EQ(result[0], 'r');
  service.join();
}

TEST(LoginControl, OneWayRequestsCarryTheirBytes) {
  LoopbackBus bus;
  EXPECT_EQ(ZOR_LCTRLAPI_SetMaxFailedTimes("12345678"), ZOR_OK);
  ZOR_LCTRLAPI_ClearForbiddenList(0x64636261);
  const std::optional<Message> setting = bus.peer.ReceiveMessage();
  const std::optional<Message> clearing = bus.peer.ReceiveMessage();
  ASSERT_TRUE(setting && clearing);
  EXPECT_EQ(setting->header.type, ZOR_LCTRL_SET_MAX_FAILED);
  EXPECT_EQ(setting->body, "12345678");
  EXPECT_EQ(clearing->header.type, ZOR_LCTRL_CLEAR_FORBIDDEN);
  EXPECT_EQ(clearing->body, zor::test::InMemory(0x64636261));
}

TEST(LoginControl, AStoredWaitTimeAboveTenCountsAsNone) {
  const zor::test::TempRoot root;
  EXPECT_EQ(ZOR_LCTRLAPI_LoginWaitTime(), 0u);
  for (const uint32_t stored : {10u, 11u, 0xffffffffu}) {
    ASSERT_EQ(ZOR_DBSetPara(0x6180D104, 0, &stored, sizeof stored), ZOR_STORE_OK);
    EXPECT_EQ(ZOR_LCTRLAPI_LoginWaitTime(), stored == 10 ? 10u : 0u);
  }
}

TEST(LoginControl, NullsAreRefusedBeforeAnythingElse) {
  char result[ZOR_LCTRL_RESULT_SIZE];
  EXPECT_EQ(ZOR_LCTRLAPI_Login(nullptr, result), ZOR_LCTRL_E_ARGUMENT);
  EXPECT_EQ(ZOR_LCTRLAPI_Check(kRequest.data(), nullptr), ZOR_LCTRL_E_ARGUMENT);
  EXPECT_EQ(ZOR_LCTRLAPI_GetForbiddenRound(nullptr, nullptr), ZOR_LCTRL_E_ARGUMENT);
  EXPECT_EQ(ZOR_LCTRLAPI_SetMaxFailedTimes(nullptr), ZOR_LCTRL_E_ARGUMENT);
}

}  // namespace
