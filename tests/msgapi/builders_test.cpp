#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <zor/msg.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "support/capture.h"
#include "support/wire_client.h"

namespace zor::test {
namespace {

std::string BytesOf(const ZOR_MSG_HEAD *msg) {
  return {reinterpret_cast<const char *>(msg), ZOR_MSG_HEAD_SIZE + msg->bodyLength};
}

TEST(ResponseBuilder, RepliesToTheSenderWithTheRequestsTypeAndNumber) {
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
    EXPECT_EQ(BytesOf(reply.get()), MakeMessage(0x321, "", "asker_no_nu", 8, c.body, 99).Bytes());
    EXPECT_EQ(g_stMsgCtx.sequence, c.numbersTaken);
  }
}

TEST(MessageBlocks, AreRefusedSilentlyOrByTheAllocationGuard) {
  const auto refuse = [](uint32_t bodyLength, uint32_t replyLength) {
    ZOR_MSG_HEAD huge = {};
    huge.bodyLength = bodyLength;
    EXPECT_EQ(ZOR_MSG_Dup(&huge), nullptr);
    EXPECT_EQ(ZOR_MSG_MsgResponseBuilder(&huge, 0, "x", replyLength), nullptr);
    EXPECT_EQ(ZOR_MSG_SendMsgDataWithDataSeq("cms", 1, "x", bodyLength, 0, 0), ZOR_E_NO_MEMORY);
  };
  Capture output;
  refuse(0xffffffd7, 0x7fffffd7);
  EXPECT_EQ(output.Text(), "");
  refuse(0xffffffd6, 0x7fffffd6);
  EXPECT_EQ(ZOR_MSG_GetMsgBlock(0xffffffd9), nullptr) << "40 more would wrap to a block of one byte";
  const std::string text = "error: not host tool, but malloc 4M, return NULL, malloc len=";
  EXPECT_EQ(output.Text(), text + "-2\n" + text + "2147483646\n" + text + "-2\n" + text + "1\n");
}

class OneCallSend : public ::testing::Test {
 protected:
  LoopbackBus bus_{"tester"};
};

TEST_F(OneCallSend, PutsTypeNumberDataAndBodyOnTheWire) {
  const struct {
    std::function<uint32_t()> send;
    uint32_t data;
    uint32_t sequence;
    std::string body;
    uint32_t numbersTaken;
  } cases[] = {
      {[] { return ZOR_MSG_SendSimpleMsg("cms", 9, 4); }, 4, 51, "", 1},
      {[] { return ZOR_MSG_SendSimpleMsgWithSeqNum("cms", 9, 4, 7); }, 4, 7, "", 1},
      {[] { return ZOR_MSG_SendMsgDataWithDataSeq("cms", 9, "ab", 2, 4, 7); }, 4, 7, "ab", 0},
      {[] { return ZOR_MSG_SendMsgDataWithDataSeq("cms", 9, nullptr, 2, 4, 7); }, 4, 7, "", 1},
      {[] { return ZOR_MSG_SendMsgDataWithData("cms", 9, "ab", 2, 4); }, 4, 0, "ab", 0},
      {[] { return ZOR_MSG_SendMsgDataWithData("cms", 9, nullptr, 2, 4); }, 4, 51, "", 1},
      {[] { return ZOR_MSG_SendMsgData("cms", 9, "ab", 2); }, 0, 0, "ab", 0},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(&c - cases);
    g_stMsgCtx.sequence = 50;
    ASSERT_EQ(c.send(), ZOR_OK);
    EXPECT_EQ(bus_.peer.ReceiveMessage()->Bytes(), MakeMessage(9, "tester", "cms", c.data, c.body, c.sequence).Bytes());
    EXPECT_EQ(g_stMsgCtx.sequence, 50 + c.numbersTaken);
  }
}

TEST_F(OneCallSend, SendsAMessageThatLiesAtAnyAddress) {
  alignas(ZOR_MSG_HEAD) char room[ZOR_MSG_HEAD_SIZE + 16];
  for (const size_t offset : {0u, 1u, 2u, 3u}) {
    SCOPED_TRACE(offset);
    void *body = ZOR_MSG_GetMsgBlockEx(room + offset, ZOR_MSG_HEAD_SIZE + 8);
    ASSERT_EQ(body, room + offset + ZOR_MSG_HEAD_SIZE);
    std::memcpy(body, "unaligned", 8);
    EXPECT_EQ(ZOR_MSG_SetMsgProfile(body, "cms", 0xf0000009, 9), ZOR_E_ARGUMENT);
    EXPECT_EQ(ZOR_MSG_SetMsgProfile(body, nullptr, 0xf0000009, 7), ZOR_OK);
    ZOR_MSG_HEAD *msg = ZOR_MSG_GetMsgHead(body);
    EXPECT_EQ(ZOR_MSG_GetMsgByHead(msg), body);
    ASSERT_EQ(ZOR_MSG_Send(msg), ZOR_OK);
    EXPECT_EQ(bus_.peer.ReceiveMessage()->Bytes(), MakeMessage(0x10000009, "tester", "cms", 0, "unalign").Bytes());
    ASSERT_EQ(ZOR_MSG_SendEx(g_stMsgCtx.socketFd, msg), ZOR_OK);
    EXPECT_EQ(bus_.peer.ReceiveMessage()->Bytes(), MakeMessage(9, "tester", "cms", 0, "unalign").Bytes())
        << "the first send reduced the type in the caller's block";
  }
}

// A pipe whose reading end shows whether any copy of the writing end is still open.
struct Pipe {
  Pipe() {
    int ends[2];
    if (::pipe(ends) != 0) std::abort();
    reader = BusPeer(ends[0]);
    writer = BusPeer(ends[1]);
  }
  std::string ReadAll() {
    writer.Close();
    char text[8];
    const ssize_t count = ::read(reader.fd(), text, sizeof text);
    return {text, static_cast<size_t>(count > 0 ? count : 0)};
  }
  BusPeer reader;
  BusPeer writer;
};

class DescriptorPassing : public OneCallSend {
 protected:
  WireClient peer_{bus_.peer.Release()};
};

TEST_F(DescriptorPassing, HandsOverAnOpenDescriptor) {
  Pipe pipe;
  ASSERT_EQ(ZOR_MSG_SendFd(pipe.writer.fd()), ZOR_OK);
  peer_.SendDescriptor(BusPeer(peer_.ReceiveDescriptor()).fd());
  int arrived = -1;
  ASSERT_EQ(ZOR_MSG_RecvFd(&arrived, 1000), ZOR_OK);
  EXPECT_EQ(::fcntl(arrived, F_GETFD), FD_CLOEXEC);
  ASSERT_EQ(::write(arrived, "hi", 2), 2);
  ::close(arrived);
  EXPECT_EQ(pipe.ReadAll(), "hi");
  EXPECT_EQ(pipe.ReadAll(), "") << "no copy of the writing end was left open";
}

TEST_F(DescriptorPassing, RefusesOtherFramesAndKeepsNoDescriptorOfThem) {
  int arrived = -7;
  for (const std::string &bytes : {std::string("\0x", 2), std::string(1, '\0'), std::string(42, '\0')}) {
    Pipe pipe;
    peer_.SendDescriptors(bytes, {pipe.writer.fd()});
    EXPECT_EQ(ZOR_MSG_RecvFd(&arrived, 0), ZOR_E_IO);
    EXPECT_EQ(pipe.ReadAll(), "") << "the writing end is closed everywhere";
  }
  peer_.Send(MakeMessage(1, "a", "b"));
  EXPECT_EQ(ZOR_MSG_RecvFd(&arrived, 0), ZOR_E_IO);
  EXPECT_EQ(ZOR_MSG_RecvFd(&arrived, 50), ZOR_E_TIMEOUT) << "the header was consumed";
  peer_.Close();
  EXPECT_EQ(ZOR_MSG_RecvFd(&arrived, 0), ZOR_E_PEER_GONE);
  EXPECT_EQ(ZOR_MSG_SendFd(0), ZOR_E_IO);
  EXPECT_EQ(arrived, -7);
}

int signalsLeft;
int peerToShut;

TEST_F(DescriptorPassing, ASignalEndsAWaitWithoutLimit) {
  // A receive that resumed waiting would see the end of file after the last signal.
  signalsLeft = 50;
  peerToShut = peer_.fd();
  struct sigaction action = {};
  action.sa_handler = [](int) {
    if (--signalsLeft == 0) ::shutdown(peerToShut, SHUT_RDWR);
  };
  ASSERT_EQ(::sigaction(SIGALRM, &action, nullptr), 0);
  const itimerval every = {{0, 20000}, {0, 20000}};
  ASSERT_EQ(::setitimer(ITIMER_REAL, &every, nullptr), 0);
  int arrived = -7;
  EXPECT_EQ(ZOR_MSG_RecvFd(&arrived, 0), ZOR_E_IO);
  EXPECT_EQ(arrived, -7);
  const itimerval off = {};
  ::setitimer(ITIMER_REAL, &off, nullptr);
}

}  // namespace
}  // namespace zor::test
