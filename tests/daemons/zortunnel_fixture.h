// A message server, and the tunnel that leads daemons on other boards to it.
#ifndef ZORTUNNEL_FIXTURE_H
#define ZORTUNNEL_FIXTURE_H

#include <sys/stat.h>

#include "bench/certificates.h"
#include "msgsvr_fixture.h"

namespace zor::test {

using bench::Authority;
using bench::Issued;

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
    gateway_.emplace(Run("gateway", "boards = /boards/socket\nboard_seconds = 600\n" + more,
                         "127.0.0.1:" + std::to_string(gatewayPort_)));
    gatewayPort_ = PortOf(*gateway_);
  }
  void StartBoard() {
    board_.emplace(Run("board", "gateway = 127.0.0.1:" + std::to_string(gatewayPort_) + "\nboard_seconds = 600\n"));
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
  std::string List() const { return AskAndFetch(sender_, MakeRequest(ZOR_MSG_CONTROL_LIST)).body; }

  Authority authority_;
  std::optional<Child> gateway_, board_;
  uint16_t gatewayPort_ = 0, boardPort_ = 0;
};

}  // namespace zor::test

#endif
