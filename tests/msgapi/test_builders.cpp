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

struct FreeMessage {
  void operator()(ZOR_MSG_HEAD *msg) const { std::free(msg); }
};
using Block = std::unique_ptr<ZOR_MSG_HEAD, FreeMessage>;

std::string BodyText(ZOR_MSG_HEAD *msg) {
  const auto *body = static_cast<const char *>(ZOR_MSG_GetMsgByHead(msg));
  return body == nullptr ? "" : std::string(body, msg->bodyLength);
}

TEST(SimpleBuilder, FillsTheHeaderAndTakesANumber) {
  ZOR_MSG_HEAD header;
  std::memset(&header, 0xff, sizeof header);
  ZOR_MSG_SimpleBuilder(nullptr, "cms", 1, 2);
  EXPECT_EQ(g_stMsgCtx.sequence, 0u) << "no header, no number";
  ZOR_MSG_SimpleBuilder(&header, "a_name_that_is_too_long", 0x123, 7);
  EXPECT_EQ(header.type, 0x123u);
  EXPECT_EQ(header.sequence, 1u);
  EXPECT_EQ(header.data, 7u);
  EXPECT_EQ(header.bodyLength, 0u);
  EXPECT_STREQ(header.source, "");
  EXPECT_STREQ(header.destination, "a_name_that");
}

TEST(ResponseBuilder, AnswersTheSenderUnderTheRequestsTypeAndNumber) {
  ZOR_MSG_HEAD request = MakeMessage(0x321, "asker_no_nul", "me", 5, "", 99).header;
  const struct {
    const char *data;
    uint32_t length;
    std::string body;
    uint32_t numbersTaken;
  } cases[] = {{"text", 4, "text", 0}, {"text", 0, "", 0}, {nullptr, 4, "", 1}};
  for (const auto &c : cases) {
    g_stMsgCtx.sequence = 0;
    const Block reply(ZOR_MSG_MsgResponseBuilder(&request, 8, c.data, c.length));
    ASSERT_NE(reply, nullptr);
    EXPECT_EQ(reply->type, 0x321u);
    EXPECT_EQ(reply->sequence, 99u);
    EXPECT_EQ(reply->data, 8u);
    EXPECT_STREQ(reply->destination, "asker_no_nu");
    EXPECT_EQ(BodyText(reply.get()), c.body);
    EXPECT_EQ(g_stMsgCtx.sequence, c.numbersTaken);
  }
  EXPECT_EQ(ZOR_MSG_MsgResponseBuilder(nullptr, 0, "x", 1), nullptr);
}

TEST(MessageBlocks, KeepTheirLengthAndRefuseImpossibleOnes) {
  void *body = ZOR_MSG_GetMsgBlock(0);
  ASSERT_NE(body, nullptr) << "an empty body has a place too";
  Block msg(ZOR_MSG_GetMsgHead(body));
  EXPECT_EQ(msg->bodyLength, 0u);
  msg.reset(ZOR_MSG_GetMsgHead(ZOR_MSG_GetMsgBlock(3)));
  std::memcpy(ZOR_MSG_GetMsgByHead(msg.get()), "abc", 3);
  msg->data = 4;
  const Block copy(ZOR_MSG_Dup(msg.get()));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(std::memcmp(copy.get(), msg.get(), 43), 0);
  EXPECT_EQ(ZOR_MSG_Dup(nullptr), nullptr);
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
  EXPECT_EQ(ZOR_MSG_GetMsgBlock(0x800000 - 39), nullptr);
  const std::string text = "error: not host tool, but malloc 4M, return NULL, malloc len=";
  EXPECT_EQ(output.Text(), text + "-2\n" + text + "2147483646\n" + text + "-2\n" + text + "1\n" + text + "8388609\n");
}

TEST(MessageOverABuffer, NeedsRoomForAHeader) {
  alignas(ZOR_MSG_HEAD) char buffer[48];
  std::memset(buffer, 0xff, sizeof buffer);
  EXPECT_EQ(ZOR_MSG_GetMsgBlockEx(buffer, 39), nullptr);
  EXPECT_EQ(ZOR_MSG_GetMsgBlockEx(nullptr, 40), nullptr);
  EXPECT_EQ(ZOR_MSG_GetMsgBlockEx(buffer, 40), buffer + 40);
  EXPECT_EQ(ZOR_MSG_GetMsgBlockEx(buffer, 44), buffer + 40);
  EXPECT_EQ(ZOR_MSG_GetMsgHead(buffer + 40)->bodyLength, 4u);
  EXPECT_EQ(buffer[40], '\xff') << "the body is the caller's";
}

