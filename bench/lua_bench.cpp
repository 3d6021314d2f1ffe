// Round trips between two scripts in Lua, beside the same between two daemons in C, in turn through one server.
// Usage: LUA_CPATH=... lua_bench MSGSVR LUA
#include <unistd.h>
#include <zor/msg.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "echo_provider.h"
#include "harness.h"

namespace {

using namespace zor::bench;

constexpr std::uint32_t kEcho = 0x6001;
constexpr std::uint32_t kTimeoutMs = 10000;
constexpr int kTrips = 4000;

constexpr char kProvider[] =
    "local bus = require('zor').open('luaprovider') "
    "bus:serve(0x6001, function(request) return request.word, request.body end) bus:run()";

// Says when it begins and ends.
constexpr char kConsumer[] =
    "local bus = require('zor').open('luaconsumer') local options = {payload = ('x'):rep(64), timeout = 10} "
    "local function trips(count) for _ = 1, count do assert(bus:call('luaprovider', 0x6001, options)) end end "
    "trips(400) print('begin') io.stdout:flush() trips(4000) print('end')";

// As a daemon does: a message is built for each request.
void Call() {
  void *body = ZOR_MSG_GetMsgBlock(64);
  Require(body != nullptr, "a message block");
  ZOR_MSG_SetMsgProfile(body, "provider", kEcho, 64);
  ZOR_MSG_HEAD *reply = nullptr;
  Require(ZOR_MSG_SendAndRecvWithAppName(ZOR_MSG_GetMsgHead(body), &reply, kTimeoutMs) == ZOR_OK, "a reply");
  std::free(reply);
  std::free(ZOR_MSG_GetMsgHead(body));
}

// Nanoseconds a trip, as seen from here.
double TimeScript(const std::string &lua) {
  FILE *script = ::popen((lua + " -e \"" + kConsumer + "\"").c_str(), "r");
  Require(script != nullptr, "a script");
  char line[32];
  Require(std::fgets(line, sizeof line, script) != nullptr, "the script begins");
  const double start = Now();
  Require(std::fgets(line, sizeof line, script) != nullptr, "the script ends");
  const double duration = Now() - start;
  Require(::pclose(script) == 0, "the script succeeds");
  return duration / kTrips;
}

}  // namespace

int main(int argc, char **argv) {
  Require(argc == 3, "arguments: MSGSVR LUA");
  const std::string lua = argv[2];
  PinToOneProcessor();
  const System system(argv[1]);
  const Process provider([] { ProvideEcho("provider", kEcho); });
  const Process script([&] { ::execlp(lua.c_str(), lua.c_str(), "-e", kProvider, nullptr); });
  Require(ZOR_MSG_Init("consumer") == ZOR_OK, "the consumer joins the bus");
  for (const char *name : {"provider", "luaprovider"}) {
    while (ZOR_MSG_GetNumOfProcesses(name) == 0) ::usleep(1000);
  }
  std::vector<double> theirs, ours, ratio;
  for (int round = 0; round < kRounds; ++round) {
    theirs.push_back(TimeAll(kTrips, Call));
    ours.push_back(TimeScript(lua));
    ratio.push_back(ours.back() / theirs.back());
  }
  std::printf("round trip, 64 bytes: C %.1f us, %s %.1f us, ratio %.2f\n", Median(theirs) / 1e3, lua.c_str(),
              Median(ours) / 1e3, Median(ratio));
}
