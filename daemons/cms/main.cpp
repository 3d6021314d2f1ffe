// The configuration daemon: it keeps what others ask to be saved, and is the only one that writes the device list.
#include <fcntl.h>
#include <zor/msg.h>
#include <zor/uv.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "cms/configuration.h"
#include "cms/service.h"
#include "common/command_line.h"
#include "common/paths.h"
#include "common/problem_log.h"
#include "common/settings.h"
#include "common/stop_signal.h"

namespace zor::cms {
namespace {

constexpr char kName[] = "cms";
constexpr char kDefaultDirectory[] = "/var/cfg";
constexpr char kDefaultFactoryFile[] = "/etc/zor/factory.db";
// Saved configurations hold pass phrases.
constexpr mode_t kDirectoryMode = 0700;

constexpr daemon::Program kProgram = {
    kName,
    "Saves, restores, exports and imports the configuration of the system.",
    "/etc/zor/cms.conf",
    "  directory = /var/cfg                where saved configurations lie\n"
    "  factory_file = /etc/zor/factory.db  the configuration that the device was delivered with\n",
    "nothing",
};

struct Places {
  std::string directory;
  std::string factoryFile;
};

bool ReadPlaces(const daemon::CommandLine &line, daemon::ProblemLog &problems, Places *places) {
  daemon::Settings settings = daemon::Settings::FromFile(line.settingsPath, line.settingsGiven);
  places->directory = settings.Text("directory", kDefaultDirectory);
  places->factoryFile = settings.Text("factory_file", kDefaultFactoryFile);
  if (!places->directory.starts_with('/')) settings.AddMistake("directory must be an absolute path");
  if (!places->factoryFile.starts_with('/')) settings.AddMistake("factory_file must be an absolute path");
  return settings.CheckAndReport(problems);
}

// A name that was not granted is not reported, but leaves no connection behind.
uint32_t Connect() {
  const uint32_t status = ZOR_MSG_Init(kName);
  if (status != ZOR_OK) return status;
  return g_stMsgCtx.socketFd < 0 ? ZOR_E_REFUSED : ZOR_OK;
}

void OnStop(UvIO *, uint32_t) {
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

bool IsBusThere() {
  return g_stMsgCtx.watcher != nullptr && (g_stMsgCtx.watcher->io.events & UV_READABLE) != 0;
}

// A server that goes away leaves a loop with nothing to do; whoever supervises this process starts it again.
void OnIdle(UvIdle *, uint32_t) {
  if (!IsBusThere()) ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

// The loop owns the watcher and the descriptor.
bool WatchStopSignal(const daemon::StopSignal &stop) {
  const int fd = ::fcntl(stop.fd(), F_DUPFD_CLOEXEC, 0);
  auto *watcher = static_cast<UvIO *>(std::calloc(1, sizeof(UvIO)));
  if (watcher == nullptr || ZOR_UV_IOInit(nullptr, watcher, fd, OnStop) != ZOR_OK) {
    std::free(watcher);
    return false;
  }
  return ZOR_UV_IOStart(watcher, UV_READABLE) == ZOR_OK;
}

// Serves until SIGTERM. Ends well only when the bus is still there.
bool Serve(const daemon::StopSignal &stop) {
  if (!WatchStopSignal(stop) || ZOR_UV_IdleStart(nullptr, OnIdle) == nullptr) return false;
  return ZOR_MSG_GetAndDispatch() == ZOR_OK && IsBusThere();
}

int Main(int count, char **arguments) {
  const daemon::CommandLine line = daemon::ReadCommandLine(kProgram, count, arguments);
  if (line.exit) return *line.exit;
  daemon::ProblemLog problems(kProgram.name);
  Places places;
  if (!ReadPlaces(line, problems, &places)) return daemon::kExitSettings;
  const daemon::StopSignal stop;
  if (!stop.valid() || !daemon::MakeDirectory(places.directory, kDirectoryMode)) {
    problems.PrintErrno("%s", stop.valid() ? places.directory.c_str() : "no descriptor for signals");
    return daemon::kExitFailure;
  }

  const Configuration configuration(places.directory, places.factoryFile);
  Service service(configuration, problems);
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  uint32_t status = service.Register();
  if (status == ZOR_OK) status = Connect();
  if (status != ZOR_OK) {
    problems.Print("no place on the bus: status 0x%x", status);
    return daemon::kExitFailure;
  }
  std::printf("%s: on the bus\n", kName);
  std::fflush(stdout);
  const bool served = Serve(stop);
  if (!served) problems.Print("the bus is gone");
  ZOR_MSG_Destroy();
  return served ? daemon::kExitOk : daemon::kExitFailure;
}

}  // namespace
}  // namespace zor::cms

int main(int count, char **arguments) {
  return zor::cms::Main(count, arguments);
}
