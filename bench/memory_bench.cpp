// Resident memory of an idle daemon above an empty program, and of the message server. Usage: memory_bench MSGSVR
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zor/msg.h>
#include <zor/platform/file.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "harness.h"

namespace {

using namespace zor::bench;

// Private resident memory of a process in KiB: the cost of one more of its kind.
struct Memory {
  long all = 0;
  long code = 0;       // of its program: code and constants
  long wholeCode = 0;  // all of these, also what is not resident
};

Memory PrivateMemory(pid_t pid) {
  const std::string directory = "/proc/" + std::to_string(pid);
  std::ifstream mappings(directory + "/smaps");
  const std::string program = std::filesystem::read_symlink(directory + "/exe");
  Memory memory;
  bool isCode = false;
  for (std::string line; std::getline(mappings, line);) {
    std::istringstream words(line);
    std::string word;
    long value = 0;
    words >> word;
    if (word.back() != ':') {
      std::string permissions;
      words >> permissions;
      isCode = permissions[1] == '-' && line.ends_with(program);
    } else if (word == "Size:" && isCode && words >> value) {
      memory.wholeCode += value;
    } else if ((word == "Private_Clean:" || word == "Private_Dirty:") && words >> value) {
      memory.all += value;
      if (isCode) memory.code += value;
    }
  }
  return memory;
}

long PrivateKiB(pid_t pid) {
  return PrivateMemory(pid).all;
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
  std::vector<std::byte> body(head.bodyLength);
  Require(::recv(fd, body.data(), body.size(), MSG_WAITALL) == static_cast<ssize_t>(body.size()), "with its body");
  return fd;
}

// The code that serves clients is part of an idle server that has served some.
void Exchange(int from, int to, const char *name) {
  ZOR_MSG_HEAD head = {};
  head.type = 0x4001;
  std::snprintf(head.destination, sizeof head.destination, "%s", name);
  Require(::write(from, &head, sizeof head) == sizeof head, "send");
  Require(::recv(to, &head, sizeof head, MSG_WAITALL) == sizeof head && head.type == 0x4001, "receive");
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
  const int one = RegisteredClient("one");
  const int other = RegisteredClient("other");
  Exchange(one, other, "other");
  Exchange(other, one, "one");
  const Memory before = PrivateMemory(system.server());
  constexpr int kClients = 200;
  for (int i = 0; i < kClients; ++i) RegisteredClient(("client" + std::to_string(i)).c_str());
  const long after = PrivateKiB(system.server());
  std::printf("msgsvr idle                        %6ld KiB private, of which its code %ld KiB\n", before.all,
              before.code);
  std::printf("the same, if all its code stayed   %6ld KiB private\n", before.all - before.code + before.wholeCode);
  std::printf("msgsvr per connected client        %8.1f KiB private\n",
              static_cast<double>(after - before.all) / kClients);
  return 0;
}
