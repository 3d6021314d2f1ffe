#include <functional>

#include "kivaapi/device_files.h"
#include "support/capture.h"
#include "support/scripted_server.h"

namespace zor::test {
namespace {

class KivaRequests : public DeviceFiles {
 protected:
  static std::string Body(const kiva_info_status &status, const std::string &texts) {
    return std::string(reinterpret_cast<const char *>(&status), sizeof status) + texts + '\0';
  }
  void ExpectSent(uint32_t type, const std::string &body) {
    const Message sent = bus_.peer.ReceiveMessage().value_or(Message{});
    EXPECT_EQ(sent.header.type, type);
    EXPECT_STREQ(sent.header.destination, "cms");
    EXPECT_EQ(sent.body, body);
  }
  // Sends and asks, and checks that both requests carry the body.
  void ExpectBoth(const std::function<uint32_t()> &tell, const std::function<uint32_t()> &ask,
                  const std::string &body) {
    EXPECT_EQ(tell(), ZOR_OK);
    ExpectSent(0x26E00, body);
    bus_.peer.Send(MakeMessage(0x26E0F, "cms", "tester", 0));
    EXPECT_EQ(ask(), ZOR_OK);
    ExpectSent(0x26E0F, body);
  }

  LoopbackBus bus_;
  char mac_[16] = "001122AABBCC";
  char text_[8] = "text";
  std::string tooLong_ = std::string(516, 'l');
};

TEST_F(KivaRequests, CarryARecordWithDefaultsForWhatItLacks) {
  const kiva_info_status status = {1, 2, 3, 4, 5};
  std::string mac(60, 'm');
  const struct {
    dev_kiva_info info;
    std::string texts;
  } cases[] = {
      {{status, mac_, text_, tooLong_.data()}, std::string("001122AABBCC\0text\0", 18) + tooLong_.substr(0, 67)},
      {{status, mac.data(), nullptr, nullptr}, mac + '\0' + '\0' + "/var/kiva/kiva_" + mac.substr(0, 52)},
  };
  for (const auto &each : cases) {
    ExpectBoth([&] { return ZOR_UPG_AddDevKivaInfo(&each.info); },
               [&] { return ZOR_UPG_AddDevKivaInfoSync(&each.info); }, Body(status, each.texts));
  }
}

TEST_F(KivaRequests, ToRemoveCarryTheMacWithoutItsSeparators) {
  EXPECT_EQ(ZOR_UPG_RemoveDevKivaInfo("00:11:22:AA:BB:CC"), ZOR_OK);
  ExpectSent(0x26E01, mac_ + std::string(6, '\0'));
  bus_.peer.Send(MakeMessage(0x26E10, "cms", "tester", 7));
  EXPECT_EQ(ZOR_UPG_RemoveDevKivaInfoSync("00:11:22:AA:BB:CC"), ZOR_KIVA_E_REFUSED);
  ExpectSent(0x26E10, mac_);
  bus_.peer.Send(MakeMessage(ZOR_MSG_SEND_FAILED_NOTICE, "", "tester", 0x26E10));
  EXPECT_EQ(ZOR_UPG_RemoveDevKivaInfoSync(tooLong_.c_str()), ZOR_E_PEER_GONE);
  ExpectSent(0x26E10, tooLong_.substr(0, 17));
}

TEST_F(KivaRequests, ThatNoMessageHoldsAreRefusedBeforeAnythingIsSent) {
  const dev_kiva_info cases[] = {{{}, tooLong_.data(), text_, text_}, {{}, mac_, tooLong_.data(), text_}};
  for (const auto &each : cases) {
    Capture output;
    EXPECT_EQ(ZOR_UPG_AddDevKivaInfo(&each), ZOR_KIVA_E_ARGUMENT);
    EXPECT_EQ(output.Text(), "KIVAXDR: Para too long \r");
  }
  EXPECT_TRUE(bus_.peer.NothingArrived());
  tooLong_.pop_back();
  EXPECT_EQ(ZOR_UPG_AddDevKivaInfo(&cases[0]), ZOR_OK);
}

TEST_F(KivaRequests, ToUpdateBeginWithTheStoredRecord) {
  EXPECT_EQ(ZOR_UPG_UpdateKivaStateEx(mac_, 1), ZOR_FILE_E_IO);
  const std::string file = KivaFile({KivaBytes("other", 23), KivaBytes("001122aabbcc", 3, 1)});
  Write(ZOR_PATH_KIVA_LIST, file);
  const dev_kiva_info nothing = {{0, 0, 9, 0, 9}, mac_, nullptr, nullptr};
  const dev_kiva_info everything = {{5, 6, 9, 8, 9}, mac_, text_, text_};
  const std::string stored("001122aabbcc\0d\0x", 16);
  ExpectBoth([&] { return ZOR_UPG_UpdateKivaInfo(&nothing); }, [&] { return ZOR_UPG_UpdateKivaInfoSync(&nothing); },
             Body({1, 2, 9, 4, 1}, stored));
  ExpectBoth([&] { return ZOR_UPG_UpdateKivaInfo(&everything); },
             [&] { return ZOR_UPG_UpdateKivaInfoSync(&everything); },
             Body({5, 6, 9, 8, 1}, std::string("001122aabbcc\0text\0text", 22)));
  ExpectBoth([&] { return ZOR_UPG_UpdateKivaStateEx(mac_, 0); }, [&] { return ZOR_UPG_UpdateKivaStateExSync(mac_, 0); },
             Body({1, 2, 0, 4, 1}, stored));
  EXPECT_EQ(ZOR_UPG_UpdateKivaDlSize("other", 77), ZOR_OK);
  ExpectSent(0x26E00, Body({77, 2, 23, 4, 0}, std::string("other\0d\0x", 9)));
  EXPECT_EQ(ZOR_UPG_UpdateKivaDlSize(mac_, 77), ZOR_OK) << "nothing is sent in its state";
  EXPECT_EQ(ZOR_UPG_UpdateKivaDlSize("unknown", 77), ZOR_KIVA_E_UNKNOWN);
  EXPECT_TRUE(bus_.peer.NothingArrived());
  EXPECT_EQ(Read(ZOR_PATH_KIVA_LIST), file);
}

}  // namespace
}  // namespace zor::test
