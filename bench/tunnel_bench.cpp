// A daemon on another board, through the tunnel and beside plain TCP, both over the loopback interface.
// Usage: tunnel_bench MSGSVR ZORTUNNEL
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/msg.h>
#include <zor/msg_wire.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "certificates.h"
#include "harness.h"

namespace {

using namespace zor::bench;

constexpr std::uint32_t kEcho = 0x4001;
constexpr std::uint32_t kCount = 0x4002;
constexpr std::uint32_t kTimeoutMs = 10000;
constexpr int kServerPort = 47710, kGatewayPort = 47711, kBoardPort = 47712;

void Write(const std::string &path, const std::string &content) {
  std::ofstream(path) << content;
  ::chmod(path.c_str(), 0600);
}

void MakeCertificates(const std::string &root) {
  const Authority authority;
  Write(root + "/authority.pem", authority.certificate());
  for (const std::string name : {"gateway", "board"}) {
    const Issued own = authority.Issue("DNS:" + name);
    Write(root + "/" + name + ".pem", own.certificate);
    Write(root + "/" + name + ".key", own.key);
  }
}

// One end of the tunnel, which listens once it is made.
class Tunnel {
 public:
  Tunnel(const std::string &program, const std::string &root, const std::string &mode, const std::string &more)
      : pipe_(OpenPipe()), process_([&] { Run(program, root, mode, more); }) {
    ::close(pipe_[1]);
    char line[128];
    Require(::read(pipe_[0], line, sizeof line) > 0, "the tunnel says that it listens");
    ::close(pipe_[0]);
  }

 private:
  static std::array<int, 2> OpenPipe() {
    std::array<int, 2> ends = {};
    Require(::pipe(ends.data()) == 0, "pipe");
    return ends;
  }
  void Run(const std::string &program, const std::string &root, const std::string &mode,
           const std::string &more) const {
    const std::string file = root + "/" + mode + ".conf";
    std::ofstream(file) << "mode = " << mode << "\ncertificate = /" << mode << ".pem\nkey = /" << mode
                        << ".key\nauthority = /authority.pem\n"
                        << more;
    ::dup2(pipe_[1], 1);
    ::close(pipe_[0]);
    ::close(pipe_[1]);
    ::execl(program.c_str(), "zortunnel", "--settings", file.c_str(), nullptr);
  }

  std::array<int, 2> pipe_;
  Process process_;
};

void Transfer(int socket, char *bytes, std::size_t length, bool in) {
  while (length > 0) {
    const ssize_t count = in ? ::read(socket, bytes, length) : ::write(socket, bytes, length);
    if (count <= 0) ::_exit(0);
    bytes += count;
    length -= static_cast<std::size_t>(count);
  }
}

// The board's daemon: replies to kEcho with what it got.
void Provide(const char *name, int port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  Require(::connect(socket, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0, "connect");
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  std::vector<char> frame(1 << 16);
  ZOR_MSG_HEAD head = {};
  head.type = ZOR_MSG_REGISTER_APP;
  std::strcpy(head.source, name);
  std::memcpy(frame.data(), &head, sizeof head);
  Transfer(socket, frame.data(), sizeof head, false);
  for (;;) {
    Transfer(socket, frame.data(), sizeof head, true);
    std::memcpy(&head, frame.data(), sizeof head);
    Transfer(socket, &frame[sizeof head], head.bodyLength, true);
    if ((head.type & ZOR_MSG_TYPE_MASK) != kEcho) continue;
    std::memcpy(head.destination, head.source, sizeof head.destination);
    std::memcpy(frame.data(), &head, sizeof head);
    Transfer(socket, frame.data(), sizeof head + head.bodyLength, false);
  }
}

void Call(const char *provider, std::uint32_t length) {
  void *body = ZOR_MSG_GetMsgBlock(length);
  Require(body != nullptr, "a message block");
  ZOR_MSG_SetMsgProfile(body, provider, kEcho, length);
  ZOR_MSG_HEAD *reply = nullptr;
  Require(ZOR_MSG_SendAndRecv(ZOR_MSG_GetMsgHead(body), &reply, kTimeoutMs) == ZOR_OK, "a request gets its reply");
  std::free(reply);
  std::free(ZOR_MSG_GetMsgHead(body));
}

// As many as fit the queues, again and again, each time up to a reply.
void Stream(const char *provider, std::uint32_t length) {
  const std::vector<char> body(length, 'x');
  for (int i = 0; i < 200; ++i) {
    Require(ZOR_MSG_SendMsgDataWithData(provider, kCount, body.data(), length, 0) == ZOR_OK, "a one-way send");
  }
  Call(provider, 0);
}

void Compare(const char *what, std::uint32_t length, std::size_t count, void (*call)(const char *, std::uint32_t)) {
  std::vector<double> plain, tunnel, ratio, ratio99;
  for (int round = 0; round < kRounds; ++round) {
    const Cost without = TimeEach(count, [&] { call("plain", length); });
    const Cost with = TimeEach(count, [&] { call("tunnelled", length); });
    plain.push_back(without.p50);
    tunnel.push_back(with.p50);
    ratio.push_back(with.p50 / without.p50);
    ratio99.push_back(with.p99 / without.p99);
  }
  std::printf("%-24s %6u %10.1f %10.1f %8.2f %8.2f\n", what, length, Median(plain) / 1e3, Median(tunnel) / 1e3,
              Median(ratio), Median(ratio99));
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: tunnel_bench MSGSVR ZORTUNNEL\n");
    return 2;
  }
  PinToOneProcessor();
  const std::string server = std::to_string(kServerPort), gateway = std::to_string(kGatewayPort);
  const System system(argv[1], "boards = /boards.socket\ntcp = 127.0.0.1:" + server + "\n");
  MakeCertificates(system.root());
  const Tunnel far(argv[2], system.root(), "gateway", "boards = /boards.socket\nlisten = 127.0.0.1:" + gateway + "\n");
  const Tunnel near(argv[2], system.root(), "board",
                    "gateway = 127.0.0.1:" + gateway + "\nlisten = 127.0.0.1:" + std::to_string(kBoardPort) + "\n");
  const Process plain([] { Provide("plain", kServerPort); });
  const Process tunnelled([] { Provide("tunnelled", kBoardPort); });
  Require(ZOR_MSG_Init("consumer") == ZOR_OK, "the consumer joins the bus");
  for (const char *name : {"plain", "tunnelled"}) {
    while (ZOR_MSG_GetNumOfProcesses(name) == 0) ::usleep(1000);
  }
  std::printf("a daemon on another board, through the tunnel (median of %d rounds)\n", kRounds);
  std::printf("%-24s %6s %10s %10s %8s %8s\n", "what", "bytes", "TCP us", "tunnel us", "p50", "p99");
  for (const std::uint32_t length : {0u, 64u, 2048u}) Compare("request and reply", length, 2000, Call);
  for (const std::uint32_t length : {64u, 2048u}) Compare("200 messages, a reply", length, 50, Stream);
  return 0;
}
