// Daemons on other boards, through the tunnel.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <zor/control_wire.h>

#include <cstring>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "bench/certificates.h"
#include "common/unique_fd.h"
#include "msgsvr_fixture.h"

namespace zor::test {
namespace {

using bench::Authority;
using bench::Issued;

constexpr uint32_t kEvent = 0x2DA05;

class TunnelTest : public OwnMsgsvrTest {
 protected:
  void SetUp() override {
    OwnMsgsvrTest::SetUp();
    std::filesystem::create_directories(root_.Path("/boards"));
  }
  void TearDown() override {
    StopTunnels();
    OwnMsgsvrTest::TearDown();
  }

  void StopTunnels() {
    for (auto *tunnel : {&board_, &gateway_}) {
      if (!*tunnel) continue;
      (*tunnel)->Signal(SIGTERM);
      EXPECT_EQ((*tunnel)->Wait(), 0) << log_.Text();
      tunnel->reset();
    }
  }

  void Write(const std::string &path, const std::string &content, mode_t mode = 0600) const {
    std::ofstream(root_.Path(path)) << content;
    ::chmod(root_.Path(path).c_str(), mode);
  }
  // The files of one side.
  void Install(const std::string &side, const Issued &own, const Authority &trusted) const {
    Write("/" + side + ".pem", own.certificate);
    Write("/" + side + ".key", own.key);
    Write("/" + side + ".authority", trusted.certificate());
  }
  Child Run(const std::string &side, const std::string &more, const std::string &listen = "127.0.0.1:0") const {
    Write("/" + side, "mode = " + side + "\nlisten = " + listen + "\ncertificate = /" + side + ".pem\nkey = /" + side +
                          ".key\nauthority = /" + side + ".authority\n" + more);
    return Child::Program({ZORTUNNEL_PROGRAM, "--settings", root_.Path("/" + side), "--verbose"});
  }
  uint16_t PortOf(Child &tunnel) const {
    const std::string line = "zortunnel: listening on 127.0.0.1:";
    EXPECT_TRUE(tunnel.WaitForOutput(line) && tunnel.WaitForOutput("\n"));
    const size_t at = tunnel.output().find(line);
    return at == std::string::npos ? uint16_t{0}
                                   : static_cast<uint16_t>(std::stoi(tunnel.output().substr(at + line.size())));
  }
  void StartGateway(const std::string &more = "") {
    gateway_.emplace(Run("gateway", "boards = /boards/socket\n" + more, "127.0.0.1:" + std::to_string(gatewayPort_)));
    gatewayPort_ = PortOf(*gateway_);
  }
  void StartBoard() {
    board_.emplace(Run("board", "gateway = 127.0.0.1:" + std::to_string(gatewayPort_) + "\n"));
    boardPort_ = PortOf(*board_);
  }
  // The message server, and a tunnel at both ends.
  void StartAll() {
    Install("gateway", authority_.Issue("DNS:gateway"), authority_);
    Install("board", authority_.Issue("DNS:modem"), authority_);
    StartGateway();
    StartBoard();
    program_ = MSGSVR_PROGRAM;
    Start("boards = /boards/socket\n");
  }
  WireClient Remote(const std::string &name) const {
    WireClient remote = WireClient::ConnectTcp(boardPort_);
    EXPECT_EQ(NameOf(remote.Register(name).header.destination), name) << name;
    return remote;
  }
  std::string List() const { return sender_.Ask(MakeRequest(ZOR_MSG_CONTROL_LIST)).body; }

