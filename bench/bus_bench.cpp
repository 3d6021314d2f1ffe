// Requests and one-way messages through the message server, beside a bare relay.
// Usage: bus_bench MSGSVR [BYTES...]; with sizes, only requests of these; with "recorder", only what that costs
#include <sys/stat.h>
#include <unistd.h>
#include <zor/control_wire.h>
#include <zor/msg.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "bare_relay.h"
#include "echo_provider.h"
#include "harness.h"

namespace {

using namespace zor::bench;

constexpr std::uint32_t kEcho = 0x4001;
constexpr std::uint32_t kCount = 0x4002;
constexpr std::uint32_t kAsk = 0x4003;
constexpr std::uint32_t kTimeoutMs = 10000;

void Ignore(ZOR_MSG_HEAD *) {}

void Provide(const char *name) {
  Require(ZOR_MSG_Init(name) == ZOR_OK, "the provider joins the bus");
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  ZOR_MSG_RegSyncMsgProc(kEcho, Echo, 0, nullptr);
  ZOR_MSG_RegMsgProc(kCount, Ignore, 0, nullptr);
  ZOR_MSG_RegSyncMsgProc(kAsk, Echo, 0, nullptr);
  ZOR_MSG_GetAndDispatch();
}

// A request that can be sent again and again, as the bare relay's frame can.
class Request {
 public:
  Request(std::uint32_t type, const std::vector<char> &body, const char *to = "provider")
      : body_(ZOR_MSG_GetMsgBlock(static_cast<std::uint32_t>(body.size()))), length_(body.size()) {
    Require(body_ != nullptr, "a message block");
    if (!body.empty()) std::memcpy(body_, body.data(), body.size());
    ZOR_MSG_SetMsgProfile(body_, to, type, static_cast<std::uint32_t>(body.size()));
  }
  Request(const Request &) = delete;
  Request &operator=(const Request &) = delete;
  ~Request() { std::free(ZOR_MSG_GetMsgHead(body_)); }

  void Call() {
    ZOR_MSG_HEAD *reply = nullptr;
    Require(ZOR_MSG_SendAndRecv(ZOR_MSG_GetMsgHead(body_), &reply, kTimeoutMs) == ZOR_OK, "a request gets its reply");
    Require(reply->bodyLength == length_, "the reply is as long as the request");
    std::free(reply);
  }

