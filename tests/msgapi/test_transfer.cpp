#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/msg.h>
#include <zor/paths.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

#include "support/capture.h"
#include "support/scripted_server.h"

namespace zor::test {
namespace {

namespace fs = std::filesystem;

struct FreeMessage {
  void operator()(ZOR_MSG_HEAD *msg) const { std::free(msg); }
};
using Block = std::unique_ptr<ZOR_MSG_HEAD, FreeMessage>;

Block NewMessage(uint32_t type, const std::string &body) {
  void *place = ZOR_MSG_GetMsgBlock(static_cast<uint32_t>(body.size()));
  std::memcpy(place, body.data(), body.size());
  ZOR_MSG_SetMsgProfile(place, "cms", type, static_cast<uint32_t>(body.size()));
  return Block(ZOR_MSG_GetMsgHead(place));
}

struct Received {
  uint32_t status;
  Block msg;
  std::string body() const {
    return std::string(static_cast<const char *>(static_cast<const void *>(msg.get() + 1)), msg->bodyLength);
  }
};

Received Receive(int fd, uint32_t timeoutMs = 0, uint32_t convert = 1) {
  ZOR_MSG_HEAD unset;
  ZOR_MSG_HEAD *msg = &unset;
  const uint32_t status = ZOR_MSG_RecvWithEndian(fd, &msg, timeoutMs, convert);
  EXPECT_EQ(msg == nullptr, status != ZOR_OK) << "no partial message";
  return {status, Block(msg)};
}

class Transfer : public ::testing::Test {
 protected:
  fs::path MessageDirectory() const { return root_.Path(ZOR_PATH_MSG_FILE_DIR); }
  bool NoMessageFiles() const { return fs::is_empty(MessageDirectory()); }
  std::string MakeBodyFile(const std::string &content) const {
    const std::string path = ZOR_PATH_MSG_FILE_DIR "msg_file_1";
    std::ofstream(root_.Path(path)) << content;
    return path;
  }
  // What a peer sends whose body lies in a file.
  static Message ByFile(std::string body) {
    return MakeMessage(9 | ZOR_MSG_BODY_IN_FILE, "a", "b", 0, std::move(body));
  }

