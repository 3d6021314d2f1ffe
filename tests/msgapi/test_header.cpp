#include <gtest/gtest.h>
#include <zor/msg_head.h>

#include <cstring>
#include <string>

#include "sdk/msgapi/header.h"

namespace {

using zor::OutgoingHeader;

ZOR_MSG_HEAD Header(uint32_t type) {
  ZOR_MSG_HEAD header = {type, 0x01020304, {}, {}, 0x05060708, 0x090a0b0c};
  std::memcpy(header.source, "abcdefghijkl", sizeof header.source);
  std::memcpy(header.destination, "mnopqrstuvwx", sizeof header.destination);
  return header;
}

bool Same(const ZOR_MSG_HEAD &a, const ZOR_MSG_HEAD &b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST(MessageHeader, SwappingReversesFourIntegersAndNothingElse) {
  const ZOR_MSG_HEAD original = Header(0x11223344);
  ZOR_MSG_HEAD header = original;
  ZOR_MSG_HeaderEndianSwap(&header);
  EXPECT_EQ(header.type, 0x44332211u);
  EXPECT_EQ(header.sequence, 0x04030201u);
  EXPECT_EQ(header.data, 0x08070605u);
  EXPECT_EQ(header.bodyLength, 0x0c0b0a09u);
  EXPECT_EQ(std::memcmp(header.source, original.source, sizeof header.source), 0);
  EXPECT_EQ(std::memcmp(header.destination, original.destination, sizeof header.destination), 0);
  ZOR_MSG_HeaderEndianSwap(&header);
  EXPECT_TRUE(Same(header, original));
  ZOR_MSG_HeaderEndianSwap(nullptr);
}

TEST(MessageHeader, StepsBetweenHeaderAndBody) {
  struct {
    ZOR_MSG_HEAD header;
    char body[4];
  } message = {};
  EXPECT_EQ(ZOR_MSG_GetMsgByHead(&message.header), nullptr);
  message.header.bodyLength = 1;
  EXPECT_EQ(ZOR_MSG_GetMsgByHead(&message.header), message.body);
  EXPECT_EQ(ZOR_MSG_GetMsgHead(message.body), &message.header);
  EXPECT_EQ(ZOR_MSG_GetMsgByHead(nullptr), nullptr);
  EXPECT_EQ(ZOR_MSG_GetMsgHead(nullptr), nullptr);
}

TEST(MessageHeader, AnArrivedTypeWordIsTakenApart) {
  ZOR_MSG_CTX context = {};
  struct {
    uint32_t flags;
    uint32_t type;
    uint32_t inFile;
    uint32_t flagsAfter;
  } const cases[] = {{0, 0xf0012345, 1, 0xe0000000},
                     {0x1c000000, 0xfff12345, 1, 0xfc000000},
                     {0xe4000000, 0x0ff12345, 0, 0x04000000},
                     {0, 0x40012345, 0, 0x40000000},
                     {ZOR_MSG_FLAG_SWAP, 0x45230150, 1, 0x40000002}};
  for (const auto &c : cases) {
    ZOR_MSG_HEAD header = Header(c.type);
    context.flags = c.flags;
    EXPECT_EQ(zor::FixUpReceivedHeader(header, context), c.inFile) << std::hex << c.type;
    EXPECT_EQ(header.type, 0x12345u);
    EXPECT_EQ(header.sequence, (c.flags & ZOR_MSG_FLAG_SWAP) != 0 ? 0x04030201u : 0x01020304u);
    EXPECT_EQ(context.flags, c.flagsAfter) << std::hex << c.type;
    EXPECT_EQ(zor::PeerBoard(context), c.flagsAfter >> 29);
  }
}

TEST(MessageHeader, IsInWireFormOnlyWhileItIsOnItsWayOut) {
  ZOR_MSG_CTX context = {};
  struct {
    uint32_t flags;
    uint32_t onTheWire;
  } const cases[] = {{0, 0x1ff12345},
                     {0xe0000000, 0x1ff12345},
                     {0x1c000000, 0xfff12345},
                     {0x08000000, 0x5ff12345},
                     {0x08000000 | ZOR_MSG_FLAG_SWAP, 0x4523f15f}};
  for (const auto &c : cases) {
    ZOR_MSG_HEAD header = Header(0xfff12345);
    context.flags = c.flags;
    {
      const OutgoingHeader outgoing(header, context);
      EXPECT_EQ(header.type, c.onTheWire) << std::hex << c.flags;
    }
    EXPECT_TRUE(Same(header, Header(0x12345))) << std::hex << c.flags;
  }
}

TEST(BusContext, StartsWithoutNameAndDescriptors) {
  EXPECT_STREQ(g_stMsgCtx.appName, "");
  EXPECT_STREQ(m_aucAppName, "");
  EXPECT_EQ(g_stMsgCtx.socketFd, -1);
  EXPECT_EQ(g_stMsgCtx.traceFd, -1);
  EXPECT_EQ(g_stMsgCtx.sequence, 0u);
  EXPECT_STREQ(ZOR_MSG_GetVersion(), "V1.01");
  EXPECT_EQ(ZOR_MSG_BodyNeedEndianSwap(&g_stMsgCtx), 0u);
}

}  // namespace
