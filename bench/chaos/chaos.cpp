// Members that send all that can be sent, while they and their server are killed, frozen and replaced; afterwards the
// account must balance to the message.
//
// Usage: chaos MSGSVR [OPTION VALUE]...
//   seconds 10       how long, unless the messages have been used up before
//   messages 1000000 the most that are sent
//   workers 6        members that send and receive
//   clients 0        further members that send a request every 50 ms; one does so every millisecond
//   every 100        milliseconds between two blows
//   blows kf         what happens, each as often as it is written: k a member is killed, f frozen for a moment,
//                    h the server is handed over, c the server is killed
//   burst 5          messages of a worker in a millisecond
//   queue 128        KiB that the server queues for a client; a frozen one fills that
//   keeper 0         1: the server runs under its keeper
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "chaos/account.h"
#include "chaos/member.h"
#include "harness.h"

namespace zor::bench {
namespace {

namespace fs = std::filesystem;

struct Options {
  std::string blows = "kf";
  std::map<std::string, uint32_t> numbers = {{"seconds", 10}, {"messages", 1000000}, {"workers", 6}, {"clients", 0},
                                             {"every", 100},  {"burst", 5},          {"queue", 128}, {"keeper", 0}};
  uint32_t operator[](const char *name) const { return numbers.at(name); }
};

Options ReadOptions(int count, char **arguments) {
  Options options;
  for (int i = 2; i + 1 < count; i += 2) {
    const std::string name = arguments[i];
    if (name == "blows") {
      options.blows = arguments[i + 1];
    } else {
      Require(options.numbers.contains(name), "an option that is known");
      options.numbers[name] = static_cast<uint32_t>(std::strtoul(arguments[i + 1], nullptr, 10));
    }
  }
  Require(count >= 2 && options["workers"] >= 4 && options["workers"] <= kMostWorkers, "MSGSVR and 4 to 32 workers");
  return options;
}

constexpr int kStandstillLooks = 100;  // 5 s or more, 50 ms between them; a stall of the machine counts once

void Pause(uint32_t ms) {
  ::usleep(ms * 1000);
}

// The message server in a system of its own, with its log in a file.
class Server {
 public:
  Server(std::string program, bool kept, uint32_t queue) : program_(std::move(program)), kept_(kept) {
    const char *directory = std::getenv("TMPDIR");
    root_ = std::string(directory == nullptr ? "/tmp" : directory) + "/zor-chaos.XXXXXX";
    Require(::mkdtemp(root_.data()) != nullptr, "mkdtemp");
    ::setenv("ZOR_ROOT", root_.c_str(), 1);
    for (const char *path : {"/etc/zor", "/var"}) fs::create_directories(root_ + path);
    std::ofstream(root_ + "/etc/zor/msgsvr.conf") << "queue_bytes = " << queue * 1024 << "\n";
    Start();
    while (!fs::exists(root_ + "/var/msgsvr")) {
      Require(IsAlive(), "the message server starts");
      Pause(1);
    }
  }
  ~Server() {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
  }
  Server(const Server &) = delete;
  Server &operator=(const Server &) = delete;

  void HandOver() {
    ::kill(ServerPid(), SIGHUP);
    ++handOvers;
  }
  void Kill() {
    ::kill(ServerPid(), SIGKILL);
    ++kills;
    if (kept_) return;
    ::waitpid(pid_, nullptr, 0);
    Start();
  }
  void Stop() {
    ::kill(pid_, SIGTERM);
    int status = 0;
    Require(::waitpid(pid_, &status, 0) == pid_ && WIFEXITED(status) && WEXITSTATUS(status) == 0,
            "the message server ends well");
  }
  bool IsAlive() { return ::waitpid(pid_, nullptr, WNOHANG) == 0; }
  std::string log() const { return root_ + "/log"; }
  std::size_t BodyFiles() const {
    const fs::directory_iterator files(root_ + "/var/run/msg");
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
  }

  // When the files have become so old that no message under way can be about them.
  std::size_t BodyFilesAfterSweep() {
    for (const auto &file : fs::directory_iterator(root_ + "/var/run/msg")) {
      fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(1));
    }
    Start();
    for (int waited = 0; BodyFiles() > 0 && waited < 6000; ++waited) Pause(10);
    const std::size_t left = BodyFiles();
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    return left;
  }

  uint32_t handOvers = 0;
  uint32_t kills = 0;

 private:
  void Start() {
    pid_ = ::fork();
    Require(pid_ >= 0, "fork");
    if (pid_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGTERM);
      ::dup2(::open(log().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600), 2);
      ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), 1);
      ::execl(program_.c_str(), program_.c_str(), kept_ ? "--keeper" : nullptr, nullptr);
      ::_exit(127);
    }
  }
  // The keeper's child, or the server itself.
  pid_t ServerPid() const {
    if (!kept_) return pid_;
    pid_t child = 0;
    while (child == 0) {
      std::ifstream children("/proc/" + std::to_string(pid_) + "/task/" + std::to_string(pid_) + "/children");
      if (!(children >> child)) Pause(1);
    }
    return child;
  }

  std::string program_;
  bool kept_;
  std::string root_;
  pid_t pid_ = -1;
};

