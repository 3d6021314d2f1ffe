// syslogd: the log daemon. It stores the records of the system log, replies to queries and forwards records.
#include <sys/stat.h>
#include <zor/log_wire.h>
#include <zor/msg_wire.h>
#include <zor/uv_timer.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "programs/bus_daemon.h"
#include "programs/limits.h"
#include "programs/paths.h"
#include "programs/problem_log.h"
#include "programs/server_main.h"
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
    "  language = 0                      language of queries, remote servers and copies: 0 English, 1 the second one\n"
    "  copy_to =                         the daemon that is sent a copy of each record that is kept\n",
    "print each record on standard output",
};

// Records contain user names and addresses: not every user may read them.
constexpr mode_t kUmask = 0027;

struct ServerSettings {
  std::string logFile;
  std::uint32_t maxRecords;
  std::uint32_t flushMs;
  LogService::Options service;
};

// Empty: none.
bool IsDaemonName(std::string_view name) {
  return name.size() < ZOR_MSG_NAME_SIZE &&
         std::ranges::all_of(name, [](char each) { return each > ' ' && each <= '~'; });
}

ServerSettings ReadSettings(daemon::Settings &settings) {
  const auto number = [&settings](const char *key, std::uint32_t fallback, std::uint32_t least, std::uint32_t most) {
    return static_cast<std::uint32_t>(settings.Number(key, fallback, least, most));
  };
  ServerSettings result;
  result.logFile = settings.Path("log_file", "/online/log/syslog.db");
  result.maxRecords = number("max_records", limits::syslogd::kRecords, 1, limits::syslogd::kMostRecords);
  result.flushMs =
      number("flush_seconds", limits::syslogd::kFlushSeconds, 1, limits::syslogd::kMostFlushSeconds) * 1000;
  result.service.queryDirectory = settings.Text("query_directory", "/var/syslog");
  result.service.language = number("language", 0, 0, 1);
  result.service.copyTo = settings.Text("copy_to", "");
  if (!IsDaemonName(result.service.copyTo) || result.service.copyTo == ZOR_LOG_DAEMON_NAME) {
    settings.AddMistake("copy_to must be the name of another daemon");
  }
  const std::string &directory = result.service.queryDirectory;
  if (!directory.starts_with('/') || directory.ends_with('/')) {
    settings.AddMistake("query_directory must be an absolute path without a slash at its end");
  }
  return result;
}

bool MakeDirectories(const ServerSettings &settings, daemon::ProblemLog &problems) {
  for (const std::string &path : {daemon::ParentOf(settings.logFile), settings.service.queryDirectory}) {
    if (daemon::MakeDirectory(path)) continue;
    problems.PrintErrno("%s", path.c_str());
    return false;
  }
  return true;
}

void CommitStore(void *store) {
  static_cast<LogStore *>(store)->Commit();
}

int Run(const ServerSettings &settings, daemon::ProblemLog &problems, bool verbose) {
  ::umask(kUmask);
  const daemon::StopSignal stop;
  LogStore store(settings.maxRecords, problems);
  if (!MakeDirectories(settings, problems) || !store.Open(daemon::FixedPath(settings.logFile))) {
    return daemon::kExitFailure;
  }
  Forwarder forwarder(settings.service.language, problems);
  LogService::Options options = settings.service;
  options.verbose = verbose;
  LogService service(options, store, forwarder, problems);
  if (!service.Register() || ZOR_UTIL_TimerAdd(settings.flushMs, 0, CommitStore, &store) == nullptr) {
    problems.Print("out of memory");
    return daemon::kExitFailure;
  }
  return daemon::ServeBus(ZOR_LOG_DAEMON_NAME, stop, problems);
}

}  // namespace
}  // namespace zor::syslogd

int main(int count, char **arguments) {
  using namespace zor::syslogd;  // NOLINT(google-build-using-namespace): the program's own names
  return zor::daemon::ServerMain(kProgram, count, arguments, ReadSettings, Run);
}
