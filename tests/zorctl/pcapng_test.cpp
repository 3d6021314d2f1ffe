// Captures and their dissector, with messages that no well-behaved daemon sends.
#include "zorctl/pcapng.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zor/control_wire.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>

#include "support/temp_root.h"

namespace zor::test {
namespace {

using Copy = std::vector<std::byte>;

Copy MakeCopy(uint32_t type, const std::string &source, const std::string &destination, const std::string &body) {
  ZOR_CONTROL_COPY copy{};
  copy.timeUs = 1'700'000'000'123'456;
  ZOR_MSG_HEAD head{};
  head.type = type;
  head.sequence = 7;
  source.copy(head.source, sizeof head.source);
  destination.copy(head.destination, sizeof head.destination);
  destination.copy(copy.receiver, sizeof copy.receiver);
  head.bodyLength = static_cast<uint32_t>(body.size());
  copy.frameSize = static_cast<uint32_t>(sizeof head + body.size());
  Copy bytes(sizeof copy + sizeof head + body.size());
  std::memcpy(bytes.data(), &copy, sizeof copy);
  std::memcpy(bytes.data() + sizeof copy, &head, sizeof head);
  std::memcpy(bytes.data() + sizeof copy + sizeof head, body.data(), body.size());
  return bytes;
}

std::string Words(std::initializer_list<uint32_t> words) {
  return {reinterpret_cast<const char *>(words.begin()), words.size() * sizeof(uint32_t)};
}

// One message of each shape that the dissector decodes.
std::vector<Copy> Samples() {
  const std::string item = Words({0, 7, 7}) + std::string("device\0boiler", 14);
  return {
      MakeCopy(0x209, "web", "cms", Words({0xfebf, 50, 0, 5, 0, 1}) + item),
      MakeCopy(0x10D, "web", "cms", std::string(136, 'x') + "{1}"),
      MakeCopy(0x701, "", "web", Words({1, 30}) + std::string(68, '\1')),
      MakeCopy(0x702, "web", "", std::string("web\0\0\0\0\0\0\0\0\0", 12)),
      MakeCopy(0x2DA07, "cms", "", "{\"Module\":\"netz\xc3\xbc\xff\x1b[0m\xe2\x80\xae\"}"),
      MakeCopy(0x500F, "web", "", Words({1, 0})),
      MakeCopy(0x26E00, "upg", "cms", std::string(20, '\0') + std::string("00AA\0\0/x", 9)),
      MakeCopy(0x10004001, "web", "cms", "/var/run/msg/msg_file_1" + std::string(237, '\0')),
      MakeCopy(0x4001, "\x1b[31m\xff\n", "\xe2\x82", "\x1b]0;title\x07"),
  };
}

class PcapngTest : public testing::Test {
 protected:
  void Write(const std::vector<Copy> &copies) {
    ctl::PcapngFile file;
    ASSERT_TRUE(file.Open(path_, "bus"));
    for (const Copy &copy : copies) ASSERT_TRUE(file.Write(copy));
    ASSERT_TRUE(file.Flush());
    EXPECT_EQ(file.packets(), copies.size());
  }
  // The output of tshark for the file, errors included.
  std::string Dissect(const std::string &options) {
    const std::string output = root_.Path("/output");
    const std::string command =
        "tshark -Q -X 'lua_script:" ZORBUS_LUA "' -r " + path_ + " " + options + " >" + output + " 2>&1 </dev/null";
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
    std::ostringstream text;
    text << std::ifstream(output).rdbuf();
    return text.str();
  }

  TempRoot root_;
  const std::string path_ = root_.Path("/bus.pcapng");
};

TEST_F(PcapngTest, ADissectorMeetsDamagedFramesWithoutAnError) {
  if (std::system("command -v tshark >/dev/null") != 0) GTEST_SKIP() << "needs tshark";
  std::vector<Copy> damaged;
  std::minstd_rand random(1);
  for (const Copy &sample : Samples()) {
    for (size_t size = 1; size <= sample.size(); ++size) {
      damaged.emplace_back(sample.begin(), sample.begin() + static_cast<ptrdiff_t>(size));
      Copy changed = sample;
      for (int i = 0; i < 4; ++i) changed[random() % changed.size()] = std::byte(random());
      damaged.push_back(changed);
    }
  }
  Write(damaged);
  const std::string text = Dissect("-V");
  EXPECT_THAT(text, testing::Not(testing::HasSubstr("Lua Error")));
  EXPECT_THAT(text, testing::HasSubstr("Frame " + std::to_string(damaged.size()) + ":"));
  EXPECT_EQ(text.find('\x1b'), std::string::npos) << "control characters reach the terminal";
}

TEST_F(PcapngTest, ADissectorReadsTheOtherByteOrderToo) {
  if (std::system("command -v tshark >/dev/null") != 0) GTEST_SKIP() << "needs tshark";
  Copy swapped = MakeCopy(0x500F, "web", "cms", Words({0x01000000, 0}));
  const auto reverse = [&](size_t offset, size_t size) {
    std::reverse(swapped.begin() + static_cast<ptrdiff_t>(offset),
                 swapped.begin() + static_cast<ptrdiff_t>(offset + size));
  };
  reverse(offsetof(ZOR_CONTROL_COPY, timeUs), sizeof(uint64_t));
  reverse(offsetof(ZOR_CONTROL_COPY, frameSize), sizeof(uint32_t));
  for (const size_t offset :
       {offsetof(ZOR_MSG_HEAD, type), offsetof(ZOR_MSG_HEAD, sequence), offsetof(ZOR_MSG_HEAD, bodyLength)}) {
    reverse(sizeof(ZOR_CONTROL_COPY) + offset, sizeof(uint32_t));
  }
  Write({swapped});
  EXPECT_THAT(Dissect("-T fields -e zorbus.copy.time -e zorbus.copy.frame_size -e zorbus.type_name -e zorbus.sequence "
                      "-e zorbus.field.u32"),
              testing::HasSubstr("Nov 14, 2023 22:13:20.123456000 UTC\t48\tZOR_MSG_RESTORE_DEFAULT\t7\t1,0\n"));
}

}  // namespace
}  // namespace zor::test