 private:
  void *body_;
  std::size_t length_;
};

void CompareRequests(std::size_t bodyLength, const System &system) {
  const std::size_t count = bodyLength > ZOR_MSG_INLINE_BODY_MAX ? 600 : 4000;
  Request request(kEcho, std::vector<char>(bodyLength, 'x'));
  BareRelay bare(bodyLength, ZOR_MSG_INLINE_BODY_MAX, system.root() + "/var/run/msg");
  std::vector<double> ours, p50, p99, ratio, ratio50, ratio99;
  for (int round = 0; round < kRounds; ++round) {
    const Cost theirs = TimeEach(count, [&] { bare.Call(); });
    const Cost mine = TimeEach(count, [&] { request.Call(); });
    ours.push_back(mine.mean);
    p50.push_back(mine.p50);
    p99.push_back(mine.p99);
    ratio.push_back(mine.mean / theirs.mean);
    ratio50.push_back(mine.p50 / theirs.p50);
    ratio99.push_back(mine.p99 / theirs.p99);
  }
  std::printf("%-10zu %10.0f %9.1f %9.1f %8.2f %8.2f %8.2f\n", bodyLength, 1e9 / Median(ours), Median(p50) / 1e3,
              Median(p99) / 1e3, Median(ratio), Median(ratio50), Median(ratio99));
}

// Of the server's user, beside another one, for whom long bodies are copied, each way.
void CompareUsers(std::size_t bodyLength) {
  constexpr std::size_t kCalls = 600;
  const std::vector<char> body(bodyLength, 'x');
  Request same(kEcho, body), other(kEcho, body, "stranger");
  std::vector<double> p50, added, ratio50;
  for (int round = 0; round < kRounds; ++round) {
    const Cost theirs = TimeEach(kCalls, [&] { other.Call(); });
    const Cost ours = TimeEach(kCalls, [&] { same.Call(); });
    p50.push_back(theirs.p50);
    added.push_back(theirs.p50 - ours.p50);
    ratio50.push_back(theirs.p50 / ours.p50);
  }
  std::printf("%-10zu %20.1f %9.1f %17.2f\n", bodyLength, Median(p50) / 1e3, Median(added) / 1e3, Median(ratio50));
}

// Ends at once where it cannot become another user.
void ProvideAsStranger() {
  constexpr uid_t kStranger = 65534;
  if (::setresuid(kStranger, kStranger, kStranger) == 0) Provide("stranger");
}

void CompareUsers() {
  if (::geteuid() != 0) return;
  while (ZOR_MSG_GetNumOfProcesses("stranger") == 0) ::usleep(1000);
  std::printf("\nrequests to another user, beside one's own\n%-10s %20s %9s %17s\n", "body", "p50 us", "added us",
              "p50");
  for (const std::size_t length : {64, 16 << 10, 256 << 10}) CompareUsers(length);
}

void CompareOneWay(std::size_t bodyLength) {
  constexpr std::size_t kMessages = 20000;
  const std::vector<char> body(bodyLength, 'x');
  Request last(kAsk, {});
  BareStream bare(bodyLength);
  std::vector<double> ours, ratio;
  for (int round = 0; round < kRounds; ++round) {
    const double theirs = TimeAll(1, [&] { bare.Send(kMessages); });
    const double mine = TimeAll(1, [&] {
      for (std::size_t i = 1; i < kMessages; ++i) {
        Require(ZOR_MSG_SendMsgDataWithData("provider", kCount, body.data(), static_cast<std::uint32_t>(bodyLength),
                                            0) == ZOR_OK,
                "a one-way send");
      }
      last.Call();
    });
    ours.push_back(mine / kMessages);
    ratio.push_back(mine / theirs);
  }
  std::printf("%-10zu %10.0f %28s %8.2f\n", bodyLength, 1e9 / Median(ours), "", Median(ratio));
}

// The last one allows what is asked.
std::string ManyRules() {
  constexpr int kRules = 100;
  std::string text;
  for (int i = 1; i < kRules; ++i) {
    text += i % 2 == 0 ? "deny = user:" + std::to_string(100000 + i) + " send 0x4001 to provider\n"
                       : "deny = any send 0x6000-0x" + std::to_string(6000 + i) + " to w" + std::to_string(i) + "*\n";
  }
  return text + "allow = any all\n";
}

// A control request without a body that the server must grant.
void Control(std::uint32_t type) {
  void *body = ZOR_MSG_GetMsgBlock(0);
  Require(body != nullptr, "a message block");
  ZOR_MSG_SetMsgProfile(body, "", type, 0);
  ZOR_MSG_HEAD *reply = nullptr;
  Require(ZOR_MSG_SendAndRecv(ZOR_MSG_GetMsgHead(body), &reply, kTimeoutMs) == ZOR_OK, "the server replies");
  Require(reply->data == ZOR_CONTROL_OK, "the server does what is asked");
  std::free(reply);
  std::free(ZOR_MSG_GetMsgHead(body));
}

void SetRules(const System &system, const std::string &rules) {
  const std::string directory = system.root() + "/etc/zor/access.d";
  std::filesystem::create_directories(directory);
  std::ofstream(directory + "/50.conf") << rules;
  Control(ZOR_MSG_CONTROL_ACCESS_RELOAD);
}

// The same round trip in the same server, in turn with and without rules.
void CompareRules(const System &system) {
  constexpr std::size_t kTrips = 4000;
  Request request(kEcho, std::vector<char>(64, 'x'));
  std::vector<double> without, with, ratio;
  for (int round = 0; round < kRounds; ++round) {
    SetRules(system, "");
    without.push_back(TimeEach(kTrips, [&] { request.Call(); }).p50);
    SetRules(system, ManyRules());
    with.push_back(TimeEach(kTrips, [&] { request.Call(); }).p50);
    ratio.push_back(with.back() / without.back());
  }
  SetRules(system, "");
  std::printf("\nrules of access, 64 bytes: median round trip %.1f us without, %.1f us with 100, ratio %.3f\n",
              Median(without) / 1e3, Median(with) / 1e3, Median(ratio));
}

// The server replaces itself, with its clients, by one that records so many frames.
void SetRecorder(const System &system, const char *frames) {
  std::ofstream(system.root() + "/msgsvr.conf") << "recorder_frames = " << frames << "\n";
  Control(ZOR_MSG_CONTROL_RESTART);
}

// The same round trip, in turn with the flight recorder and without, in the other order every other time.
void CompareRecorder(const System &system) {
  constexpr int kTurns = 40;
  constexpr std::size_t kTrips = 4000;
  Request request(kEcho, std::vector<char>(64, 'x'));
  std::vector<double> off, on, ratio;
  for (int turn = 0; turn < kTurns; ++turn) {
    for (const bool records : {turn % 2 == 0, turn % 2 != 0}) {
      SetRecorder(system, records ? "4096" : "0");
      (records ? on : off).push_back(TimeEach(kTrips, [&] { request.Call(); }).p50);
    }
    ratio.push_back(on.back() / off.back());
  }
  std::printf("\nflight recorder, 64 bytes: median round trip %.2f us without, %.2f us with it, ratio %.3f\n",
              Median(off) / 1e3, Median(on) / 1e3, Median(ratio));
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: bus_bench MSGSVR [BYTES...]\n");
    return 2;
  }
  PinToOneProcessor();
  const System system(argv[1]);
  ::chmod(system.root().c_str(), 0711);  // another user joins too
  const Process stranger(ProvideAsStranger);
  const Process provider([] { Provide("provider"); });
  Require(ZOR_MSG_Init("consumer") == ZOR_OK, "the consumer joins the bus");
  while (ZOR_MSG_GetNumOfProcesses("provider") == 0) ::usleep(1000);

  if (argc > 2 && std::string_view(argv[2]) == "recorder") {
    CompareRecorder(system);
    return 0;
  }

  std::printf("requests, beside a bare relay (median of %d rounds)\n", kRounds);
  std::printf("%-10s %10s %9s %9s %8s %8s %8s\n", "body", "calls/s", "p50 us", "p99 us", "ratio", "p50", "p99");
  for (int i = 2; i < argc; ++i) CompareRequests(std::strtoul(argv[i], nullptr, 10), system);
  if (argc > 2) return 0;
  for (const std::size_t length : {0, 64, 1024, 2048, 16 << 10, 256 << 10}) CompareRequests(length, system);
  CompareUsers();
  std::printf("\none-way messages\n%-10s %10s %28s %8s\n", "body", "msgs/s", "", "ratio");
  for (const std::size_t length : {0, 64, 1024}) CompareOneWay(length);
  CompareRules(system);
  CompareRecorder(system);
  return 0;
}
