#include "hostile/system.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "hostile/peer.h"

namespace zor::hostile {
namespace {

namespace fs = std::filesystem;

constexpr int kPauseMs = 10;

// The sanitizer keeps freed memory for a while, by default more than the servers may take up. Its report must end with
// what was found, not with a legend: the last lines are often all that is kept.
void SetUpSanitizer() {
  const char *options = std::getenv("ASAN_OPTIONS");
  const std::string all = std::string(options == nullptr ? "" : options) + ":quarantine_size_mb=16:print_legend=0";
  ::setenv("ASAN_OPTIONS", all.c_str(), 1);
}

std::string ContentOf(const std::string &path) {
  std::stringstream content;
  content << std::ifstream(path).rdbuf();
  return content.str();
}

bool Listens(const std::string &path) {
  return Peer(path).open() || DatagramSocket("", path).valid();
}

void PrintEndOf(const std::string &log) {
  constexpr std::size_t kMost = 6000;
  std::fprintf(stderr, "%s\n", (log.size() > kMost ? log.substr(log.size() - kMost) : log).c_str());
}

}  // namespace

System::System(const std::string &rules) {
  const char *directory = std::getenv("TMPDIR");
  root_ = std::string(directory == nullptr ? "/tmp" : directory) + "/zor-hostile.XXXXXX";
  if (::mkdtemp(root_.data()) == nullptr) Fail("no directory");
  ::setenv("ZOR_ROOT", root_.c_str(), 1);
  SetUpSanitizer();
  for (const char *path :
       {"/etc/zor/access.d", "/var/run/msg", "/var/cfg", "/var/syslog", "/var/mlog", "/online/log"}) {
    fs::create_directories(root_ + path);
  }
  std::ofstream(root_ + "/etc/zor/cms.conf") << "key_cost = 10\nimport_plain = always\n";
  std::ofstream(root_ + "/etc/zor/cms.passphrase") << "correct horse battery staple\n";
  ::chmod((root_ + "/etc/zor/cms.passphrase").c_str(), 0600);
  if (!rules.empty()) std::ofstream(root_ + "/etc/zor/access.d/50-hostile.conf") << rules;
  OnFailure([this] {
    PrintLogs();
    std::error_code ignored;
    fs::remove_all(root_, ignored);
  });
  // What requests can name.
  for (const char *path : {"/var/cfg/", "/var/syslog/"}) {
    ::mkfifo((root_ + path + "fifo").c_str(), 0600);
    fs::create_symlink("/dev/zero", root_ + path + "zero");
    fs::create_symlink("/etc/passwd", root_ + path + "link");
  }
  std::ofstream(root_ + "/var/cfg/noise.db") << "SQLite format 3" << std::string(5000, '\x7f');
}

System::~System() {
  for (const Server &server : servers_) {
    ::kill(server.pid, SIGKILL);
    ::waitpid(server.pid, nullptr, 0);
  }
  OnFailure({});
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

void System::Start(const std::string &program, const std::string &socket) {
  const std::string name = fs::path(program).filename().string();
  Server server = {name, -1, root_ + "/" + name + ".log"};
  server.pid = ::fork();
  if (server.pid < 0) Fail("no process");
  if (server.pid == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(::open(server.log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600), 2);
    ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), 1);
    ::execl(program.c_str(), program.c_str(), nullptr);
    ::_exit(127);
  }
  servers_.push_back(server);
  for (int waited = 0; !socket.empty() && !Listens(root_ + socket); waited += kPauseMs) {
    if (waited > kPatienceMs || !AreAlive()) Fail("a server does not start");
    ::usleep(kPauseMs * 1000);
  }
}

bool System::AreAlive() {
  for (const Server &server : servers_) {
    siginfo_t ended = {};
    if (::waitid(P_PID, static_cast<id_t>(server.pid), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 && ended.si_pid == 0) {
      continue;
    }
    std::fprintf(stderr, "%s has ended\n", server.name.c_str());
    PrintEndOf(ContentOf(server.log));
    return false;
  }
  return true;
}

void System::PrintLogs() const {
  for (const Server &server : servers_) PrintEndOf(ContentOf(server.log));
}

bool System::Stop() {
  bool good = true;
  for (; !servers_.empty(); servers_.pop_back()) {
    const Server &server = servers_.back();
    ::kill(server.pid, SIGTERM);
    int status = 0;
    for (int waited = 0; ::waitpid(server.pid, &status, WNOHANG) == 0; waited += kPauseMs) {
      if (waited > kPatienceMs) {
        std::fprintf(stderr, "%s does not end\n", server.name.c_str());
        return false;
      }
      ::usleep(kPauseMs * 1000);
    }
    good = Judge(server, status) && good;
  }
  return good;
}

bool System::Judge(const Server &server, int status) const {
  const std::string log = ContentOf(server.log);
  const bool endedWell = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  const bool hasReport = log.find("Sanitizer") != std::string::npos || log.find("runtime error:") != std::string::npos;
  if (endedWell && !hasReport) return true;
  std::fprintf(stderr, "%s: wait status 0x%x%s\n", server.name.c_str(), static_cast<unsigned>(status),
               hasReport ? ", a sanitizer's report" : "");
  PrintEndOf(log);
  return false;
}

std::size_t System::OpenDescriptors() const {
  const fs::directory_iterator entries("/proc/" + std::to_string(servers_.back().pid) + "/fd");
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

std::size_t System::MemoryKiB() const {
  std::ifstream status("/proc/" + std::to_string(servers_.back().pid) + "/status");
  std::size_t kib = 0;
  for (std::string word; status >> word;) {
    if (word == "VmRSS:") status >> kib;
  }
  return kib;
}

}  // namespace zor::hostile
