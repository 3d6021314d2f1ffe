#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zor/msg.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "support/capture.h"
#include "support/scripted_server.h"

namespace zor::test {
namespace {

using Block = std::unique_ptr<ZOR_MSG_HEAD, decltype([](ZOR_MSG_HEAD *msg) { std::free(msg); })>;

TEST(ResponseBuilder, AnswersTheSenderUnderTheRequestsTypeAndNumber) {
  const ZOR_MSG_HEAD request = MakeMessage(0x321, "asker_no_nul", "me", 5, "", 99).header;
  const struct {
    const char *data;
    uint32_t length;
    std::string body;
    uint32_t numbersTaken;
  } cases[] = {{"text", 4, "text", 0}, {"text", 0, "", 0}, {nullptr, 4, "", 1}};
  for (const auto &c : cases) {
    g_stMsgCtx.sequence = 0;
    const Block reply(ZOR_MSG_MsgResponseBuilder(&request, 8, c.data, c.length));
    const std::string wire = MakeMessage(0x321, "", "asker_no_nu", 8, c.body, 99).Bytes();
    EXPECT_EQ(std::memcmp(reply.get(), wire.data(), wire.size()), 0);
    EXPECT_EQ(g_stMsgCtx.sequence, c.numbersTaken);
  }
}

TEST(MessageBlocks, AreRefusedSilentlyOrByTheAllocationGuard) {
  ZOR_MSG_HEAD huge = {};
  Capture output;
  huge.bodyLength = 0xffffffd7;
  EXPECT_EQ(ZOR_MSG_Dup(&huge), nullptr);
  EXPECT_EQ(ZOR_MSG_MsgResponseBuilder(&huge, 0, "x", 0x7fffffd7), nullptr);
  EXPECT_EQ(ZOR_MSG_SendMsgDataWithDataSeq("cms", 1, "x", 0xffffffd7, 0, 0), ZOR_E_NO_MEMORY);
  EXPECT_EQ(output.Text(), "");
  huge.bodyLength = 0xffffffd6;
  EXPECT_EQ(ZOR_MSG_Dup(&huge), nullptr);
  EXPECT_EQ(ZOR_MSG_MsgResponseBuilder(&huge, 0, "x", 0x7fffffd6), nullptr);
  EXPECT_EQ(ZOR_MSG_SendMsgDataWithDataSeq("cms", 1, "x", 0xffffffd6, 0, 0), ZOR_E_NO_MEMORY);
  EXPECT_EQ(ZOR_MSG_GetMsgBlock(0xffffffd9), nullptr) << "40 more would wrap to a block of one byte";
  const std::string text = "error: not host tool, but malloc 4M, return NULL, malloc len=";
  EXPECT_EQ(output.Text(), text + "-2\n" + text + "2147483646\n" + text + "-2\n" + text + "1\n");
}

TEST(MessageBlocks, AreLaidOutAndDescribedThroughTheirBody) {
  alignas(ZOR_MSG_HEAD) char buffer[50];
  EXPECT_EQ(ZOR_MSG_GetMsgBlockEx(buffer, 39), nullptr);
  EXPECT_EQ(ZOR_MSG_GetMsgBlockEx(buffer, 40), buffer + 40);
  void *body = ZOR_MSG_GetMsgBlockEx(buffer, 50);
  EXPECT_EQ(ZOR_MSG_SetMsgProfile(body, "cms", 5, 8), ZOR_OK);
  EXPECT_EQ(ZOR_MSG_SetMsgProfile(body, "a_name_that_is_too_long", 6, 9), ZOR_E_ARGUMENT) << "8 is the capacity now";
  ZOR_MSG_HEAD *msg = ZOR_MSG_GetMsgHead(std::memcpy(body, "12345678", 8));
  const std::string wire = MakeMessage(6, "", "a_name_that", 0, "12345678").Bytes();
  const Block copy(ZOR_MSG_Dup(msg));
  EXPECT_EQ(std::memcmp(copy.get(), wire.data(), wire.size()), 0);
  const Block empty(ZOR_MSG_GetMsgHead(ZOR_MSG_GetMsgBlock(0)));
  EXPECT_EQ(empty->bodyLength, 0u) << "an empty body has a place too";
}

class OneCallSend : public ::testing::Test {
 protected:
  LoopbackBus bus_{"tester"};
};

TEST_F(OneCallSend, PutsTypeNumberDataAndBodyOnTheWire) {
  const struct {
    const char *what;
    std::function<uint32_t()> send;
    uint32_t data;
    uint32_t sequence;
    std::string body;
    uint32_t numbersTaken;
  } cases[] = {
      {"simple", [] { return ZOR_MSG_SendSimpleMsg("cms", 9, 4); }, 4, 51, "", 1},
      {"simple with number", [] { return ZOR_MSG_SendSimpleMsgWithSeqNum("cms", 9, 4, 7); }, 4, 7, "", 1},
      {"all given", [] { return ZOR_MSG_SendMsgDataWithDataSeq("cms", 9, "ab", 2, 4, 7); }, 4, 7, "ab", 0},
      {"no data, number", [] { return ZOR_MSG_SendMsgDataWithDataSeq("cms", 9, nullptr, 2, 4, 7); }, 4, 7, "", 1},
      {"data and word", [] { return ZOR_MSG_SendMsgDataWithData("cms", 9, "ab", 2, 4); }, 4, 0, "ab", 0},
      {"no data", [] { return ZOR_MSG_SendMsgDataWithData("cms", 9, nullptr, 2, 4); }, 4, 51, "", 1},
      {"data only", [] { return ZOR_MSG_SendMsgData("cms", 9, "ab", 2); }, 0, 0, "ab", 0},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    g_stMsgCtx.sequence = 50;
    ASSERT_EQ(c.send(), ZOR_OK);
    EXPECT_EQ(bus_.peer.ReceiveMessage()->Bytes(), MakeMessage(9, "tester", "cms", c.data, c.body, c.sequence).Bytes());
    EXPECT_EQ(g_stMsgCtx.sequence, 50 + c.numbersTaken);
  }
}

TEST_F(OneCallSend, AsksAboutOtherDaemonsWithAFullNameField) {
  const std::string name("upnp\0\0\0\0\0\0\0\0", 12);
  g_stMsgCtx.sequence = 0;
  EXPECT_EQ(ZOR_MSG_SubscribeEventForOtherApp(0x2da05, nullptr), ZOR_OK);
  EXPECT_EQ(ZOR_MSG_SubscribeEventForOtherApp(0x2da05, "upnp"), ZOR_OK);
  EXPECT_EQ(bus_.peer.ReceiveMessage()->Bytes(), MakeMessage(0x702, "tester", "", 0x2da05, name).Bytes());
  bus_.peer.Send(MakeMessage(0x705, "", "tester", 3));
  EXPECT_EQ(ZOR_MSG_GetNumOfProcesses("upnp"), 3u);
  EXPECT_EQ(bus_.peer.ReceiveMessage()->Bytes(), MakeMessage(0x705, "tester", "", 0, name, 1).Bytes());
  bus_.peer.Send(MakeMessage(0x108, "", "tester", 0x706));
  EXPECT_EQ(ZOR_MSG_SafeExitProcesses("upnp"), ZOR_E_PEER_GONE);
  EXPECT_EQ(bus_.peer.ReceiveMessage()->Bytes(), MakeMessage(0x706, "tester", "upnp", 0, "", 3).Bytes());
  EXPECT_EQ(bus_.peer.ReceiveMessage()->Bytes(), MakeMessage(0x706, "tester", "", 0, name).Bytes());
}

class DescriptorPassing : public OneCallSend {
 protected:
  // A frame with one descriptor as another process would send it.
  void SendFrame(const std::string &bytes, int fd) {
    iovec data = {const_cast<char *>(bytes.data()), bytes.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof fd)] = {};
    msghdr msg = {};
    msg.msg_iov = &data;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof control;
    cmsghdr *header = CMSG_FIRSTHDR(&msg);
    header->cmsg_len = CMSG_LEN(sizeof fd);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    std::memcpy(CMSG_DATA(header), &fd, sizeof fd);
    ASSERT_EQ(::sendmsg(bus_.peer.fd(), &msg, 0), static_cast<ssize_t>(bytes.size()));
  }
};

TEST_F(DescriptorPassing, HandsOverAnOpenDescriptor) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  ASSERT_EQ(ZOR_MSG_SendFd(ends[1]), ZOR_OK);
  ::close(ends[1]);
  const int far = bus_.peer.Release();
  bus_.peer = BusPeer(std::exchange(g_stMsgCtx.socketFd, far));  // now this process is the receiver
  int arrived = -1;
  ASSERT_EQ(ZOR_MSG_RecvFd(&arrived, 1000), ZOR_OK);
  EXPECT_EQ(::fcntl(arrived, F_GETFD), FD_CLOEXEC);
  ASSERT_EQ(::write(arrived, "hi", 2), 2);
  ::close(arrived);
  char text[3] = {};
  EXPECT_EQ(::read(ends[0], text, sizeof text), 2);
  EXPECT_EQ(::read(ends[0], text, sizeof text), 0) << "no copy of the writing end was left open";
  ::close(ends[0]);
}

