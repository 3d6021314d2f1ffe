// Sends frames, requests and datagrams that a hostile process would send to each server: noise, real ones with damage,
// torn streams, misplaced descriptors, paths to what is no body file. The server must live, serve an honest pair of
// clients meanwhile, hold no descriptor and not much memory longer than needed, and end with 0; built with sanitizers,
// without a report.
//
// Usage: hostile [OPTION VALUE]...
//   count 1000      frames or datagrams for each server and kind of process
//   server NAME     only that one: msgsvr, notifyserver, mlogserver, cms, syslogd
//   as KIND         only as one of these: member; restricted, a member to which rules forbid most; stranger, without a
//                   name or module
//   seed 1          of the dice
#include <zor/mlog_wire.h>
#include <zor/paths.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "hostile/assault.h"
#include "hostile/peer.h"
#include "hostile/system.h"

namespace zor::hostile {
namespace {

constexpr uint64_t kBetweenChecks = 5000;  // frames
constexpr std::size_t kMostGrowthKiB = 160 * 1024;

struct Program {
  const char *path;
  const char *socket;
};
constexpr Program kMsgsvr = {MSGSVR, ZOR_PATH_MSGSVR};
constexpr Program kNotifyserver = {NOTIFYSERVER, ZOR_PATH_NOTIFY_SERVER};
constexpr Program kMlogserver = {MLOGSERVER, ZOR_PATH_MLOG_DIR ZOR_MLOG_SERVER_NAME};

struct Target {
  const char *name;
  Service service;
  std::vector<Program> programs;  // the target is the last one
  uint64_t betweenSyncs = 0;      // frames; a daemon's queue in the message server must hold them
};

const std::array<Target, 5> kTargets = {{
    {"msgsvr", Service::kBus, {kMsgsvr}},
    {"notifyserver", Service::kNotify, {kNotifyserver}},
    {"mlogserver", Service::kLog, {kMlogserver}},
    {"cms", Service::kCms, {kMsgsvr, kNotifyserver, {CMS, ""}}, 100},
    {"syslogd", Service::kSyslog, {kMsgsvr, {SYSLOGD, ""}}, 100},
}};

struct Kind {
  const char *name;
  bool registers;
  const char *rules;
};

const std::array<Kind, 3> kKinds = {{{"member", true, ""},
                                     {"restricted", true,
                                      "mode = enforce\n"
                                      "deny = any control *\n"
                                      "deny = any subscribe * for *\n"
                                      "deny = any own mic,web,eleven*\n"
                                      "deny = any send 0x4777 to web,mic,m2\n"
                                      "deny = any send IMPORT_CFG_FILE,LOG_MSG_CLEAR to *\n"
                                      "deny = any serve /a/*\n"
                                      "deny = any post cms,syslog\n"
                                      "deny = any module 1-7\n"
                                      "deny = any publish 0x2DA08-0x2DAFF\n"
                                      "allow = any all\n"},
                                     {"stranger", false, ""}}};

struct Options {
  std::map<std::string, std::string> texts = {{"count", "1000"}, {"server", ""}, {"as", ""}, {"seed", "1"}};
  uint64_t Number(const char *name) const { return std::strtoull(texts.at(name).c_str(), nullptr, 10); }
  bool Wants(const char *name, const char *value) const { return texts.at(name).empty() || texts.at(name) == value; }
};

class Run {
 public:
  Run(const Target &target, const Kind &kind, uint64_t seed) : target_(target), dice_(seed), system_(kind.rules) {
    for (const Program &program : target.programs) system_.Start(program.path, program.socket);
    honest_ = MakeHonest(target.service, system_.root());
    assault_ = MakeAssault(target.service, kind.registers, dice_, system_.root());
  }

  bool Go(uint64_t count) {
    if (!AwaitService()) return false;
    const std::size_t descriptors = system_.OpenDescriptors();
    const std::size_t memory = system_.MemoryKiB();
    std::size_t most = memory;
    for (uint64_t sent = 0, synced = 0, checked = 0; sent < count;) {
      sent += assault_->Strike();
      sent_ = sent;
      if (target_.betweenSyncs != 0 && sent - synced >= target_.betweenSyncs) {
        synced = sent;
        honest_->Sync();
      }
      if (sent - checked < kBetweenChecks) continue;
      checked = sent;
      if (!Check("during the attack")) return false;
      most = std::max(most, system_.MemoryKiB());
    }
    assault_->Withdraw();
    if (!Check("after the attack") || !HasClosed(descriptors)) return false;
    most = std::max(most, system_.MemoryKiB());
    std::printf("%10llu sent, %5zu descriptors, %7zu to %7zu KiB", static_cast<unsigned long long>(sent_), descriptors,
                memory, most);
    if (most > memory + kMostGrowthKiB) return Problem("it takes up too much memory");
    honest_.reset();
    return system_.Stop();
  }

 private:
  // A daemon is a client of the message server first.
  bool AwaitService() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
    while (!honest_->IsServed()) {
      if (!system_.AreAlive() || std::chrono::steady_clock::now() > end) return Problem("not served before the attack");
    }
    return honest_->IsServed();
  }
  bool Check(const char *when) {
    if (!system_.AreAlive()) return Problem("a server has ended");
    if (honest_->IsServed()) return true;
    system_.AreAlive();
    return Problem((std::string("honest clients are not served ") + when).c_str());
  }
  // The server may still have to read the ends of connections.
  bool HasClosed(std::size_t descriptors) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
    while (system_.OpenDescriptors() > descriptors) {
      if (std::chrono::steady_clock::now() > end || !honest_->IsServed()) return Problem("descriptors are left open");
    }
    return true;
  }
  bool Problem(const char *what) const {
    std::fprintf(stderr, "%s: %s, %llu sent; the logs end:\n", target_.name, what,
                 static_cast<unsigned long long>(sent_));
    system_.PrintLogs();
    return false;
  }

  const Target &target_;
  Dice dice_;
  System system_;
  std::unique_ptr<Honest> honest_;
  std::unique_ptr<Assault> assault_;
  uint64_t sent_ = 0;
};

bool RunOne(const Target &target, const Kind &kind, const Options &options) {
  std::printf("%-13s as %-10s seed %llu: ", target.name, kind.name,
              static_cast<unsigned long long>(options.Number("seed")));
  std::fflush(stdout);
  const auto start = std::chrono::steady_clock::now();
  const bool good = Run(target, kind, options.Number("seed")).Go(options.Number("count"));
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  std::printf(", %.0f s: %s\n", taken.count(), good ? "no finding" : "A FINDING");
  return good;
}

int RunAll(const Options &options) {
  bool good = true;
  int runs = 0;
  for (const Target &target : kTargets) {
    if (!options.Wants("server", target.name)) continue;
    for (const Kind &kind : kKinds) {
      if (!options.Wants("as", kind.name)) continue;
      good = RunOne(target, kind, options) && good;
      ++runs;
    }
  }
  return good && runs > 0 ? 0 : 1;
}

}  // namespace
}  // namespace zor::hostile

int main(int count, char **arguments) {
  using namespace zor::hostile;  // NOLINT(google-build-using-namespace): the program's own names
  Options options;
  for (int i = 1; i + 1 < count; i += 2) {
    if (!options.texts.contains(arguments[i])) Fail("an unknown option");
    options.texts[arguments[i]] = arguments[i + 1];
  }
  return RunAll(options);
}