  TempRoot root_;
  SocketPair pair_;
};

TEST_F(Transfer, ABodyUpTo2048BytesGoesInlineAndALongerOneByFile) {
  for (const size_t length : {size_t{0}, size_t{1}, size_t{2048}, size_t{2049}, size_t{1} << 20}) {
    const std::string body(length, 'q');
    const Block msg = NewMessage(9, body);
    ASSERT_EQ(ZOR_MSG_SendEx(pair_.near.fd(), msg.get()), ZOR_OK);
    EXPECT_EQ(NoMessageFiles(), length <= 2048) << length;
    const Received got = Receive(pair_.far.fd());
    ASSERT_EQ(got.status, ZOR_OK);
    EXPECT_EQ(got.msg->type, 9u);
    EXPECT_TRUE(got.body() == body) << length;
    EXPECT_TRUE(NoMessageFiles()) << length;
  }
}

TEST_F(Transfer, TheMessageInPlaceOfALongBodyCarriesThePathWithoutTheRoot) {
  const Block msg = NewMessage(9 | 0x0a500000, std::string(3000, 'q'));
  ASSERT_EQ(ZOR_MSG_SendEx(pair_.near.fd(), msg.get()), ZOR_OK);
  EXPECT_EQ(msg->type, 9u | 0x0a500000u) << "the caller's message stays as it was";
  EXPECT_EQ(msg->bodyLength, 3000u);
  const Received got = Receive(pair_.far.fd(), 0, 0);
  ASSERT_EQ(got.status, ZOR_OK);
  EXPECT_EQ(got.msg->type, 0x1a500009u);
  EXPECT_EQ(got.msg->bodyLength, 260u);
  const std::string path = got.body().c_str();
  EXPECT_EQ(path.rfind("/var/run/msg/msg_file_", 0), 0u);
  EXPECT_EQ(got.body().substr(path.size()), std::string(260 - path.size(), '\0'));
  EXPECT_EQ(fs::file_size(root_.Path(path)), 3000u);
}

TEST_F(Transfer, SendingReplacesTheBoardBitsSwapsForTheWireAndReducesTheTypeAfterwards) {
  g_stMsgCtx.flags = ZOR_MSG_FLAG_SWAP | 5u << ZOR_MSG_FLAG_BOARD_SHIFT;
  const Block msg = NewMessage(0xf0a12345, "body");
  msg->data = 0x01020304;
  ASSERT_EQ(ZOR_MSG_SendEx(pair_.near.fd(), msg.get()), ZOR_OK);
  EXPECT_EQ(msg->type, 0x12345u);
  EXPECT_EQ(msg->data, 0x01020304u);
  const std::string wire = pair_.far.Receive(44);
  EXPECT_EQ(wire.substr(0, 4), std::string("\xb0\xa1\x23\x45", 4)) << "board 5, the other bits as given";
  EXPECT_EQ(wire.substr(32), std::string("\1\2\3\4\0\0\0\4body", 12));
  pair_.near.Send(wire);
  const Received got = Receive(pair_.far.fd(), 0, 0);
  EXPECT_EQ(got.status, ZOR_E_NO_MEMORY) << "unconverted, the length is 0x4000000";
}

TEST_F(Transfer, ReceivingNotesTheSendersBoard) {
  g_stMsgCtx.flags = 3u << ZOR_MSG_FLAG_BOARD_SHIFT | ZOR_MSG_FLAG_PEER_BOARD_MASK;
  pair_.near.Send(MakeMessage(0x4ff12345, "a", "b"));
  const Received got = Receive(pair_.far.fd());
  ASSERT_EQ(got.status, ZOR_OK);
  EXPECT_EQ(got.msg->type, 0x12345u);
  EXPECT_EQ(g_stMsgCtx.flags, 3u << ZOR_MSG_FLAG_BOARD_SHIFT | 2u << 29);
}

TEST_F(Transfer, ArgumentsAreCheckedFirst) {
  const Block msg = NewMessage(0x80000009, "");
  ZOR_MSG_HEAD *received = msg.get();
  EXPECT_EQ(ZOR_MSG_Send(nullptr), ZOR_E_ARGUMENT);
  EXPECT_EQ(ZOR_MSG_Send(msg.get()), ZOR_E_NOT_CONNECTED);
  EXPECT_EQ(ZOR_MSG_SendTo(0, nullptr, nullptr, 0), ZOR_E_ARGUMENT);
  EXPECT_EQ(ZOR_MSG_SendTo(-1, msg.get(), nullptr, 0), ZOR_E_ARGUMENT);
  EXPECT_EQ(ZOR_MSG_Recv(0, nullptr, 0), ZOR_E_ARGUMENT);
  EXPECT_EQ(ZOR_MSG_Recv(-1, &received, 0), ZOR_E_ARGUMENT);
  EXPECT_EQ(msg->type, 0x80000009u);
}

TEST_F(Transfer, AClosedDescriptorIsNotWritableAndLeavesTheMessageAlone) {
  const Block msg = NewMessage(0x80000009, "");
  const int fd = pair_.near.Release();
  ::close(fd);
  EXPECT_EQ(ZOR_MSG_SendEx(fd, msg.get()), ZOR_E_NOT_WRITABLE);
  EXPECT_EQ(msg->type, 0x80000009u);
  EXPECT_EQ(Receive(fd, 100).status, ZOR_E_IO);
}

TEST_F(Transfer, AReaderThatIsSlowIsWaitedForAndMissesNothing) {
  constexpr int kMessages = 2000;
  std::thread reader([this] {
    for (int i = 0; i < kMessages; ++i) {
      const auto message = pair_.far.ReceiveMessage();
      ASSERT_TRUE(message);
      ASSERT_EQ(message->header.data, static_cast<uint32_t>(i));
    }
  });
  const Block msg = NewMessage(9, std::string(2000, 'x'));
  for (uint32_t i = 0; i < kMessages; ++i) {
    msg->data = i;
    ASSERT_EQ(ZOR_MSG_SendEx(pair_.near.fd(), msg.get()), ZOR_OK);
  }
  reader.join();
}

TEST_F(Transfer, APeerThatIsGoneEndsTheSendAndTheFileIsRemoved) {
  pair_.far.Close();
  for (const size_t length : {size_t{10}, size_t{3000}}) {
    const Block msg = NewMessage(0x80000009, std::string(length, 'x'));
    EXPECT_EQ(ZOR_MSG_SendEx(pair_.near.fd(), msg.get()), ZOR_E_PEER_GONE);
    EXPECT_EQ(msg->type, length == 10 ? 9u : 0x80000009u) << "reduced only where it was written itself";
  }
  EXPECT_TRUE(NoMessageFiles());
}

TEST_F(Transfer, ABodyFileThatCannotBeWrittenFailsTheSend) {
  fs::remove(MessageDirectory());
  const Block msg = NewMessage(9, std::string(3000, 'x'));
  Capture output;
  EXPECT_EQ(ZOR_MSG_SendEx(pair_.near.fd(), msg.get()), ZOR_E_BODY_FILE);
  EXPECT_EQ(output.Text(), "\n----------------msg write file failed--------------------\n");
  EXPECT_TRUE(pair_.far.NothingArrived());
}

TEST_F(Transfer, ASendHookCanTakeTheMessageOrRedirectIt) {
  static int redirected;
  const Block msg = NewMessage(9, "");
  g_pfMsgSendHook = [](ZOR_MSG_HEAD *, int *handled, int *) -> uint32_t {
    *handled = 1;
    return 7;
  };
  EXPECT_EQ(ZOR_MSG_SendEx(pair_.near.fd(), msg.get()), 7u);
  EXPECT_TRUE(pair_.far.NothingArrived());
  const SocketPair other;
  redirected = other.near.fd();
  g_pfMsgSendHook = [](ZOR_MSG_HEAD *, int *, int *fd) -> uint32_t {
    *fd = redirected;
    return 7;
  };
  EXPECT_EQ(ZOR_MSG_SendEx(pair_.near.fd(), msg.get()), ZOR_OK);
  EXPECT_TRUE(pair_.far.NothingArrived());
  EXPECT_TRUE(other.far.ReceiveMessage());
}

TEST_F(Transfer, ATornHeaderFailsAndIsNotPutTogether) {
  const std::string bytes = MakeMessage(9, "a", "b").Bytes();
  pair_.near.Send(bytes.substr(0, 20));
  Capture output;
  EXPECT_EQ(Receive(pair_.far.fd()).status, ZOR_E_IO);
  EXPECT_NE(output.Text().find("msgapi fail to read for not a head length, ret=20, errno="), std::string::npos);
  pair_.near.Send(bytes.substr(20));
  EXPECT_EQ(Receive(pair_.far.fd()).status, ZOR_E_IO);
}

TEST_F(Transfer, EveryReadOfTheBodyMayWaitTheWholeTimeOut) {
  const Message message = MakeMessage(9, "a", "b", 0, "abcd");
  const std::string bytes = message.Bytes();
  pair_.near.Send(bytes.substr(0, 41));
  std::thread writer([&] {
    for (size_t at = 41; at < bytes.size(); ++at) {
      std::this_thread::sleep_for(std::chrono::milliseconds(400));  // three pieces take longer than one time-out
      pair_.near.Send(bytes.substr(at, 1));
    }
  });
  const Received got = Receive(pair_.far.fd(), 1000);
  writer.join();
  ASSERT_EQ(got.status, ZOR_OK);
  EXPECT_EQ(got.body(), "abcd");
  EXPECT_EQ(Receive(pair_.far.fd(), 50).status, ZOR_E_TIMEOUT);
  pair_.near.Send(bytes.substr(0, 42));
  EXPECT_EQ(Receive(pair_.far.fd(), 50).status, ZOR_E_TIMEOUT) << "a body that stops coming";
}

TEST_F(Transfer, MessagesCanBeReadFromAPipe) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const std::string bytes = MakeMessage(9, "a", "b", 0, "abcd").Bytes();
  ASSERT_EQ(::write(ends[1], bytes.data(), bytes.size()), 44);
  EXPECT_EQ(Receive(ends[0], 1000).body(), "abcd");
  ::close(ends[1]);
  EXPECT_EQ(Receive(ends[0], 1000).status, ZOR_E_PEER_GONE);
  ::close(ends[0]);
}

TEST_F(Transfer, AConnectionThatEndsInsideABodyIsReported) {
  Message liar = MakeMessage(9, "a", "b", 0, "abc");
  liar.header.bodyLength = 10;
  pair_.near.Send(liar);
  pair_.near.Close();
  EXPECT_EQ(Receive(pair_.far.fd(), 1000).status, ZOR_E_PEER_GONE);
  EXPECT_EQ(Receive(pair_.far.fd()).status, ZOR_E_PEER_GONE);
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
    EXPECT_EQ(Receive(pair_.far.fd()).status, ZOR_E_NO_MEMORY);
    EXPECT_EQ(output.Text().substr(0, c.text.size()), c.text);
  }
}