TEST_F(DescriptorPassing, RefusesOtherFramesAndKeepsNoDescriptorOfThem) {
  int arrived = -7;
  for (const std::string &bytes : {std::string("\0x", 2), std::string(1, '\0'), std::string(42, '\0')}) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const BusPeer reader(ends[0]);
    SendFrame(bytes, ends[1]);
    ::close(ends[1]);
    EXPECT_EQ(ZOR_MSG_RecvFd(&arrived, 0), ZOR_E_IO);
    char byte;
    EXPECT_EQ(::read(reader.fd(), &byte, 1), 0) << "the writing end is closed everywhere";
  }
  bus_.peer.Send(MakeMessage(1, "a", "b"));
  EXPECT_EQ(ZOR_MSG_RecvFd(&arrived, 0), ZOR_E_IO);
  EXPECT_EQ(ZOR_MSG_RecvFd(&arrived, 50), ZOR_E_TIMEOUT) << "the header was consumed";
  bus_.peer.Close();
  EXPECT_EQ(ZOR_MSG_RecvFd(&arrived, 0), ZOR_E_PEER_GONE);
  EXPECT_EQ(ZOR_MSG_SendFd(0), ZOR_E_IO);
  EXPECT_EQ(arrived, -7);
}

}  // namespace
}  // namespace zor::test