  Authority authority_;
  std::optional<Child> gateway_, board_;
  uint16_t gatewayPort_ = 0, boardPort_ = 0;
};

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

// A gateway whose message server is the test, which sees whoever gets through.
class GatewayTest : public TunnelTest {
 protected:
  void SetUp() override {
    TunnelTest::SetUp();
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    root_.Path("/boards/socket").copy(address.sun_path, sizeof address.sun_path - 1);
    busSocket_ = UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    ASSERT_EQ(::bind(busSocket_.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(busSocket_.get(), 5), 0);
    Install("gateway", authority_.Issue("DNS:gateway"), authority_);
  }
  // What the server gets of the connection that was made; empty if there is none.
  std::string Introduced() const {
    UniqueFd socket(::accept4(busSocket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    return socket.valid() ? BusPeer(socket.release()).Receive(ZOR_MSG_HEAD_SIZE + sizeof(ZOR_CONTROL_BOARD)) : "";
  }
  // Tries to connect with that certificate, or none, by a version of TLS.
  void Shake(const Issued *own, int version = TLS1_3_VERSION) const {
    std::signal(SIGPIPE, SIG_IGN);
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    SSL_CTX_set_max_proto_version(context.get(), version);
    if (own != nullptr) {
      Write("/own.pem", own->certificate + own->key);
      SSL_CTX_use_certificate_file(context.get(), root_.Path("/own.pem").c_str(), SSL_FILETYPE_PEM);
      SSL_CTX_use_PrivateKey_file(context.get(), root_.Path("/own.pem").c_str(), SSL_FILETYPE_PEM);
    }
    const std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(context.get()), SSL_free);
    const WireClient socket = WireClient::ConnectTcp(gatewayPort_);
    SSL_set_fd(ssl.get(), socket.fd());
    char byte;
    if (SSL_connect(ssl.get()) == 1) SSL_read(ssl.get(), &byte, 1);
  }

  UniqueFd busSocket_;
};

TEST_F(GatewayTest, RefusesWhoeverProvesNothingAndTheServerNeverSeesThem) {
  const Authority other;
  const Issued revoked = authority_.Issue("DNS:modem"), stranger = other.Issue("DNS:modem");
  Write("/revoked", authority_.Revoke({revoked.serial}));
  StartGateway("handshake_seconds = 2\nrevoked = /revoked\n");
  std::vector<std::pair<Issued, const char *>> cases = {
      {stranger, "certificate verify failed: "},
      {authority_.Issue("DNS:modem", -2), "certificate verify failed: certificate has expired"},
      {revoked, "certificate verify failed: certificate revoked"},
  };
  for (const char *names : {"", "DNS:modem,DNS:web", "DNS:*.modem", "IP:10.0.0.1", "DNS:5g"}) {
    cases.emplace_back(authority_.Issue(names), "does not have exactly one subject alternative name");
  }
  size_t lines = 0;
  const auto refused = [&](const std::string &line) {
    // Each case has a line of its own.
    const bool found = WaitUntil([&] { return log_.Text().find(line, lines) != std::string::npos; });
    lines = log_.Text().size();
    EXPECT_TRUE(found) << line << '\n' << log_.Text();
  };
  for (const auto &[own, line] : cases) {
    Shake(&own);
    refused(line);
  }
  StopTunnels();  // another one has its own share of the log
  StartGateway("handshake_seconds = 2\n");
  Shake(nullptr);
  refused("peer did not return a certificate");
  Shake(&stranger, TLS1_2_VERSION);
  refused("unsupported protocol");
  const WireClient web = WireClient::ConnectTcp(gatewayPort_);
  web.Send("GET / HTTP/1.0\r\n\r\n");
  refused("http request");
  const WireClient daemon = WireClient::ConnectTcp(gatewayPort_);
  daemon.Send(MakeMessage(ZOR_MSG_REGISTER_APP, "modem", ""));
  refused("wrong version number");
  const WireClient silent = WireClient::ConnectTcp(gatewayPort_);
  EXPECT_TRUE(silent.ClosedByOther());
  refused("no handshake in time");
  EXPECT_EQ(Introduced(), "");
}

TEST_F(GatewayTest, IntroducesABoardAndReadsItsFilesAgainAllOrNothing) {
  StartGateway("board_connections = 1\nmax_handshakes = 2\n");
  Install("board", authority_.Issue("DNS:modem"), authority_);
  StartBoard();
  WireClient daemon = WireClient::ConnectTcp(boardPort_);
  std::string bytes;
  ASSERT_TRUE(WaitUntil([&] { return !(bytes = Introduced()).empty(); }));
  ZOR_CONTROL_BOARD board;
  ASSERT_EQ(bytes.size(), ZOR_MSG_HEAD_SIZE + sizeof board);
  std::memcpy(&board, &bytes[ZOR_MSG_HEAD_SIZE], sizeof board);
  EXPECT_STREQ(board.name, "modem");
  EXPECT_EQ(board.address, INADDR_LOOPBACK);
  EXPECT_TRUE(daemon.ClosedByOther()) << "the server has";
  daemon.Close();
  // Another authority, and then a key that does not fit.
  const Authority other;
  const Issued fresh = other.Issue("DNS:gateway");
  Install("gateway", fresh, other);
  gateway_->Signal(SIGHUP);
  ASSERT_TRUE(LogHolds("certificates read again"));
  const WireClient late = WireClient::ConnectTcp(boardPort_);
  EXPECT_TRUE(late.ClosedByOther());
  EXPECT_TRUE(LogHolds("certificate verify failed: "));
  Write("/gateway.key", authority_.Issue("DNS:gateway").key);
  gateway_->Signal(SIGHUP);
  ASSERT_TRUE(LogHolds("those from before stay in use"));
  // A stranger's unfinished handshakes keep nobody out.
  const WireClient silent[] = {WireClient::ConnectTcp(gatewayPort_), WireClient::ConnectTcp(gatewayPort_),
                               WireClient::ConnectTcp(gatewayPort_)};
  EXPECT_TRUE(LogHolds("too many unfinished handshakes"));
  Install("board", other.Issue("DNS:modem"), other);
  board_->Signal(SIGHUP);
  ASSERT_TRUE(WaitUntil([&] {
    const WireClient again = WireClient::ConnectTcp(boardPort_);
    return WaitUntil([&] { return !Introduced().empty(); }, std::chrono::seconds(1));
  }));
}

TEST_F(GatewayTest, ABoardSaysWhyItsGatewayIsNoneAndWaits) {
  const Authority other;
  Install("board", authority_.Issue("DNS:modem"), authority_);
  const std::pair<Issued, const char *> kCases[] = {
      {other.Issue("DNS:gateway"), "certificate verify failed: "},
      {authority_.Issue("DNS:gateway", -2), "certificate verify failed: certificate has expired"},
      {authority_.Issue("DNS:modem"), "certificate verify failed: hostname mismatch"},
      {authority_.Issue("DNS:*"), "certificate verify failed: hostname mismatch"},
      {authority_.Issue("DNS:gateway"), "refused by the other side: "},  // which knows another authority
  };
  for (const auto &[own, line] : kCases) {
    Install("gateway", own, line == std::end(kCases)[-1].second ? other : authority_);
    StartGateway();
    StartBoard();
    const WireClient daemon = WireClient::ConnectTcp(boardPort_);
    EXPECT_TRUE(daemon.ClosedByOther());
    EXPECT_TRUE(LogHolds("zortunnel: gateway 127.0.0.1:" + std::to_string(gatewayPort_) + ": "));
    EXPECT_TRUE(LogHolds(line)) << line << '\n' << log_.Text();
    EXPECT_TRUE(LogHolds("; next attempt in 0.2 s"));
    StopTunnels();
  }
}

TEST_F(GatewayTest, DoesNotStartWithWhatProtectsNothing) {
  const Issued own = authority_.Issue("DNS:gateway");
  const auto refuses = [&](const std::string &side, const std::string &more, const std::string &listen, int code,
                           const std::string &line) {
    Child tunnel = Run(side, more, listen);
    EXPECT_EQ(tunnel.Wait(), code) << line;
    EXPECT_TRUE(LogHolds(line)) << line << '\n' << log_.Text();
  };
  Write("/gateway.key", own.key, 0604);
  refuses("gateway", "", "127.0.0.1:0", 3, "gateway.key: others may read or replace it");
  Write("/gateway.key", "none", 0600);
  refuses("gateway", "", "127.0.0.1:0", 3, "gateway.key: ");
  Install("board", own, authority_);
  refuses("board", "gateway = 127.0.0.1:1\n", "0.0.0.0:0", 3, "listen must be a loopback address");
  Write("/settings", "tcp = 0.0.0.0:0\n");
  Child server = Child::Program({MSGSVR_PROGRAM, "--settings", root_.Path("/settings")});
  EXPECT_EQ(server.Wait(), 3);
  EXPECT_TRUE(LogHolds("let zortunnel listen there and set boards, or set tcp_unprotected = yes"));
  Write("/settings", "tcp = 0.0.0.0:0\ntcp_unprotected = yes\n");
  Child open = Child::Program({MSGSVR_PROGRAM, "--settings", root_.Path("/settings")});
  EXPECT_TRUE(open.WaitForOutput("listening on 0.0.0.0:"));
  open.Signal(SIGTERM);
  EXPECT_EQ(open.Wait(), 0);
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
