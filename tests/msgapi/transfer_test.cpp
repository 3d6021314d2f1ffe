#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/msg.h>
#include <zor/paths.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "support/capture.h"
#include "support/scripted_server.h"

namespace zor::test {
namespace {

namespace fs = std::filesystem;

Block NewMessage(uint32_t type, std::size_t bodyLength) {
  void *body = ZOR_MSG_GetMsgBlock(static_cast<uint32_t>(bodyLength));
  std::memset(body, 'q', bodyLength);
  ZOR_MSG_SetMsgProfile(body, "cms", type, static_cast<uint32_t>(bodyLength));
  return Block(ZOR_MSG_GetMsgHead(body));
}

struct Received {
  uint32_t status;
  Block msg;
  std::string body() const { return {reinterpret_cast<const char *>(msg.get() + 1), msg->bodyLength}; }
};

Received Receive(const BusPeer &from, uint32_t timeoutMs = 0, uint32_t convert = 1) {
  ZOR_MSG_HEAD unset;
  ZOR_MSG_HEAD *msg = &unset;
  const uint32_t status = ZOR_MSG_RecvWithEndian(from.fd(), &msg, timeoutMs, convert);
  EXPECT_EQ(msg == nullptr, status != ZOR_OK) << "no partial message";
  return {status, Block(msg)};
}

class Transfer : public ::testing::Test {
 protected:
  uint32_t Send(const Block &msg) const { return ZOR_MSG_SendEx(pair_.near.fd(), msg.get()); }
  bool NoMessageFiles() const { return fs::is_empty(directory_); }
  // A peer's message whose body is in a file.
  Received ReceiveByFile(const std::string &path) const {
    pair_.near.Send(MakeMessage(9 | ZOR_MSG_BODY_IN_FILE, "a", "b", 0, path));
    return Receive(pair_.far, 1000);
  }

