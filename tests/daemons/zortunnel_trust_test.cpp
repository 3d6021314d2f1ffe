// Whom a tunnel admits, and what it starts with.
#include <fcntl.h>
#include <netinet/in.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <zor/control_wire.h>

#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "common/socket_address.h"
#include "common/unique_fd.h"
#include "programs/local_address.h"
#include "zortunnel_fixture.h"

namespace zor::test {
namespace {

// A gateway whose message server is the test, which sees whoever gets through.
class GatewayTest : public TunnelTest {
 protected:
  void SetUp() override {
    TunnelTest::SetUp();
    busSocket_ = UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    ASSERT_TRUE(Bind(busSocket_.get(), *daemon::LocalAddress(root_.Path("/boards/socket"))));
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
  StartGateway("handshake_seconds = 60\nrevoked = /revoked\n");
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
  StartGateway("handshake_seconds = 60\n");
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
  StopTunnels();
  StartGateway("handshake_seconds = 2\n");
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
  EXPECT_TRUE(WaitUntil([&] {  // one that fails in the pause after another one is not named
    EXPECT_TRUE(WireClient::ConnectTcp(boardPort_).ClosedByOther());
    return log_.Text().find("certificate verify failed: ") != std::string::npos;
  }));
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

}  // namespace
}  // namespace zor::test
