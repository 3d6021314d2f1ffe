#include "kivaapi/device_files.h"
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

  LoopbackBus bus_;
  char mac_[16] = "001122AABBCC";
};

TEST_F(KivaRequests, CarryARecordWithDefaultsForWhatItLacks) {
  const kiva_info_status status = {1, 2, 3, 4, 5};
  std::string mac(60, 'm'), path(516, 'l');
  char text[] = "text";
  const struct {
    dev_kiva_info info;
    std::string texts;
  } cases[] = {
      {{status, mac_, text, path.data()}, std::string("001122AABBCC\0text\0", 18) + path.substr(0, 67)},
      {{status, mac.data(), nullptr, nullptr}, mac + '\0' + '\0' + "/var/kiva/kiva_" + mac.substr(0, 52)},
  };
  for (const auto &each : cases) {
    EXPECT_EQ(ZOR_UPG_AddDevKivaInfo(&each.info), ZOR_OK);
    ExpectSent(0x26E00, Body(status, each.texts));
  }
}

TEST_F(KivaRequests, ToUpdateBeginWithTheStoredRecord) {
  Write(ZOR_PATH_KIVA_LIST, KivaFile({KivaBytes("other", 23), KivaBytes("001122aabbcc", 3, 1)}));
  const dev_kiva_info nothing = {{0, 0, 9, 0, 9}, mac_, nullptr, nullptr};
  EXPECT_EQ(ZOR_UPG_UpdateKivaInfo(&nothing), ZOR_OK);
  ExpectSent(0x26E00, Body({1, 2, 9, 4, 1}, std::string("001122aabbcc\0d\0x", 16)));
  EXPECT_EQ(ZOR_UPG_UpdateKivaDlSize("other", 77), ZOR_OK);
  ExpectSent(0x26E00, Body({77, 2, 23, 4, 0}, std::string("other\0d\0x", 9)));
  EXPECT_EQ(ZOR_UPG_UpdateKivaDlSize(mac_, 77), ZOR_OK) << "nothing is sent in its state";
  EXPECT_TRUE(bus_.peer.NothingArrived());
}

}  // namespace
}  // namespace zor::test