  TempRoot root_;
  SocketPair pair_;
  const fs::path directory_ = root_.Path(ZOR_PATH_MSG_FILE_DIR);
  const std::string bytes_ = MakeMessage(9, "a", "b", 0, "abcd").Bytes();
};

TEST_F(Transfer, ABodyUpTo2048BytesGoesInlineAndALongerOneByFile) {
  for (const std::size_t length : {0u, 1u, 2048u, 2049u, 1u << 20}) {
    ASSERT_EQ(Send(NewMessage(9, length)), ZOR_OK);
    EXPECT_EQ(NoMessageFiles(), length <= 2048) << length;
    const Received got = Receive(pair_.far);
    ASSERT_EQ(got.status, ZOR_OK);
    EXPECT_EQ(got.msg->type, 9u);
    EXPECT_TRUE(got.body() == std::string(length, 'q')) << length;
    EXPECT_TRUE(NoMessageFiles()) << length;
  }
}

TEST_F(Transfer, TheHeaderIsInWireFormOnlyOnTheWire) {
  constexpr uint32_t kPeerBoards = ZOR_MSG_FLAG_PEER_BOARD_MASK;
  const struct {
    uint32_t flags, typeOnWire, flagsAfter;
  } cases[] = {
      {0, 0x0ff12345, 0},
      {kPeerBoards, 0x0ff12345, 0},
      {0x1c000000, 0xeff12345, 0xfc000000},
      {0x08000000 | kPeerBoards | ZOR_MSG_FLAG_SWAP, 0x4523f14f, 0x48000000 | ZOR_MSG_FLAG_SWAP},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.flags);
    g_stMsgCtx.flags = c.flags;
    const Block msg = NewMessage(0xeff12345, 4);
    msg->data = 0x01020304;
    ASSERT_EQ(Send(msg), ZOR_OK);
    EXPECT_EQ(msg->type, 0x12345u);
    EXPECT_EQ(msg->data, 0x01020304u);
    const std::string wire = pair_.far.Receive(44);
    ZOR_MSG_HEAD head = *msg;
    if ((c.flags & ZOR_MSG_FLAG_SWAP) != 0) ZOR_MSG_HeaderEndianSwap(&head);
    head.type = c.typeOnWire;
    EXPECT_EQ(std::memcmp(wire.data(), &head, sizeof head), 0);
    pair_.near.Send(wire);
    const Received got = Receive(pair_.far);
    EXPECT_EQ(std::memcmp(got.msg.get(), msg.get(), 44), 0);
    EXPECT_EQ(g_stMsgCtx.flags, c.flagsAfter) << "the sender's board";
  }
}

TEST_F(Transfer, AMessageThatWasNotWrittenIsLeftAlone) {
  const Block msg = NewMessage(0x80000009, 0);
  const Block large = NewMessage(0x80000009, 3000);
  EXPECT_EQ(ZOR_MSG_Send(msg.get()), ZOR_E_NOT_CONNECTED);
  EXPECT_EQ(ZOR_MSG_SendTo(-1, msg.get(), nullptr, 0), ZOR_E_ARGUMENT);
  for (const Block *each : {&msg, &large}) {
    EXPECT_EQ(ZOR_MSG_SendTo(1000, each->get(), nullptr, 0), ZOR_E_NOT_WRITABLE) << "a descriptor that is not open";
  }
  EXPECT_TRUE(NoMessageFiles());
  fs::remove(directory_);
  Capture output;
  EXPECT_EQ(Send(large), ZOR_E_BODY_FILE);
  EXPECT_EQ(output.Text(), "\n----------------msg write file failed--------------------\n");
  EXPECT_TRUE(pair_.far.NothingArrived());
  EXPECT_EQ(msg->type, 0x80000009u);
  EXPECT_EQ(large->type, 0x80000009u);
}

TEST_F(Transfer, AReaderThatIsSlowIsWaitedForAndMissesNothing) {
  constexpr uint32_t kMessages = 2000;
  std::thread reader([this] {
    for (uint32_t i = 0; i < kMessages; ++i) ASSERT_EQ(pair_.far.ReceiveMessage()->header.data, i);
  });
  const Block msg = NewMessage(9, 2000);
  for (msg->data = 0; msg->data < kMessages; ++msg->data) ASSERT_EQ(Send(msg), ZOR_OK);
  reader.join();
}

TEST_F(Transfer, APeerThatIsGoneEndsTheSendAndTheFileIsRemoved) {
  pair_.far.Close();
  const Block msg = NewMessage(0x80000009, 10);
  EXPECT_EQ(Send(msg), ZOR_E_PEER_GONE);
  EXPECT_EQ(msg->type, 9u) << "it failed at the write";
  EXPECT_EQ(Send(NewMessage(9, 3000)), ZOR_E_PEER_GONE);
  EXPECT_TRUE(NoMessageFiles());
}

TEST_F(Transfer, ASendHookCanTakeTheMessageOrRedirectIt) {
  static const SocketPair other;
  g_pfMsgSendHook = [](ZOR_MSG_HEAD *msg, int *handled, int *fd) -> uint32_t {
    *handled = msg->data == 0 ? 1 : 0;
    *fd = other.near.fd();
    return 7;
  };
  const Block msg = NewMessage(9, 0);
  EXPECT_EQ(Send(msg), 7u);
  EXPECT_TRUE(other.far.NothingArrived());
  msg->data = 1;
  EXPECT_EQ(Send(msg), ZOR_OK);
  EXPECT_TRUE(other.far.ReceiveMessage());
  EXPECT_TRUE(pair_.far.NothingArrived());
}

TEST_F(Transfer, ALongBodyGivenApartArrivesWholeAndAHookSeesItInOneBlock) {
  const LoopbackBus bus;
  static std::string seen;
  const std::string body(5000, 'q');
  const auto send = [&](uint32_t length) {
    return ZOR_MSG_SendMsgDataWithDataSeq("cms", 0xe0000009, body.data(), length, 4, 7);
  };
  ASSERT_EQ(send(5000), ZOR_OK);
  const Received got = Receive(bus.peer);
  ASSERT_EQ(got.status, ZOR_OK);
  EXPECT_TRUE(got.body() == body);
  Message head = MakeMessage(9, "tester", "cms", 4, "", 7);
  head.header.bodyLength = 5000;
  EXPECT_EQ(std::memcmp(got.msg.get(), &head.header, sizeof head.header), 0);
  EXPECT_TRUE(NoMessageFiles());
  Capture output;
  EXPECT_EQ(send(0x7fffd9), ZOR_E_NO_MEMORY);
  EXPECT_EQ(output.Text(), "error: not host tool, but malloc 4M, return NULL, malloc len=8388609\n");
  g_pfMsgSendHook = [](ZOR_MSG_HEAD *msg, int *handled, int *) -> uint32_t {
    seen.assign(static_cast<const char *>(ZOR_MSG_GetMsgByHead(msg)), msg->bodyLength);
    *handled = 1;
    return 7;
  };
  EXPECT_EQ(send(5000), 7u);
  EXPECT_TRUE(seen == body);
}

TEST_F(Transfer, ATornHeaderFailsAndIsNotPutTogether) {
  Capture output;
  for (const std::string &piece : {bytes_.substr(0, 20), bytes_.substr(20)}) {
    pair_.near.Send(piece);
    EXPECT_EQ(Receive(pair_.far).status, ZOR_E_IO);
  }
  EXPECT_NE(output.Text().find("msgapi fail to read for not a head length, ret=20, errno="), std::string::npos);
}

TEST_F(Transfer, EveryReadOfTheBodyMayWaitTheWholeTimeOut) {
  std::thread writer([&] {
    pair_.near.Send(bytes_.substr(0, 41));
    for (std::size_t at = 41; at < bytes_.size(); ++at) {
      std::this_thread::sleep_for(std::chrono::milliseconds(400));  // three pieces take longer than one time-out
      pair_.near.Send(bytes_.substr(at, 1));
    }
  });
  const Received got = Receive(pair_.far, 1000);
  writer.join();
  ASSERT_EQ(got.status, ZOR_OK);
  EXPECT_EQ(got.body(), "abcd");
  EXPECT_EQ(Receive(pair_.far, 50).status, ZOR_E_TIMEOUT);
  pair_.near.Send(bytes_.substr(0, 42));
  EXPECT_EQ(Receive(pair_.far, 50).status, ZOR_E_TIMEOUT) << "a body that stops coming";
  pair_.near.Send(bytes_.substr(0, 42));
  pair_.near.Close();
  EXPECT_EQ(Receive(pair_.far).status, ZOR_E_PEER_GONE) << "a body that ends early";
}

TEST_F(Transfer, BodiesBeyondTheLimitsAreRefusedBeforeTheyAreRead) {
  const struct {
    uint32_t length;
    std::string text;
  } cases[] = {
      {0x8000001, "msgapi too large body len, src=twelve_bytes, dest=b, type=0x9, data_len=134217729\n"},
      {0x8000000, "error: zor_realloc want to malloc 4M, return NULL, malloc len=134217768\n"},
      {0x7fffd9, "error: zor_realloc want to malloc 4M, return NULL, malloc len=8388609\n"},
  };
  for (const auto &c : cases) {
    Message message = MakeMessage(9, "twelve_bytes", "b");
    message.header.bodyLength = c.length;
    pair_.near.Send(message);
    Capture output;
    EXPECT_EQ(Receive(pair_.far).status, ZOR_E_NO_MEMORY);
    EXPECT_EQ(output.Text().substr(0, c.text.size()), c.text);
  }
}

TEST_F(Transfer, OnlyRegularFilesInTheMessageDirectoryAreTakenAsABody) {
  std::ofstream(root_.Path("/var/victim")) << "keep me";
  fs::create_symlink(root_.Path("/var/victim"), directory_ / "link");
  ASSERT_EQ(::mkfifo((directory_ / "fifo").c_str(), 0600), 0);
  for (const char *path : {"/var/victim", "/var/run/msg/../../victim", "/var/run/msg/link", "/var/run/msg/fifo",
                           "/var/run/msg/", "/var/run/msg/missing", "msg_file_1", "/var/"}) {
    EXPECT_EQ(ReceiveByFile(path).status, ZOR_E_IO) << path;
  }
  EXPECT_TRUE(fs::exists(root_.Path("/var/victim")));
  EXPECT_TRUE(fs::is_symlink(directory_ / "link"));
}

TEST_F(Transfer, ABodyFileIsDeletedWhateverItsSize) {
  const std::string path = ZOR_PATH_MSG_FILE_DIR "msg_file_1";
  std::ofstream(root_.Path(path)).close();
  EXPECT_EQ(ReceiveByFile(path).body(), "");
  EXPECT_TRUE(NoMessageFiles());
  std::ofstream(root_.Path(path)).close();
  fs::resize_file(root_.Path(path), 0x800000 - 39);
  Capture output;
  EXPECT_EQ(ReceiveByFile(path).status, ZOR_E_NO_MEMORY);
  EXPECT_EQ(output.Text(), "error: zor_realloc want to malloc 4M, return NULL, malloc len=8388609\n");
  EXPECT_TRUE(NoMessageFiles());
}

}  // namespace
}  // namespace zor::test
