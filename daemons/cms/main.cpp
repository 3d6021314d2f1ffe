// cms: the configuration daemon. It saves and restores the configuration, and is the only writer of the device list.
#include <zor/kiva.h>

#include <string>

#include "cms/configuration.h"
#include "cms/service.h"
#include "programs/bus_daemon.h"
#include "programs/command_line.h"
#include "programs/paths.h"
#include "programs/problem_log.h"
#include "programs/settings.h"
#include "programs/stop_signal.h"

namespace zor::cms {
namespace {

constexpr char kDefaultDirectory[] = "/var/cfg";
constexpr char kDefaultFactoryFile[] = "/etc/zor/factory.db";
// Saved configurations contain pass phrases.
constexpr mode_t kDirectoryMode = 0700;

constexpr daemon::Program kProgram = {
    "cms",
    "Saves, restores, exports and imports the configuration of the system.",
    "/etc/zor/cms.conf",
    "  directory = /var/cfg                the directory for saved configurations\n"
    "  factory_file = /etc/zor/factory.db  the factory configuration\n",
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

bool MakeDirectories(const Places &places) {
  return daemon::MakeDirectory(places.directory, kDirectoryMode) &&
         daemon::MakeDirectory(daemon::ParentOf(ZOR_PATH_KIVA_LIST));
}

int Main(int count, char **arguments) {
  const daemon::CommandLine line = daemon::ReadCommandLine(kProgram, count, arguments);
  if (line.exit) return *line.exit;
  daemon::ProblemLog problems(kProgram.name);
  Places places;
  if (!ReadPlaces(line, problems, &places)) return daemon::kExitSettings;
  const daemon::StopSignal stop;
  if (!MakeDirectories(places)) {
    problems.PrintErrno("cannot create the directories for saved configurations and the device list");
    return daemon::kExitFailure;
  }

  const Configuration configuration(places.directory, places.factoryFile);
  Service service(configuration, problems);
  if (!service.Register()) {
    problems.Print("out of memory");
    return daemon::kExitFailure;
  }
  const daemon::ExitCode joined = daemon::JoinBus(kProgram.name, problems);
  return joined == daemon::kExitOk ? daemon::ServeBus(stop, problems) : joined;
}

}  // namespace
}  // namespace zor::cms

int main(int count, char **arguments) {
  return zor::cms::Main(count, arguments);
}