TEST(MessageProfile, ShrinksTheBodyButNeverGrowsIt) {
  const Block msg(ZOR_MSG_GetMsgHead(ZOR_MSG_GetMsgBlock(10)));
  void *body = ZOR_MSG_GetMsgByHead(msg.get());
  EXPECT_EQ(ZOR_MSG_SetMsgProfile(body, "cms", 5, 8), ZOR_OK);
  EXPECT_EQ(ZOR_MSG_SetMsgProfile(body, "web", 6, 9), ZOR_E_ARGUMENT) << "8 is the capacity now";
  EXPECT_STREQ(msg->destination, "web");
  EXPECT_EQ(msg->type, 6u);
  EXPECT_EQ(msg->bodyLength, 8u);
  EXPECT_EQ(ZOR_MSG_SetMsgProfile(nullptr, "web", 6, 0), ZOR_E_ARGUMENT);
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

TEST_F(OneCallSend, SubscribesForAnotherDaemonWithAFullNameField) {
  EXPECT_EQ(ZOR_MSG_SubscribeEventForOtherApp(0x2da05, nullptr), ZOR_OK);
  EXPECT_TRUE(bus_.peer.NothingArrived());
  EXPECT_EQ(ZOR_MSG_SubscribeEventForOtherApp(0x2da05, "upnp"), ZOR_OK);
  const std::string name = std::string("upnp") + std::string(8, '\0');
  EXPECT_EQ(bus_.peer.ReceiveMessage()->Bytes(), MakeMessage(0x702, "tester", "", 0x2da05, name).Bytes());
  EXPECT_EQ(ZOR_MSG_UnSubscribeEventForOtherApp(0x2da05, "upnp"), ZOR_OK);
  EXPECT_EQ(bus_.peer.ReceiveMessage()->Bytes(), MakeMessage(0x703, "tester", "", 0x2da05, name).Bytes());
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
    CMSG_FIRSTHDR(&msg)->cmsg_len = CMSG_LEN(sizeof fd);
    CMSG_FIRSTHDR(&msg)->cmsg_level = SOL_SOCKET;
    CMSG_FIRSTHDR(&msg)->cmsg_type = SCM_RIGHTS;
    std::memcpy(CMSG_DATA(CMSG_FIRSTHDR(&msg)), &fd, sizeof fd);
    ASSERT_EQ(::sendmsg(bus_.peer.fd(), &msg, 0), static_cast<ssize_t>(bytes.size()));
  }

  // Makes the far end the receiver of what this process sends.
  void SwapEnds() {
    const int far = bus_.peer.Release();
    bus_.peer = BusPeer(std::exchange(g_stMsgCtx.socketFd, far));
  }
};

TEST_F(DescriptorPassing, HandsOverAnOpenDescriptor) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  ASSERT_EQ(ZOR_MSG_SendFd(ends[1]), ZOR_OK);
  ::close(ends[1]);
  SwapEnds();
  int arrived = -1;
  ASSERT_EQ(ZOR_MSG_RecvFd(&arrived, 1000), ZOR_OK);
  EXPECT_EQ(::fcntl(arrived, F_GETFD), FD_CLOEXEC);
  ASSERT_EQ(::write(arrived, "hi", 2), 2);
  ::close(arrived);
  char text[3] = {};
  EXPECT_EQ(::read(ends[0], text, sizeof text), 2);
  EXPECT_STREQ(text, "hi");
  EXPECT_EQ(::read(ends[0], text, sizeof text), 0) << "no copy of the writing end was left open";
  ::close(ends[0]);
}

TEST_F(DescriptorPassing, RefusesOtherFramesAndKeepsNoDescriptorOfThem) {
  for (const std::string &bytes : {std::string("\0x", 2), std::string(1, '\0'), std::string(42, '\0')}) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const BusPeer reader(ends[0]);
    SendFrame(bytes, ends[1]);
    ::close(ends[1]);
    int arrived = -7;
    EXPECT_EQ(ZOR_MSG_RecvFd(&arrived, 0), ZOR_E_IO);
    EXPECT_EQ(arrived, -7);
    char byte;
    EXPECT_EQ(::read(reader.fd(), &byte, 1), 0) << "the writing end is closed everywhere";
  }
  bus_.peer.Send(MakeMessage(1, "a", "b"));
  int arrived = -7;
  EXPECT_EQ(ZOR_MSG_RecvFd(&arrived, 0), ZOR_E_IO);
  EXPECT_EQ(ZOR_MSG_RecvFd(&arrived, 50), ZOR_E_TIMEOUT) << "the header was consumed";
}

TEST_F(DescriptorPassing, ReportsWhyNothingCame) {
  EXPECT_EQ(ZOR_MSG_RecvFd(nullptr, 0), ZOR_E_ARGUMENT);
  EXPECT_EQ(ZOR_MSG_SendFd(-1), ZOR_E_IO);
  bus_.peer.Close();
  int fd = -1;
  EXPECT_EQ(ZOR_MSG_RecvFd(&fd, 0), ZOR_E_PEER_GONE);
  EXPECT_EQ(ZOR_MSG_SendFd(0), ZOR_E_IO);
  ::close(std::exchange(g_stMsgCtx.socketFd, -1));
  EXPECT_EQ(ZOR_MSG_RecvFd(&fd, 0), ZOR_E_NOT_CONNECTED);
  EXPECT_EQ(ZOR_MSG_SendFd(0), ZOR_E_NOT_CONNECTED);
}

}  // namespace
}  // namespace zor::test
