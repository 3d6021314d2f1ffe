// msgsvr: the message server of the bus.
#include <malloc.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <zor/paths.h>

#include <algorithm>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "msgsvr/boards_socket.h"
#include "msgsvr/message_directory.h"
#include "msgsvr/recorder_store.h"
#include "msgsvr/recovery.h"
#include "msgsvr/server.h"
#include "programs/access/server_access.h"
#include "programs/descriptor_set.h"
#include "programs/holdings.h"
#include "programs/limits.h"
#include "programs/local_socket.h"
#include "programs/paths.h"
#include "programs/server_main.h"
#include "programs/stop_signal.h"
#include "programs/tcp_listener.h"

namespace {

using namespace zor;  // NOLINT(google-build-using-namespace): the whole program

constexpr daemon::Program kProgram = {
    "msgsvr",
    "The message server: grants daemons their names on the bus and passes messages between them.",
    "/etc/zor/msgsvr.conf",
    msgsvr::kSettingsHelp,
    "log clients that register and leave on standard error",
    true,
    ZOR_PATH_MSGSVR,
};

// Daemons that run as other users are members of the server's group.
constexpr mode_t kSocketMode = 0660;

// The name of the TCP listener in the service manager's descriptor store.
constexpr std::string_view kStoredTcp = "tcp";
// And that of the tunnel's socket.
constexpr std::string_view kStoredBoards = "boards";

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

// Room for what all clients together may hold. Those that are restored stay, also beyond a limit that has become lower.
// The bus itself has a place too, and so have clients that have made room for others in one turn.
daemon::Journal::Size JournalSizeOf(const msgsvr::BusSettings &settings, size_t restored) {
  constexpr size_t kFurther = 1 + 3 * msgsvr::kNewcomersPerTurn;  // from three listeners
  return {std::max(settings.maxClients, restored) + kFurther, settings.memoryBytes, msgsvr::kInputBuffer};
}

// The sockets at which the server listens.
struct Listeners {
  daemon::LocalSocket local;
  daemon::TcpListener tcp;
  UniqueFd boards;
};

// What the service manager may have stored is another one.
bool ListenTcp(const std::string &address, Listeners &listeners, daemon::ProblemLog &log) {
  daemon::RemoveStoredDescriptors(kStoredTcp);
  if (address.empty()) return true;
  listeners.tcp = daemon::ListenTcp(address);
  if (listeners.tcp.socket.valid()) {
    daemon::StoreDescriptor(kStoredTcp, listeners.tcp.socket.get());
  } else {
    log.PrintErrno("tcp = %s: cannot listen", address.c_str());
  }
  return listeners.tcp.socket.valid();
}

// The same for the tunnel.
bool ListenBoards(const std::string &path, Listeners &listeners, daemon::ProblemLog &log) {
  daemon::RemoveStoredDescriptors(kStoredBoards);
  if (path.empty()) return true;
  listeners.boards = msgsvr::ListenForTunnel(path);
  if (listeners.boards.valid()) {
    daemon::StoreDescriptor(kStoredBoards, listeners.boards.get());
  } else {
    log.PrintErrno("boards = %s: cannot listen", path.c_str());
  }
  return listeners.boards.valid();
}

// The service manager has those of a server that has crashed.
daemon::ExitCode Listen(const msgsvr::BusSettings &settings, std::vector<daemon::PassedDescriptor> &passed,
                        Listeners &listeners, daemon::ProblemLog &log) {
  const auto code = listeners.local.OpenPassed(ZOR_PATH_MSGSVR, SOCK_STREAM, kSocketMode, passed, log);
  if (code != daemon::kExitOk) return code;
  if (UniqueFd tcp = daemon::TakePassed(passed, kStoredTcp); daemon::ListensAt(tcp.get(), settings.tcp)) {
    listeners.tcp = daemon::AdoptTcp(std::move(tcp));
  } else if (!ListenTcp(settings.tcp, listeners, log)) {
    return daemon::kExitFailure;
  }
  if (UniqueFd boards = daemon::TakePassed(passed, kStoredBoards); msgsvr::ListensAt(boards.get(), settings.boards)) {
    listeners.boards = std::move(boards);
    return daemon::kExitOk;
  }
  return ListenBoards(settings.boards, listeners, log) ? daemon::kExitOk : daemon::kExitFailure;
}

// Those of the predecessor. A TCP address that only the new settings name is opened; that it was free then, the trial
// has shown.
daemon::ExitCode TakeListeners(const msgsvr::BusSettings &settings, const msgsvr::ListenersRecord &record,
                               daemon::DescriptorSet &descriptors, Listeners &listeners, daemon::ProblemLog &log) {
  listeners.local.Adopt(descriptors.Take(record.local), descriptors.Take(record.lock), SOCK_STREAM);
  if (listeners.local.fd() < 0) {
    log.Print("the state to take over has no listening socket");
    return daemon::kExitFailure;
  }
  UniqueFd tcp = descriptors.Take(record.tcp);
  if (tcp.valid() && record.tcpSetting == settings.tcp) {
    listeners.tcp = daemon::AdoptTcp(std::move(tcp));
  } else {
    ListenTcp(settings.tcp, listeners, log);
  }
  UniqueFd boards = descriptors.Take(record.boards);
  if (boards.valid() && record.boardsSetting == settings.boards) {
    listeners.boards = std::move(boards);
  } else {
    ListenBoards(settings.boards, listeners, log);
  }
  return daemon::kExitOk;
}

std::optional<msgsvr::ServerState> StateIn(std::span<const std::byte> bytes, daemon::ProblemLog &log) {
  std::string problem;
  auto state = msgsvr::ReadState(bytes, problem);
  if (!state) log.Print("%s", problem.c_str());
  return state;
}

std::string ProblemOf(const msgsvr::ServerState &state, const msgsvr::BusSettings &settings) {
  if (std::string problem = msgsvr::ProblemOf(state); !problem.empty()) return problem;
  daemon::Holdings holdings;
  for (const msgsvr::ClientRecord &client : state.clients) {
    holdings.AddInput(client.standing.uid, client.partial.size());
    for (const msgsvr::QueuedRecord &message : client.queue) {
      holdings.AddMessage(client.standing.uid, message.bytes.size());
    }
  }
  return holdings.ProblemWith(settings.userBytes, settings.memoryBytes);
}

// Whether a server with these settings and rules can take over that state.
int Check(const msgsvr::BusSettings &settings, daemon::ProblemLog &log, std::span<const std::byte> bytes) {
  if (!access::LoadRules(log)) return daemon::kExitSettings;
  const auto state = StateIn(bytes, log);
  if (!state) return daemon::kExitState;
  if (const std::string problem = ProblemOf(*state, settings); !problem.empty()) {
    log.Print("%s", problem.c_str());
    return daemon::kExitState;
  }
  const msgsvr::ListenersRecord &listeners = state->listeners;
  if (!settings.tcp.empty() && settings.tcp != listeners.tcpSetting && !daemon::CanListenTcp(settings.tcp)) {
    log.PrintErrno("tcp = %s: cannot listen", settings.tcp.c_str());
    return daemon::kExitState;
  }
  if (!settings.boards.empty() && settings.boards != listeners.boardsSetting &&
      !msgsvr::CanListenForTunnel(settings.boards)) {
    log.PrintErrno("boards = %s: cannot listen", settings.boards.c_str());
    return daemon::kExitState;
  }
  return daemon::kExitOk;
}

// Says that clients are served from now on.
void Announce(const daemon::Start &start, msgsvr::Server &server, const Listeners &listeners, daemon::ProblemLog &log) {
  if (start.inherited) {
    start.inherited->Report(log);
    server.Confirm(*start.inherited);
    return daemon::TellReady();
  }
  daemon::SayListening(kProgram, ZOR_PATH_MSGSVR);
  if (listeners.tcp.socket.valid()) daemon::SayListening(kProgram, listeners.tcp.address.c_str());
}

int Run(const msgsvr::BusSettings &settings, daemon::ProblemLog &log, daemon::Start &start) {
  auto rules = access::LoadRules(log);
  if (!rules) return daemon::kExitSettings;
  daemon::DescriptorSet descriptors;
  std::optional<msgsvr::ServerState> state;
  std::optional<daemon::MappedState> mapped;
  std::vector<daemon::PassedDescriptor> &passed = start.passed;
  if (start.inherited) {
    descriptors = daemon::DescriptorSet::OfProcess(start.inherited->state.get());
    mapped.emplace(start.inherited->state.get());
    state = StateIn(mapped->bytes(), log);
    start.inherited->state.reset();
    if (!state) return daemon::kExitState;
  }
  daemon::ServerSignals signals;
  RaiseDescriptorLimit(settings.maxClients);
  if (!msgsvr::MakeMessageDirectory(log)) return daemon::kExitFailure;
  Listeners listeners;
  const auto code = state ? TakeListeners(settings, state->listeners, descriptors, listeners, log)
                          : Listen(settings, passed, listeners, log);
  if (code != daemon::kExitOk) return code;
  if (!state) state = msgsvr::Recovery(kProgram.name, descriptors, log).Run(passed);
  const auto journal =
      daemon::Journal::Create(kProgram.name, JournalSizeOf(settings, state ? state->clients.size() : 0));
  if (journal == nullptr) {
    log.PrintErrno("cannot start");
    return daemon::kExitFailure;
  }
  msgsvr::Bus bus(settings, *journal, daemon::FixedPath(ZOR_PATH_MSG_FILE_DIR), log);
  bus.verbose = start.verbose;
  UniqueFd crashed = daemon::TakePassed(passed, msgsvr::kStoredRecorder);
  msgsvr::StartRecorder(bus, descriptors.Take(state ? state->listeners.recorder : -1));
  bus.guard.Replace(std::move(*rules));
  msgsvr::Server server(bus, signals,
                        {listeners.local.fd(), listeners.local.lockFd(), listeners.tcp.socket.get(), settings.tcp,
                         listeners.boards.get(), settings.boards, bus.recorder.fd()},
                        start.image);
  if (!server.Watch()) {
    log.PrintErrno("cannot start");
    return daemon::kExitFailure;
  }
  if (state) server.TakeOver(*std::exchange(state, std::nullopt), descriptors);
  mapped.reset();
  descriptors = {};
  ::malloc_trim(0);  // the queues of all clients were here
  server.KeepJournal(passed);
  passed.clear();
  Announce(start, server, listeners, log);
  msgsvr::KeepRecorder(bus, std::move(crashed));
  server.Run();
  return daemon::kExitOk;
}

}  // namespace

int main(int count, char **arguments) {
  return daemon::ServerMain(kProgram, count, arguments, msgsvr::ReadSettings, Run, Check);
}