class Run {
 public:
  Run(const Options &options, const char *program)
      : options_(options),
        server_(program, options["keeper"] != 0, options["queue"]),
        account_(*Account::Create(options["workers"], options["messages"])),
        provider_([] { RunProvider(); }),
        workers_(options["workers"]) {
    for (uint32_t i = 0; i < workers_.size(); ++i) StartWorker(i);
    requesters_.emplace_back(std::make_unique<Process>([this] { RunRequester(account_, 0, 1); }));
    for (uint32_t i = 1; i <= options["clients"]; ++i) {
      requesters_.emplace_back(std::make_unique<Process>([this, i] { RunRequester(account_, i, 50); }));
    }
  }

  bool Go() {
    const double start = Now();
    const double end = start + options_["seconds"] * 1e9;
    while (Now() < end && !IsUsedUp()) {
      Pause(options_["every"]);
      Thaw(false);
      if (!options_.blows.empty()) Strike(options_.blows[random_() % options_.blows.size()]);
    }
    const double seconds = (Now() - start) / 1e9;
    Thaw(true);
    account_.quiet = true;
    AwaitStandstill();
    return Judge(seconds);
  }

 private:
  void StartWorker(uint32_t index) {
    workers_[index] = std::make_unique<Process>([this, index] { RunWorker(account_, index, options_["burst"]); });
  }
  bool IsUsedUp() const {
    uint64_t begun = 0;
    for (uint32_t i = 0; i < account_.workers; ++i) begun += account_.worker[i].begun;
    return begun >= options_["messages"];
  }

  void Strike(char blow) {
    const auto victim = static_cast<uint32_t>(random_() % workers_.size());
    switch (blow) {
      case 'k':
        KillWorker(victim);
        StartWorker(victim);
        break;
      case 'f':
        ::kill(workers_[victim]->pid(), SIGSTOP);
        frozen_[victim] = Now() + 1e6 * static_cast<double>(random_() % 1000);
        ++freezes_;
        break;
      case 'h':
        server_.HandOver();
        break;
      case 'c':
        server_.Kill();
        break;
      default:
        Require(false, "blows of the kinds k, f, h and c");
    }
  }
  void KillWorker(uint32_t index) {
    workers_[index].reset();
    frozen_.erase(index);
    ++account_.worker[index].deaths;
  }
  void Thaw(bool all) {
    for (auto each = frozen_.begin(); each != frozen_.end();) {
      if (!all && each->second > Now()) {
        ++each;
        continue;
      }
      ::kill(workers_[each->first]->pid(), SIGCONT);
      each = frozen_.erase(each);
    }
  }

  // Until all that was sent has come to something, or nothing has changed for long.
  void AwaitStandstill() const {
    uint64_t before = UINT64_MAX;
    for (int still = 0; still < kStandstillLooks; ++still) {
      const uint64_t silent = CountSilent(account_);
      if (silent == 0) return;
      if (std::exchange(before, silent) != silent) still = 0;
      Pause(50);
    }
  }

  bool Judge(double seconds) {
    requesters_.clear();
    // What is left to be said about a member is said when it ends.
    for (uint32_t i = 0; i < workers_.size(); ++i) workers_[i].reset();
    Pause(200);
    const bool alive = server_.IsAlive();
    if (alive) server_.Stop();
    const std::size_t files = server_.BodyFiles();
    const std::size_t filesKept = server_.BodyFilesAfterSweep();
    const bool even = Balance(account_, ReadLog(server_.log()));
    std::printf("%-44s %10zu\n%-44s %10zu\n%-44s %10u\n%-44s %10u\n%-44s %10u\n", "body files of killed members", files,
                "body files that the next sweep leaves", filesKept, "freezes", freezes_, "hand-overs",
                server_.handOvers, "kills of the server", server_.kills);
    std::printf("%-44s %10llu\n%-44s %10llu\n%-44s %10.1f\n%-44s %10.1f\n", "round trips",
                static_cast<unsigned long long>(account_.roundTrips), "requests that failed",
                static_cast<unsigned long long>(account_.failedRequests), "longest round trip, ms",
                static_cast<double>(account_.longestRoundTrip) / 1e6, "seconds", seconds);
    // A server that has crashed does not know any more whose files are in the sockets; the sweep does.
    const bool filesAccounted = files <= Deaths(account_) || server_.kills > 0;
    const bool good = even && filesAccounted && filesKept == 0 && alive;
    std::printf("%s\n", good ? "the account balances" : "THE ACCOUNT DOES NOT BALANCE");
    if (!good && std::getenv("CHAOS_LOG") != nullptr) {
      fs::copy_file(server_.log(), std::getenv("CHAOS_LOG"), fs::copy_options::overwrite_existing);
    }
    return good;
  }

  const Options &options_;
  Server server_;
  Account &account_;
  Process provider_;
  std::vector<std::unique_ptr<Process>> workers_;
  std::vector<std::unique_ptr<Process>> requesters_;
  std::map<uint32_t, double> frozen_;  // until when
  uint32_t freezes_ = 0;
  std::mt19937 random_{std::random_device()()};
};

}  // namespace
}  // namespace zor::bench

int main(int count, char **arguments) {
  using namespace zor::bench;  // NOLINT(google-build-using-namespace): the program's own names
  const Options options = ReadOptions(count, arguments);
  return Run(options, arguments[1]).Go() ? 0 : 1;
}
