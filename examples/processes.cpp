// A daemon's children, commands and server sockets. The exit status is 0 when every step gave what it should.
#include <sys/socket.h>
#include <unistd.h>
#include <zor/platform/file.h>
#include <zor/socket.h>
#include <zor/status.h>
#include <zor/uv.h>
#include <zor/zorutil.h>

#include <climits>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace {

int failures = 0;

void Check(bool good, const std::string &what) {
  std::printf("%s %s\n", good ? "ok" : "FAILED", what.c_str());
  if (!good) ++failures;
}

std::string output;
int32_t code = -1;

// A stream is read until its end, and then given back.
void OnOutput(UvProcess *process, UvIO *stream, uint32_t) {
  char piece[256];
  const ssize_t count = ::read(stream->fd, piece, sizeof piece);
  if (count > 0) {
    output.append(piece, static_cast<std::size_t>(count));
  } else {
    ZOR_UV_ProcessDeleteRedirectIO(process, stream);
  }
}

void OnExit(UvProcess *, int32_t, int32_t exitCode, int32_t) {
  code = exitCode;
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

void Child() {
  const char *const args[] = {"sh", "-c", "printf 'a child speaks'; exit 3", nullptr};
  UvProcessOptions options = {};
  options.file = args[0];
  options.args = args;
  options.flags = UV_PROCESS_STDOUT;
  options.outputCallback = OnOutput;
  options.exitCallback = OnExit;
  const uint32_t status = ZOR_UV_ProcessSpawn(nullptr, nullptr, &options);
  if (status == ZOR_OK) ZOR_UV_LoopRun(nullptr, 10000);
  Check(output == "a child speaks" && code == 3,
        "child: said \"" + output + "\" and ended with " + std::to_string(code));
}

void KilledChild() {
  const char *const args[] = {"sh", "-c", "kill -9 $$", nullptr};
  UvProcessOptions options = {};
  options.file = args[0];
  options.args = args;
  Check(ZOR_UV_ProcessSpawnSync(&options, 10000) == ZOR_E_TIMEOUT, "synchronous spawn: the child was killed");
}

void Commands() {
  Check(ZOR_UTIL_ExecCmd_ByTime("exec sleep 30", 1) == -1, "command: cut off after its second");

  char record[PATH_MAX];
  ZOR_UTIL_FixedPath("/var/commands", record, sizeof record);
  ZOR_EXEC_CTX recording = {ZOR_EXEC_RECORD, record};
  g_pstExecCtx = &recording;
  ZOR_UTIL_ExecCmdNoHang("ip link set br0 up");
  g_pstExecCtx = nullptr;
  std::stringstream recorded;
  recorded << std::ifstream(record).rdbuf();
  Check(recorded.str().find("ip link set br0 up") != std::string::npos, "command: recorded instead of run");
  Check(ZOR_UTIL_GetPid("mlogserver") > 0, "process found by its name");
}

// A bound socket of the family, at a port or path of its own.
void Server(const char *address, uint32_t flags, int family) {
  const int fd = ZOR_UTIL_SocketCreateServer(address, 0, flags);
  sockaddr_storage own = {};
  socklen_t length = sizeof own;
  auto *generic = reinterpret_cast<sockaddr *>(&own);
  const bool bound = fd >= 0 && ::getsockname(fd, generic, &length) == 0 && own.ss_family == family;
  Check(bound && ::listen(fd, 1) == 0, std::string("server socket at ") + address);
  ZOR_UTIL_SocketClose(fd);
}

}  // namespace

int main() {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  Child();
  KilledChild();
  Commands();
  Server("127.0.0.1", 0, AF_INET);
  if (::access("/proc/net/if_inet6", F_OK) == 0) Server("::1", 0, AF_INET6);
  char path[PATH_MAX];
  ZOR_UTIL_FixedPath("/var/server", path, sizeof path);
  Server(path, ZOR_ADDR_LOCAL, AF_UNIX);
  return failures == 0 ? 0 : 1;
}
