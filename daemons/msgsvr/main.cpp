// msgsvr: the message server of the bus.
#include <sys/resource.h>
#include <sys/socket.h>
#include <zor/paths.h>

#include <algorithm>

#include "msgsvr/server.h"
#include "msgsvr/tcp_listener.h"
#include "programs/limits.h"
#include "programs/local_socket.h"
#include "programs/paths.h"
#include "programs/server_main.h"
#include "programs/stop_signal.h"

namespace {

using namespace zor;  // NOLINT(google-build-using-namespace): the whole program

constexpr daemon::Program kProgram = {
    "msgsvr",
    "The message server: grants daemons their names on the bus and passes messages between them.",
    "/etc/zor/msgsvr.conf",
    msgsvr::kSettingsHelp,
    "log clients that register and leave on standard error",
};

// Daemons that run as other users are members of the server's group; new files in the directory get that group.
constexpr mode_t kSocketMode = 0660;
constexpr mode_t kMessageDirectoryMode = 02770;

// Descriptors that do not belong to clients.
constexpr rlim_t kOwnDescriptors = 64;

// Room for every connection and every descriptor that queues may hold: clients that leave descriptors unread must not
// keep others from sending some.
void RaiseDescriptorLimit(size_t maxClients) {
  rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  const rlim_t wanted =
      std::min<rlim_t>(limit.rlim_max, maxClients * (1 + limits::kUnreadDescriptors) + kOwnDescriptors);
  if (limit.rlim_cur >= wanted) return;
  limit.rlim_cur = wanted;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

bool MakeDirectories(daemon::ProblemLog &log) {
  if (daemon::MakeDirectory(ZOR_PATH_MSG_FILE_DIR, kMessageDirectoryMode)) return true;
  log.PrintErrno("%s: cannot create the directory", ZOR_PATH_MSG_FILE_DIR);
  return false;
}

int Run(const msgsvr::BusSettings &settings, daemon::ProblemLog &log, bool verbose) {
  daemon::StopSignal stop;
  RaiseDescriptorLimit(settings.maxClients);
  if (!MakeDirectories(log)) return daemon::kExitFailure;
  daemon::LocalSocket local;
  if (const auto code = local.Open(ZOR_PATH_MSGSVR, SOCK_STREAM, kSocketMode, log); code != daemon::kExitOk)
    return code;
  msgsvr::TcpListener tcp;
  if (!settings.tcp.empty()) {
    tcp = msgsvr::ListenTcp(settings.tcp);
    if (!tcp.socket.valid()) {
      log.PrintErrno("tcp = %s: cannot listen", settings.tcp.c_str());
      return daemon::kExitFailure;
    }
  }
  msgsvr::Bus bus(settings, daemon::FixedPath(ZOR_PATH_MSG_FILE_DIR), log);
  bus.verbose = verbose;
  msgsvr::Server server(bus, stop, local.fd(), tcp.socket.get());
  daemon::SayListening(kProgram, ZOR_PATH_MSGSVR);
  if (tcp.socket.valid()) daemon::SayListening(kProgram, tcp.address.c_str());
  if (server.Run()) return daemon::kExitOk;
  log.PrintErrno("cannot start");
  return daemon::kExitFailure;
}

}  // namespace

int main(int count, char **arguments) {
  return daemon::ServerMain(kProgram, count, arguments, msgsvr::ReadSettings, Run);
}
