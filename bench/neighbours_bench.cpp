// The round trips of two honest daemons beside clients of the message server that do what they should not, and beside
// bare processes that burn the same processor time. Usage: neighbours_bench MSGSVR
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zor/control_wire.h>
#include <zor/msg.h>
#include <zor/platform/file.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "echo_provider.h"
#include "harness.h"

namespace {

using namespace zor::bench;

constexpr std::uint32_t kEcho = 0x4001;
constexpr std::uint32_t kNoise = 0x4002;
constexpr std::uint32_t kEvent = 0x2DA05;
constexpr std::size_t kCalls = 3000;
constexpr int kIdle = 500;
constexpr int kMonitors = 10;

// Frames as the library sends them, from a process that need not behave like one of its daemons.
class Member {
 public:
  explicit Member(const std::string &name) : fd_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ZOR_UTIL_FixedPath("/var/msgsvr", address.sun_path, sizeof address.sun_path);
    Require(::connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0, "a member connects");
    ZOR_MSG_HEAD head = {};
    head.type = ZOR_MSG_REGISTER_APP;
    std::snprintf(head.source, sizeof head.source, "%.11s", name.c_str());
    Send(&head, sizeof head);
    std::array<char, 512> reply;
    Require(::read(fd_, reply.data(), reply.size()) > 0, "a member gets its name");
  }

  void Ask(std::uint32_t type, std::uint32_t data, const void *body, std::size_t length) const {
    ZOR_MSG_HEAD head = {};
    head.type = type;
    head.data = data;
    head.bodyLength = static_cast<std::uint32_t>(length);
    Send(&head, sizeof head);
    if (length > 0) Send(body, length);
  }
  // Sends without end, many messages with each write, and reads what comes back.
  [[noreturn]] void Flood(std::uint32_t type, const char *to) const {
    std::array<ZOR_MSG_HEAD, 64> frames = {};
    for (ZOR_MSG_HEAD &frame : frames) {
      frame.type = type;
      std::snprintf(frame.destination, sizeof frame.destination, "%.11s", to);
    }
    std::array<char, 65536> room;
    for (;;) {
      Send(frames.data(), sizeof frames);
      while (::recv(fd_, room.data(), room.size(), MSG_DONTWAIT) > 0) continue;
    }
  }
  [[noreturn]] void ReadAll() const {
    std::array<char, 65536> room;
    while (::read(fd_, room.data(), room.size()) > 0) continue;
    for (;;) ::pause();
  }

 private:
  void Send(const void *bytes, std::size_t size) const {
    for (std::size_t sent = 0; sent < size;) {
      const ssize_t count = ::write(fd_, static_cast<const char *>(bytes) + sent, size - sent);
      Require(count > 0, "a member sends");
      sent += static_cast<std::size_t>(count);
    }
  }

  int fd_;
};

void BeFrozen() {
  const Member member("frozen");
  member.Ask(ZOR_MSG_SUBSCRIBE_EVENT, kEvent, nullptr, 0);
  for (;;) ::pause();
}

void BeIdle() {
  std::vector<Member> members;
  for (int i = 0; i < kIdle; ++i) members.emplace_back("idle" + std::to_string(i));
  for (;;) ::pause();
}

void Monitor(int number) {
  const Member member("monitor" + std::to_string(number));
  const ZOR_CONTROL_FILTER all = {};
  member.Ask(ZOR_MSG_CONTROL_MONITOR, 0, &all, sizeof all);
  if (number > 0) member.ReadAll();
  for (;;) ::pause();
}

struct Load {
  const char *name;
  std::vector<std::function<void()>> members;
};

std::vector<Load> Loads() {
  std::vector<Load> loads = {
      {"a flooder to nobody", {[] { Member("flooder").Flood(kNoise, "nobody"); }}},
      {"a flooder to a third", {[] { Member("third").ReadAll(); }, [] { Member("flooder").Flood(kNoise, "third"); }}},
      {"a publisher to a frozen subscriber", {BeFrozen, [] { Member("publisher").Flood(kEvent, ""); }}},
      {"500 idle clients", {BeIdle}},
      {"ten monitors, one stopped", {}},
  };
  for (int i = 0; i < kMonitors; ++i) loads.back().members.emplace_back([i] { Monitor(i); });
  return loads;
}

