#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zor/mlog.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/capture.h"

namespace {

using zor::test::Capture;

// Stands for the netlink socket: what is sent without an address arrives at the other end.
class MlogNetlink : public testing::Test {
 protected:
  MlogNetlink() { EXPECT_EQ(::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends_), 0); }
  ~MlogNetlink() override {
    for (int fd : ends_) ::close(fd);
  }

  int ends_[2] = {-1, -1};
};

TEST_F(MlogNetlink, AStatisticIsSentBehindItsHeaderAndPadded) {
  for (const uint32_t length : {0u, 3u, 4u, 516u}) {
    const std::string data(length, 'd');
    ASSERT_EQ(stat_netlink_send(ends_[0], length == 0 ? nullptr : data.data(), length), 0);
    char buffer[1024];
    const ssize_t count = ::recv(ends_[1], buffer, sizeof buffer, 0);
    ASSERT_EQ(count, static_cast<ssize_t>((length + 16 + 3) / 4 * 4));
    nlmsghdr header;
    memcpy(&header, buffer, sizeof header);
    EXPECT_EQ(header.nlmsg_len, length + 16);
    EXPECT_EQ(header.nlmsg_type, 3);
    EXPECT_EQ(header.nlmsg_flags, 0);
    EXPECT_EQ(header.nlmsg_seq, 0u);
    EXPECT_EQ(header.nlmsg_pid, static_cast<uint32_t>(::getpid()));
    EXPECT_EQ(std::string(buffer + 16, length), data);
  }
}

TEST_F(MlogNetlink, RefusesWhatIsTooLargeOrMissing) {
  const char byte = 0;
  Capture output;
  EXPECT_EQ(stat_netlink_send(ends_[0], nullptr, 1), -1);
  EXPECT_EQ(output.Text(), "");
  EXPECT_EQ(stat_netlink_send(ends_[0], &byte, 0x800000 - 15), -1);
  EXPECT_EQ(stat_netlink_send(ends_[0], &byte, 0xffffffff), -1) << "the size must not wrap to a small one";
  const std::string refused = "error: not host tool, but malloc 4M, return NULL, malloc len=";
  EXPECT_EQ(output.Text(), refused + "8388612\n" + refused + "16\n");
}

TEST_F(MlogNetlink, OnlyAWholeRecordIsReceived) {
  std::vector<char> packet(532, 'r');
  ASSERT_EQ(::send(ends_[0], packet.data(), packet.size(), 0), 532);
  ZOR_MLOG_STAT stat = {};
  EXPECT_EQ(stat_netlink_receive(ends_[1], &stat), 0);
  EXPECT_EQ(memcmp(&stat, packet.data() + 16, sizeof stat), 0);

  Capture output;
  ASSERT_EQ(::send(ends_[0], packet.data(), 20, 0), 20);
  EXPECT_EQ(stat_netlink_receive(ends_[1], &stat), -1);
  EXPECT_EQ(stat_netlink_receive(-1, &stat), -1);
  EXPECT_EQ(output.Text(), "recvmsg error (20) , stat_netlink_receive \nrecvmsg error (-1) , stat_netlink_receive \n");
}

}  // namespace