TEST_F(Transfer, OnlyRegularFilesInTheMessageDirectoryAreTakenAsABody) {
  const std::string victim = root_.Path("/var/victim");
  std::ofstream(victim) << "keep me";
  fs::create_symlink(victim, MessageDirectory() / "link");
  fs::create_directory(MessageDirectory() / "sub");
  ASSERT_EQ(::mkfifo((MessageDirectory() / "fifo").c_str(), 0600), 0);
  for (const std::string path : {"/var/victim", "/var/run/msg/../../victim", "/var/run/msg/link", "/var/run/msg/fifo",
                                 "/var/run/msg/sub", "/var/run/msg/", "/var/run/msg/missing", "msg_file_1", "/var/"}) {
    pair_.near.Send(ByFile(path));
    EXPECT_EQ(Receive(pair_.far.fd(), 1000).status, ZOR_E_IO) << path;
  }
  EXPECT_TRUE(fs::exists(victim));
  EXPECT_TRUE(fs::is_symlink(MessageDirectory() / "link"));
}

TEST_F(Transfer, ABodyFileIsRestoredForAConvertingReceiverOnly) {
  const std::string path = MakeBodyFile("");
  pair_.near.Send(ByFile(path));
  const Received empty = Receive(pair_.far.fd());
  ASSERT_EQ(empty.status, ZOR_OK);
  EXPECT_EQ(empty.msg->bodyLength, 0u);
  EXPECT_TRUE(NoMessageFiles());
  MakeBodyFile("content");
  pair_.near.Send(ByFile(path));
  EXPECT_EQ(Receive(pair_.far.fd(), 0, 0).body(), path);
  EXPECT_FALSE(NoMessageFiles());
}

TEST_F(Transfer, ABodyFileBeyondTheAllocationLimitIsDeletedAndRefused) {
  const std::string path = MakeBodyFile("");
  fs::resize_file(root_.Path(path), 0x800000 - 39);
  pair_.near.Send(ByFile(path));
  Capture output;
  EXPECT_EQ(Receive(pair_.far.fd()).status, ZOR_E_NO_MEMORY);
  EXPECT_EQ(output.Text(), "error: zor_realloc want to malloc 4M, return NULL, malloc len=8388609\n");
  EXPECT_TRUE(NoMessageFiles());
}

}  // namespace
}  // namespace zor::test