void Call() {
  static ZOR_MSG_HEAD *const request = [] {
    void *body = ZOR_MSG_GetMsgBlock(0);
    ZOR_MSG_SetMsgProfile(body, "provider", kEcho, 0);
    return ZOR_MSG_GetMsgHead(body);
  }();
  ZOR_MSG_HEAD *reply = nullptr;
  Require(ZOR_MSG_SendAndRecv(request, &reply, 10000) == ZOR_OK, "a request gets its reply");
  std::free(reply);
}

// Nanoseconds of processor time.
double Used(pid_t process) {
  clockid_t clock;
  timespec used = {};
  Require(::clock_getcpuclockid(process, &clock) == 0 && ::clock_gettime(clock, &used) == 0, "a process's time");
  return static_cast<double>(used.tv_sec) * 1e9 + static_cast<double>(used.tv_nsec);
}

// Burns that part of the time, a little at once.
void Burn(double share) {
  constexpr double kSlice = 1e6;
  timespec used = {};
  for (;;) {
    const double start = Now();
    const double begun = Used(0);
    while (Used(0) - begun < kSlice) continue;
    const double rest = kSlice / share - (Now() - start);
    if (rest <= 0) continue;
    used.tv_nsec = static_cast<long>(std::min(rest, 9e8));
    ::nanosleep(&used, nullptr);
  }
}

using Processes = std::vector<std::unique_ptr<Process>>;

// The p99 beside the load, and the part of the time that it has used, in its processes and for it in the server.
struct Result {
  double p99;
  double share;
};
Result Beside(const Load &load, const System &system, double serverPerCall) {
  Processes processes;
  for (const auto &member : load.members) {
    processes.push_back(std::make_unique<Process>(member));
    ::usleep(50'000);  // in their order
  }
  ::usleep(200'000);
  const auto used = [&] {
    double sum = Used(system.server());
    for (const auto &process : processes) sum += Used(process->pid());
    return sum;
  };
  const double before = used(), start = Now();
  const Cost cost = TimeEach(kCalls, Call);
  const double calls = static_cast<double>(kCalls) * 1.1;  // with those to warm up
  return {cost.p99, std::max(0.0, (used() - before - calls * serverPerCall) / (Now() - start))};
}

double BesideBurners(std::size_t count, double share) {
  Processes processes;
  for (std::size_t i = 0; i < count && share > 0.001; ++i) {
    processes.push_back(std::make_unique<Process>([&] { Burn(share / static_cast<double>(count)); }));
  }
  ::usleep(200'000);
  return TimeEach(kCalls, Call).p99;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: neighbours_bench MSGSVR\n");
    return 2;
  }
  PinToOneProcessor();
  const System system(argv[1], "max_clients = 1000\nuser_clients = 1000\n");
  const Process provider([] { ProvideEcho("provider", kEcho); });
  Require(ZOR_MSG_Init("consumer") == ZOR_OK, "the consumer joins the bus");
  while (ZOR_MSG_GetNumOfProcesses("provider") == 0) ::usleep(1000);
  TimeEach(kCalls, Call);
  const double before = Used(system.server());
  const double alone = TimeEach(kCalls, Call).p99;
  const double serverPerCall = (Used(system.server()) - before) / (static_cast<double>(kCalls) * 1.1);

  std::printf("round trips beside others, p99 in us (median of %d rounds); alone %.1f\n", kRounds, alone / 1e3);
  std::printf("%-36s %8s %8s %12s %8s\n", "beside", "p99", "load", "burners' p99", "ratio");
  for (const Load &load : Loads()) {
    std::vector<double> p99, share, burners, ratio;
    for (int round = 0; round < kRounds; ++round) {
      const Result result = Beside(load, system, serverPerCall);
      p99.push_back(result.p99);
      share.push_back(result.share);
      burners.push_back(BesideBurners(load.members.size(), result.share));
      ratio.push_back(result.p99 / burners.back());
    }
    std::printf("%-36s %8.1f %7.0f%% %12.1f %8.2f\n", load.name, Median(p99) / 1e3, Median(share) * 100,
                Median(burners) / 1e3, Median(ratio));
  }
  return 0;
}
