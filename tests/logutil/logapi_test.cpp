#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zor/log.h>
#include <zor/msg_wire.h>
#include <zor/status.h>

#include <string>

#include "mlogapi/log_socket.h"
#include "support/capture.h"
#include "support/scripted_server.h"
#include "support/temp_root.h"

namespace {

using testing::EndsWith;
using zor::test::Capture;
using zor::test::LogSocket;
using zor::test::MakeMessage;
using zor::test::Message;

constexpr uint32_t kLogin = 0x05000000;
constexpr uint32_t kReboot = 0x1E080001;  // its sender waits

std::string Padded(const std::string &text, size_t size) {
  return text + std::string(size - text.size(), '\0');
}

template <class Number>
std::string Raw(Number value) {
  return {reinterpret_cast<const char *>(&value), sizeof value};
}

// The bytes of a record.
std::string Record(uint32_t typeLevel, uint32_t index, uint16_t count, uint16_t length, const std::string &parameters) {
  return Raw(0u) + Raw(typeLevel) + Raw(0u) + Raw(index) + Raw(count) + Raw(length) + Padded(parameters, 256);
}

class LogApi : public testing::Test {
 protected:
  // The message that the library has sent; checks that it goes to the log daemon.
  Message Sent(uint32_t type) {
    const Message message = bus_.peer.ReceiveMessage().value_or(Message{});
    EXPECT_EQ(message.header.type, type);
    EXPECT_STREQ(message.header.destination, "syslog");
    return message;
  }
  void QueueReply(uint32_t type, uint32_t word) { bus_.peer.Send(MakeMessage(type, "syslog", "tester", word)); }

  zor::test::TempRoot root_;
  zor::test::LoopbackBus bus_;
};

TEST_F(LogApi, StoresEachParameterInAPaddedSlotAndWaitsWhenTheItemSaysSo) {
  EXPECT_EQ(ZOR_LOG_API_Record_Log(kLogin, "a", "", "bcd", static_cast<char *>(nullptr)), ZOR_OK);
  const Message message = Sent(0x4B01);
  EXPECT_EQ(message.body, Record(0, kLogin, 3, 16, Padded("a", 4) + Padded("$\\0 \\0$", 8) + Padded("bcd", 4)));
  EXPECT_EQ(message.header.sequence, 0u);
  QueueReply(0x4B01, 0);
  EXPECT_EQ(ZOR_LOG_API_Record_Log(kReboot, "admin", static_cast<char *>(nullptr)), ZOR_OK);
  EXPECT_NE(Sent(0x4B01).header.sequence, 0u) << "waits";
}

TEST_F(LogApi, LeavesParametersOutFromTheFirstThatDoesNotFit) {
  const std::string full(255, 'x');
  const std::string half(127, 'h');
  Capture output;
  EXPECT_EQ(ZOR_LOG_API_Record_Log(kLogin, full.c_str(), nullptr), ZOR_OK);
  EXPECT_EQ(Sent(0x4B01).body, Record(0, kLogin, 1, 256, full));
  EXPECT_EQ(output.Text(), "");
  EXPECT_EQ(ZOR_LOG_API_Record_Log(kLogin, half.c_str(), (half + "h").c_str(), "fits", nullptr), ZOR_OK);
  EXPECT_EQ(Sent(0x4B01).body, Record(0, kLogin, 1, 128, half));
  EXPECT_EQ(output.Text(), "[Warning] ZOR_LOG_API_Record_Log paras are too long, need at least 260 bytes...\n");
}

TEST_F(LogApi, RecordsKernelLinesOfUpTo256Characters) {
  const std::pair<size_t, uint16_t> cases[] = {{0, 4}, {3, 4}, {255, 256}, {1000, 256}};
  Capture output;
  for (const auto &[length, used] : cases) {
    const std::string text(length, 'k');
    EXPECT_EQ(ZOR_LOG_API_Record_KLog(1, 0x108, 99, text.c_str()), ZOR_OK);
    EXPECT_EQ(Sent(0x4B02).body, Record(0x108, 0xFFF00000, 1, used, text.substr(0, 256))) << length;
  }
  EXPECT_EQ(output.Text(), "[Warning] ZOR_LOG_API_Record_KLog paras are too long, at least 1000 bytes...\n");
}

TEST_F(LogApi, AsksAndReturnsTheDataWordOfTheReply) {
  const std::string path(70, 'p');
  uint32_t result = 0;
  QueueReply(0x4B04, 12);
  EXPECT_EQ(ZOR_LOG_API_Query_Items("/var/x", 5, 0x2, 0x120, 7, &result), ZOR_OK);
  EXPECT_EQ(result, 12u);
  EXPECT_EQ(Sent(0x4B04).body, Raw(7u) + Raw(0x220u) + Raw(5u) + Padded("/var/x", 64));
  QueueReply(0x4B03, 13);
  EXPECT_EQ(ZOR_LOG_API_System_Query_Items(path.c_str(), 6, nullptr), ZOR_OK);
  EXPECT_EQ(Sent(0x4B03).body, Raw(~0u) + Raw(~0u) + Raw(6u) + path.substr(0, 63) + '\0');
  QueueReply(ZOR_MSG_SEND_FAILED_NOTICE, 0x4B03);
  EXPECT_EQ(ZOR_LOG_API_System_Query_Items("x", 0, &result), ZOR_E_PEER_GONE);
  EXPECT_EQ(result, 12u);
}

TEST_F(LogApi, SendsSettingsWithoutWaiting) {
  const std::string longText(200, 's');
  EXPECT_EQ(ZOR_LOG_API_Set_RtoServer("gateway", "10.0.0.1", 514, longText.c_str(), 515, 3), ZOR_OK);
  EXPECT_EQ(Sent(0x4B07).body, Padded("10.0.0.1", 132) + longText.substr(0, 131) + '\0' + Raw(uint16_t{514}) +
                                   Raw(uint16_t{515}) + Padded("gateway", 32) + Raw(0u) + Raw(3u));
  EXPECT_EQ(ZOR_LOG_API_Set_TypeLevel_Filter(0, 0x1F8), ZOR_OK);
  EXPECT_EQ(Sent(0x4B06).header.data, 0xF8u);
  EXPECT_EQ(ZOR_LOG_API_Clear_Log_By_Type(0x10), ZOR_OK);
  EXPECT_EQ(Sent(0x4B05).header.data, 0x1000u);
}

}  // namespace
