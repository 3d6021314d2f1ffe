#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zor/mlog.h>

#include <cstring>
#include <string>

#include "support/capture.h"
#include "support/scripted_server.h"

namespace {

using zor::test::Capture;

// Stands for the netlink socket: what is sent without an address arrives at the other end.
class MlogNetlink : public testing::Test {
 protected:
  zor::test::SocketPair pair_;
  int near_ = pair_.near.fd();
};

TEST_F(MlogNetlink, AStatisticIsSentBehindItsHeaderAndPadded) {
  for (const uint32_t length : {0u, 3u, 516u}) {
    const nlmsghdr header = {length + 16, 3, 0, 0, static_cast<uint32_t>(::getpid())};
    const std::string data(length, 'd');
    ASSERT_EQ(stat_netlink_send(near_, length == 0 ? nullptr : data.data(), length), 0);
    std::string expected(reinterpret_cast<const char *>(&header), sizeof header);
    expected += data;
    expected.resize((expected.size() + 3) / 4 * 4);
    EXPECT_EQ(pair_.far.Receive(expected.size()), expected);
    EXPECT_TRUE(pair_.far.NothingArrived());
  }
}

TEST_F(MlogNetlink, RefusesWhatIsTooLargeOrMissing) {
  const char byte = 0;
  Capture output;
  EXPECT_EQ(stat_netlink_send(near_, nullptr, 1), -1);
  EXPECT_EQ(stat_netlink_send(near_, &byte, 0x800000 - 15), -1);
  EXPECT_EQ(stat_netlink_send(near_, &byte, 0xffffffff), -1) << "the size must not wrap to a small one";
  const std::string refused = "error: not host tool, but malloc 4M, return NULL, malloc len=";
  EXPECT_EQ(output.Text(), refused + "8388612\n" + refused + "16\n");
}

TEST_F(MlogNetlink, OnlyAWholeRecordIsReceived) {
  const std::string packet(532, 'r');
  pair_.far.Send(packet);
  ZOR_MLOG_STAT stat = {};
  EXPECT_EQ(stat_netlink_receive(near_, &stat), 0);
  EXPECT_EQ(memcmp(&stat, packet.data() + 16, sizeof stat), 0);

  Capture output;
  pair_.far.Send(packet.substr(0, 20));
  EXPECT_EQ(stat_netlink_receive(near_, &stat), -1);
  EXPECT_EQ(stat_netlink_receive(-1, &stat), -1);
  EXPECT_EQ(output.Text(), "recvmsg error (20) , stat_netlink_receive \nrecvmsg error (-1) , stat_netlink_receive \n");
}

}  // namespace
