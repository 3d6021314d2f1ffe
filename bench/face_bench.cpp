// Requests through the C++ face beside the same requests through the C calls, in one process and in one server.
// Usage: face_bench MSGSVR
#include <zor/msg.h>
#include <zor/zor.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "echo_provider.h"
#include "harness.h"

namespace {

using namespace zor::bench;

constexpr std::uint32_t kEcho = 0x4001;
constexpr std::uint32_t kTimeoutMs = 10000;
constexpr int kTurns = 40;
constexpr std::size_t kTrips = 2000;

void ProvideInCpp() {
  zor::Bus bus("face");
  bus.serve(kEcho, [](const zor::Request &request) { return request.body(); });
  bus.run();
}

// Builds its message each time, as the face does.
void CallInC(const std::string &body) {
  void *place = ZOR_MSG_GetMsgBlock(static_cast<std::uint32_t>(body.size()));
  Require(place != nullptr, "a message block");
  if (!body.empty()) std::memcpy(place, body.data(), body.size());
  ZOR_MSG_SetMsgProfile(place, "plain", kEcho, static_cast<std::uint32_t>(body.size()));
  ZOR_MSG_HEAD *reply = nullptr;
  Require(ZOR_MSG_SendAndRecv(ZOR_MSG_GetMsgHead(place), &reply, kTimeoutMs) == ZOR_OK, "a request gets its reply");
  Require(reply->bodyLength == body.size(), "the reply is as long as the request");
  std::free(reply);
  std::free(ZOR_MSG_GetMsgHead(place));
}

void CallInCpp(zor::Bus &bus, const std::string &body) {
  const zor::Reply reply = bus.call("face", kEcho, body, std::chrono::milliseconds(kTimeoutMs));
  Require(reply.body().size() == body.size(), "the reply is as long as the request");
}

// In turn, in the other order every other time.
void Compare(zor::Bus &bus, std::size_t length) {
  const std::string body(length, 'x');
  std::vector<double> plain, face, mean, p50;
  for (int turn = 0; turn < kTurns; ++turn) {
    Cost inC, inCpp;
    for (const bool first : {turn % 2 == 0, turn % 2 != 0}) {
      if (first) inC = TimeEach(kTrips, [&] { CallInC(body); });
      if (!first) inCpp = TimeEach(kTrips, [&] { CallInCpp(bus, body); });
    }
    plain.push_back(inC.p50);
    face.push_back(inCpp.p50);
    mean.push_back(inCpp.mean / inC.mean);
    p50.push_back(inCpp.p50 / inC.p50);
  }
  std::printf("%-10zu %10.2f %10.2f %8.3f %8.3f\n", length, Median(plain) / 1e3, Median(face) / 1e3, Median(mean),
              Median(p50));
}

}  // namespace

int main(int argc, char **argv) {
  Require(argc == 2, "usage: face_bench MSGSVR");
  PinToOneProcessor();
  const System system(argv[1]);
  const Process plain([] { ProvideEcho("plain", kEcho); }), face(ProvideInCpp);
  zor::Bus bus("bench");
  while (ZOR_MSG_GetNumOfProcesses("plain") == 0 || ZOR_MSG_GetNumOfProcesses("face") == 0) {
  }
  std::printf("requests through the C++ face, beside the C calls; ratios: C++ to C\n%-10s %10s %10s %8s %8s\n", "body",
              "C p50 us", "C++ p50 us", "mean", "p50");
  for (const std::size_t length : {0, 64, 4096}) Compare(bus, length);
}
