// cms: the configuration daemon. It saves and restores the configuration, and is the only writer of the device list.
#include <zor/kiva.h>

#include <string>

#include "cms/configuration.h"
#include "cms/export_files.h"
#include "cms/passphrase.h"
#include "cms/service.h"
#include "programs/bus_daemon.h"
#include "programs/limits.h"
#include "programs/paths.h"
#include "programs/problem_log.h"
#include "programs/server_main.h"
#include "programs/settings.h"
#include "programs/stop_signal.h"

namespace zor::cms {
namespace {

constexpr char kDefaultDirectory[] = "/var/cfg";
constexpr char kDefaultFactoryFile[] = "/etc/zor/factory.db";
constexpr char kDefaultPassphraseFile[] = "/etc/zor/cms.passphrase";
// Beside the saved configurations, by a name that none of them has.
constexpr char kScratchFile[] = "/scratch.db";
// Saved configurations contain pass phrases.
constexpr mode_t kDirectoryMode = 0700;

constexpr daemon::Program kProgram = {
    "cms",
    "Saves, restores, exports and imports the configuration of the system.",
    "/etc/zor/cms.conf",
    "  directory = /var/cfg                the directory for saved configurations\n"
    "  factory_file = /etc/zor/factory.db  the factory configuration\n"
    "  passphrase_file = /etc/zor/cms.passphrase  the passphrase of encrypted exports\n"
    "  import_plain = without_passphrase   unencrypted imports: never, without_passphrase, always\n"
    "  key_cost = 14                       cost of an export's key, doubled by each step; 10 to 15\n",
    "has no effect",
};

struct ServerSettings {
  std::string directory;
  std::string factoryFile;
  std::string passphraseFile;
  ExportRules exports;
};

PlainImport ReadPlainImport(daemon::Settings &settings) {
  const std::string value = settings.Text("import_plain", "without_passphrase");
  if (value == "never") return PlainImport::kNever;
  if (value == "always") return PlainImport::kAlways;
  if (value != "without_passphrase") settings.AddMistake("import_plain must be never, without_passphrase or always");
  return PlainImport::kWithoutPassphrase;
}

ServerSettings ReadSettings(daemon::Settings &settings) {
  return {settings.Path("directory", kDefaultDirectory),
          settings.Path("factory_file", kDefaultFactoryFile),
          settings.Path("passphrase_file", kDefaultPassphraseFile),
          {ReadPlainImport(settings),
           static_cast<uint8_t>(settings.Number("key_cost", limits::cms::kKeyCost, limits::cms::kLeastKeyCost,
                                                limits::cms::kMostKeyCost))}};
}

bool MakeDirectories(const std::string &directory) {
  return daemon::MakeDirectory(directory, kDirectoryMode) &&
         daemon::MakeDirectory(daemon::ParentOf(ZOR_PATH_KIVA_LIST));
}

int Run(const ServerSettings &settings, daemon::ProblemLog &problems, bool) {
  const daemon::StopSignal stop;
  if (!MakeDirectories(settings.directory)) {
    problems.PrintErrno("cannot create the directories for saved configurations and the device list");
    return daemon::kExitFailure;
  }

  const PassphraseFile passphrase(settings.passphraseFile, problems);
  const ExportFiles exports(settings.directory + kScratchFile, passphrase, settings.exports);
  exports.RemoveScratch();
  const Configuration configuration(settings.directory, settings.factoryFile, exports);
  Service service(configuration, problems);
  if (!service.Register()) {
    problems.Print("out of memory");
    return daemon::kExitFailure;
  }
  return daemon::ServeBus(kProgram.name, stop, problems);
}

}  // namespace
}  // namespace zor::cms

int main(int count, char **arguments) {
  using namespace zor::cms;  // NOLINT(google-build-using-namespace): the program's own names
  return zor::daemon::ServerMain(kProgram, count, arguments, ReadSettings, Run);
}
