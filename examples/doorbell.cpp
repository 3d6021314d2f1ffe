// A daemon in C++: counts who rings, tells subscribers, and lets a client wait for the next one. Try it:
//   zorctl send 0x6001 doorbell; zorctl call 0x6002 doorbell; zorctl call 0x6003 doorbell --timeout 60000
#include <chrono>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>
#include <zor/zor.hpp>

using namespace std::chrono_literals;

namespace {

constexpr std::uint32_t kRing = 0x6001;         // one-way
constexpr std::uint32_t kGetCount = 0x6002;     // reply: the data word
constexpr std::uint32_t kWaitForRing = 0x6003;  // reply: JSON, when somebody rings

}  // namespace

int main() try {
  zor::Bus bus("doorbell");
  std::uint32_t count = 0;
  std::vector<zor::Deferred> waiting;

  bus.on(kRing, [&](zor::Request request) {
    const zor::Json ring{{"by", request.source()}, {"count", ++count}};
    for (zor::Deferred &reply : std::exchange(waiting, {})) reply.reply(ring);
    bus.publish("device", "ring", ring);
  });
  bus.serve(kGetCount, [&] { return count; });
  bus.serve(kWaitForRing, [&](zor::Request request) { waiting.push_back(request.defer()); });
  bus.every(1h, [&] { count = 0; });
  bus.on_rejoined([] { std::puts("doorbell: back on the bus"); });
  return bus.run();
} catch (const zor::Error &error) {
  std::fprintf(stderr, "doorbell: %s\n", error.what());
  return 1;
}
