// The providing side of the conversations that every face holds with every other one. Usage: cpp_provider NAME
#include <unistd.h>
#include <zor/zor.hpp>

#include <chrono>
#include <cstdio>
#include <string>

#include "conversation.h"

using namespace std::chrono_literals;

namespace {

void Say(const char *line) {
  std::puts(line);
  std::fflush(stdout);
}

void Serve(zor::Bus &bus) {
  bus.serve(TALK_STATE, [] { return zor::Json{{"actual", TALK_ACTUAL}, {"label", TALK_LABEL}}; });
  bus.serve(TALK_WORD, [](zor::Request request) { return request.word() + 1; });
  bus.serve(TALK_LATER, [&](zor::Request request) {
    bus.after(request.word() * 1ms, [reply = request.defer()]() mutable { reply.reply(42); });
  });
  bus.serve(TALK_ERROR, [] { throw zor::Failed(TALK_WHY); });
  bus.on(TALK_SILENT, [] {});  // its replies never come
  bus.serve(TALK_ECHO, [](zor::Request request) { return request.body(); });
  bus.on(TALK_NOTE, [&](zor::Request request) { bus.publish(TALK_MODULE, "note", {{"n", request.word()}}); });
  bus.on(TALK_DESCRIPTOR, [](zor::Request request) {
    const std::string text = TALK_HELLO;
    const zor::Fd fd = request.receive_fd();
    if (::write(fd.get(), text.data(), text.size()) < 0) std::perror("write");
  });
  bus.on(TALK_BURST, [&](zor::Request request) {
    const std::string fill(500, 'x');
    for (std::uint32_t i = 0; i < request.word(); ++i) bus.publish(TALK_MODULE, "burst", {{"i", i}, {"fill", fill}});
  });
  bus.on_lost([] { Say("lost"); });
  bus.on_rejoined([] { Say("rejoined"); });
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) return 2;
  zor::Bus bus(argv[1]);
  Serve(bus);
  Say("ready");
  return bus.run();
}
