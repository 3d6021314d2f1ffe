// syslogd: the log daemon. It stores the records of the system log, replies to queries and forwards records.
#include <sys/stat.h>
#include <zor/log_wire.h>
#include <zor/uv_timer.h>

#include "programs/bus_daemon.h"
#include "programs/command_line.h"
#include "programs/limits.h"
#include "programs/paths.h"
#include "programs/problem_log.h"
#include "programs/settings.h"
#include "programs/stop_signal.h"
#include "syslogd/forwarder.h"
#include "syslogd/log_service.h"
#include "syslogd/log_store.h"

namespace zor::syslogd {
namespace {

constexpr daemon::Program kProgram = {
    "syslogd",
    "Keeps the user-visible log of the system's daemons.",
    "/etc/zor/syslogd.conf",
    "  log_file = /online/log/syslog.db  the SQLite file for the records\n"
    "  max_records = 2000                maximum number of records; the oldest are deleted\n"
    "  flush_seconds = 10                maximum time before a record is written to the file\n"
    "  query_directory = /var/syslog     the only directory for query results\n"
    "  language = 0                      language of system queries and remote servers: 0 English, 1 the second one\n",
    "print each record on standard output",
};

// Records contain user names and addresses: not every user may read them.
constexpr mode_t kUmask = 0027;

struct Configuration {
  std::string logFile;
  std::uint32_t maxRecords;
  std::uint32_t flushMs;
  LogService::Options service;
};

bool Configure(const daemon::CommandLine &line, daemon::ProblemLog &problems, Configuration *configuration) {
  daemon::Settings settings = daemon::Settings::FromFile(line.settingsPath, line.settingsGiven);
  const auto number = [&settings](const char *key, std::uint32_t fallback, std::uint32_t least, std::uint32_t most) {
    return static_cast<std::uint32_t>(settings.Number(key, fallback, least, most));
  };
  configuration->logFile = settings.Text("log_file", "/online/log/syslog.db");
  configuration->maxRecords = number("max_records", limits::syslogd::kRecords, 1, limits::syslogd::kMostRecords);
  configuration->flushMs =
      number("flush_seconds", limits::syslogd::kFlushSeconds, 1, limits::syslogd::kMostFlushSeconds) * 1000;
  configuration->service.queryDirectory = settings.Text("query_directory", "/var/syslog");
  configuration->service.language = number("language", 0, 0, 1);
  if (!configuration->logFile.starts_with('/')) settings.AddMistake("log_file must be an absolute path");
  const std::string &directory = configuration->service.queryDirectory;
  if (!directory.starts_with('/') || directory.ends_with('/')) {
    settings.AddMistake("query_directory must be an absolute path without a slash at its end");
  }
  return settings.CheckAndReport(problems);
}

bool MakeDirectories(const Configuration &configuration, daemon::ProblemLog &problems) {
  for (const std::string &path : {daemon::ParentOf(configuration.logFile), configuration.service.queryDirectory}) {
    if (daemon::MakeDirectory(path)) continue;
    problems.PrintErrno("%s", path.c_str());
    return false;
  }
  return true;
}

void CommitStore(void *store) {
  static_cast<LogStore *>(store)->Commit();
}

int Main(int count, char **arguments) {
  const daemon::CommandLine line = daemon::ReadCommandLine(kProgram, count, arguments);
  if (line.exit) return *line.exit;
  daemon::ProblemLog problems(kProgram.name);
  Configuration configuration;
  if (!Configure(line, problems, &configuration)) return daemon::kExitSettings;

  ::umask(kUmask);
  const daemon::StopSignal stop;
  LogStore store(configuration.maxRecords, problems);
  if (!MakeDirectories(configuration, problems) || !store.Open(daemon::FixedPath(configuration.logFile))) {
    return daemon::kExitFailure;
  }
  Forwarder forwarder(configuration.service.language, problems);
  configuration.service.verbose = line.verbose;
  LogService service(configuration.service, store, forwarder, problems);
  if (!service.Register() || ZOR_UTIL_TimerAdd(configuration.flushMs, 0, CommitStore, &store) == nullptr) {
    problems.Print("out of memory");
    return daemon::kExitFailure;
  }
  const daemon::ExitCode joined = daemon::JoinBus(ZOR_LOG_DAEMON_NAME, problems);
  return joined == daemon::kExitOk ? daemon::ServeBus(stop, problems) : joined;
}

}  // namespace
}  // namespace zor::syslogd

int main(int count, char **arguments) {
  return zor::syslogd::Main(count, arguments);
}
