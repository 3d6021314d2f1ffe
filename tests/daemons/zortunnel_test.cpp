// Daemons on other boards, through the tunnel.
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <zor/control_wire.h>

#include <cstring>
#include <thread>

#include "zortunnel_fixture.h"

namespace zor::test {
namespace {

constexpr uint32_t kEvent = 0x2DA05;

TEST_F(TunnelTest, RequestsEventsAndRepliesPassBothWays) {
  StartAll();
  const WireClient remote = Remote("remote");
  const WireClient second = Remote("second");
  sender_.Send(MakeMessage(kType, "", "remote", 1, "request", 7));
  const Message request = remote.Next();
  EXPECT_EQ(request.body, "request");
  remote.Send(MakeMessage(kType, "", NameOf(request.header.source), 2, "reply", 7));
  EXPECT_EQ(sender_.Next().body, "reply");
  Tell(remote, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "", kEvent));
  sender_.Send(MakeMessage(kEvent, "", "", 3, "event"));
  EXPECT_EQ(remote.Next().body, "event");
  second.Send(MakeMessage(kType, "", "remote", 4));
  EXPECT_EQ(NameOf(remote.Next().header.source), "second");
  EXPECT_THAT(List(), testing::HasSubstr("\"board\":\"modem\""));
  // Files and control stay on their own board; longer bodies than the wire's end the connection.
  const std::string path = MakeFile();
  EXPECT_TRUE(IsNotice(remote.Ask(MakeFileMessage(kType, "sender", path)), kType));
  EXPECT_TRUE(IsNotice(sender_.Ask(MakeFileMessage(kType, "remote", path)), kType));
  EXPECT_EQ(remote.Ask(MakeRequest(ZOR_MSG_CONTROL_LIST)).header.data, ZOR_CONTROL_REFUSED);
  second.Send(MakeMessage(kType, "", "sender", 0, std::string(ZOR_MSG_INLINE_BODY_MAX + 1, 'x')));
  EXPECT_TRUE(second.ClosedByOther());
  EXPECT_TRUE(LogHolds("second (board modem) cut off: its frame is oversized"));
}

TEST_F(TunnelTest, NothingIsLostOrChangedOnTheWayToASlowReader) {
  StartAll();
  const WireClient remote = Remote("remote");
  constexpr uint32_t kMost = 60000;
  const auto body = [](uint32_t number) { return std::string(2000, static_cast<char>('a' + number % 26)); };
  uint32_t sent = 0;
  // Until the server's queue is full, too: behind it everything waits for the reader.
  for (; sent < kMost && sender_.NothingArrived(); ++sent) {
    sender_.Send(MakeMessage(kType, "", "remote", sent, body(sent), sent + 1));
  }
  ASSERT_LT(sent, kMost) << "what waits is bounded";
  const uint32_t first = sender_.Next().header.sequence - 1;
  for (uint32_t number = 0; number < first; ++number) {
    const Message message = remote.Next();
    ASSERT_EQ(message.header.data, number);
    ASSERT_EQ(message.body, body(number));
  }
  // The other way, and then an end of the stream.
  std::thread writer([&] {
    std::string bytes;
    for (uint32_t number = 0; number < 300; ++number) {
      bytes += MakeMessage(kType, "", "receiver", number, body(number)).Bytes();
    }
    remote.Send(bytes);
    remote.Send(MakeMessage(kType, "", "receiver", 300));
    ::shutdown(remote.fd(), SHUT_WR);
  });
  uint32_t expected = 0;
  for (Message message; message.header.data != 300; ++expected) {
    message = receiver_.Next();
    EXPECT_EQ(message.header.data, expected);
    EXPECT_EQ(message.body, expected < 300 ? body(expected) : "");
    if (HasFailure()) break;
  }
  writer.join();
  AwaitCount(sender_, "remote", 0);
}

TEST_F(TunnelTest, EitherEndOfAConnectionEndsTheOtherAndTheServersSuccessorKeepsIt) {
  StartAll();
  const WireClient remote = Remote("remote");
  server_->Signal(SIGHUP);
  ASSERT_TRUE(LogHolds("took over"));
  sender_.Send(MakeMessage(kType, "", "remote", 1));
  EXPECT_EQ(remote.Next().header.data, 1u);
  EXPECT_THAT(List(), testing::HasSubstr("\"board\":\"modem\""));
  gateway_->Signal(SIGKILL);
  gateway_->Wait();
  EXPECT_TRUE(remote.ClosedByOther());
  AwaitCount(sender_, "remote", 0);
  StartGateway();
  WireClient again;
  ASSERT_TRUE(WaitUntil([&] {  // the board may have to wait before it tries again
    again = WireClient::ConnectTcp(boardPort_);
    again.Send(MakeMessage(ZOR_MSG_REGISTER_APP, "again", ""));
    return again.ReceiveMessage().has_value();
  }));
  board_->Signal(SIGKILL);
  board_->Wait();
  board_.reset();
  AwaitCount(sender_, "again", 0);
  StartBoard();
  const WireClient last = Remote("last");
  server_->Signal(SIGKILL);
  server_->Wait();
  server_.reset();
  EXPECT_TRUE(last.ClosedByOther());
  const WireClient nobody = WireClient::ConnectTcp(boardPort_);
  EXPECT_TRUE(nobody.ClosedByOther());
  EXPECT_TRUE(LogHolds("the message server cannot be reached"));
}

TEST_F(TunnelTest, RulesGiveNamesToBoardsByTheirCertificates) {
  std::filesystem::create_directories(root_.Path("/etc/zor/access.d"));
  Write("/etc/zor/access.d/boards.conf",
        "allow = board:modem own modem\ndeny = any own modem\ndeny = board:* own *\nallow = any all\n");
  StartAll();
  const WireClient modem = Remote("modem"), web = WireClient::ConnectTcp(boardPort_), local = Connect();
  EXPECT_EQ(NameOf(web.Register("web").header.destination), "");
  EXPECT_EQ(NameOf(local.Register("modem").header.destination), "");
  EXPECT_TRUE(LogHolds("(board modem), board:modem,127.0.0.1: ")) << log_.Text();
}

// Beside the tunnel itself.
TEST_F(TunnelTest, OnTheTunnelsSocketNothingPrecedesAnIntroduction) {
  Start("boards = /boards/socket\n");
  const auto introduction = [](const std::string &name, uint32_t magic = ZOR_CONTROL_BOARD_MAGIC,
                               uint32_t version = 1) {
    ZOR_CONTROL_BOARD board = {magic, version, 1, 2, {}};
    name.copy(board.name, sizeof board.name);
    return MakeRequest(ZOR_MSG_CONTROL_BOARD, std::string(reinterpret_cast<char *>(&board), sizeof board));
  };
  Message addressed = introduction("modem"), shortened = introduction("modem"), inFile = introduction("modem");
  std::strcpy(addressed.header.destination, "sender");
  shortened.body.pop_back();
  --shortened.header.bodyLength;
  inFile.header.type |= ZOR_MSG_BODY_IN_FILE;
  const Message kHostile[] = {
      MakeMessage(ZOR_MSG_REGISTER_APP, "cms", ""),
      introduction("modem", 1),
      introduction("modem", ZOR_CONTROL_BOARD_MAGIC, 2),
      introduction(""),
      introduction("5g"),
      introduction("a\nb"),
      introduction(std::string(ZOR_CONTROL_BOARD_NAME_SIZE, 'x')),
      addressed,
      shortened,
      inFile,
  };
  for (const Message &hostile : kHostile) {
    const WireClient tunnel = WireClient::Connect(root_.Path("/boards/socket"));
    tunnel.Send(hostile);
    tunnel.Send(MakeMessage(ZOR_MSG_REGISTER_APP, "remote", ""));
    EXPECT_TRUE(tunnel.ClosedByOther()) << hostile.header.type;
  }
  EXPECT_TRUE(LogHolds("does not begin with the tunnel's word on its board"));
  const WireClient tunnel = WireClient::Connect(root_.Path("/boards/socket"));
  for (const char byte : introduction("modem").Bytes()) tunnel.Send(std::string_view(&byte, 1));
  EXPECT_EQ(NameOf(tunnel.Register("remote").header.destination), "remote");
  EXPECT_EQ(tunnel.Ask(introduction("other")).header.data, ZOR_CONTROL_REFUSED);
  EXPECT_EQ(sender_.Ask(introduction("other")).header.data, ZOR_CONTROL_UNKNOWN);
  EXPECT_THAT(List(), testing::HasSubstr("\"board\":\"modem\""));
}

}  // namespace
}  // namespace zor::test
