// Resident memory of an idle daemon above an empty program, and of the message server. Usage: memory_bench MSGSVR
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zor/msg.h>
#include <zor/platform/file.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "harness.h"

namespace {

using namespace zor::bench;

// Private resident memory of a process in KiB: the cost of one more of its kind.
long PrivateKiB(pid_t pid) {
  std::ifstream rollup("/proc/" + std::to_string(pid) + "/smaps_rollup");
  long sum = 0;
  for (std::string word; rollup >> word;) {
    long value = 0;
    if ((word == "Private_Clean:" || word == "Private_Dirty:") && rollup >> value) sum += value;
  }
  return sum;
}

long IdleDaemonKiB(bool joins) {
  int ready[2];
  Require(::pipe(ready) == 0, "pipe");
  const Process daemon([&] {
    if (joins) {
      Require(ZOR_MSG_Init("idle") == ZOR_OK, "the daemon joins the bus");
      ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
    }
    Require(::write(ready[1], "", 1) == 1, "report");
    if (joins) {
      ZOR_MSG_GetAndDispatch();
    } else {
      ::pause();
    }
  });
  char byte;
  Require(::read(ready[0], &byte, 1) == 1, "the daemon runs");
  ::close(ready[0]);
  ::close(ready[1]);
  return PrivateKiB(daemon.pid());
}

int RegisteredClient(const char *name) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  ZOR_UTIL_FixedPath("/var/msgsvr", address.sun_path, sizeof address.sun_path);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  Require(::connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0, "connect");
  ZOR_MSG_HEAD head = {};
  head.type = ZOR_MSG_REGISTER_APP;
  std::snprintf(head.source, sizeof head.source, "%.11s", name);
  Require(::write(fd, &head, sizeof head) == sizeof head, "register");
  Require(::read(fd, &head, sizeof head) == sizeof head, "the registration gets its reply");
  return fd;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: memory_bench MSGSVR\n");
    return 2;
  }
  const System system(argv[1]);
  const long empty = IdleDaemonKiB(false);
  const long idle = IdleDaemonKiB(true);
  std::printf("idle daemon above an empty program %6ld KiB private\n", idle - empty);
  const long before = PrivateKiB(system.server());
  constexpr int kClients = 200;
  for (int i = 0; i < kClients; ++i) RegisteredClient(("client" + std::to_string(i)).c_str());
  const long after = PrivateKiB(system.server());
  std::printf("msgsvr idle                        %6ld KiB private\n", before);
  std::printf("msgsvr per connected client        %8.1f KiB private\n", static_cast<double>(after - before) / kClients);
  return 0;
}
