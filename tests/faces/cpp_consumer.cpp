// The asking side of the conversations that every face holds with every other one. Usage: cpp_consumer NAME PROVIDER
#include <poll.h>
#include <unistd.h>
#include <zor/zor.hpp>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "conversation.h"

using namespace std::chrono_literals;

namespace {

// How long to wait for what must happen, also on a busy machine.
constexpr auto kPatience = 60s;

void Require(bool good, const std::string &what) {
  if (!good) throw std::runtime_error(what);
}

// A number that came as one, or as the text of an item.
long Number(const zor::Json &json) {
  return json.is_text() ? std::atol(std::string(json.text()).c_str()) : static_cast<long>(json.integer(-1));
}

class Consumer {
 public:
  Consumer(const char *name, std::string provider) : bus_(name), provider_(std::move(provider)) {
    bus_.events(TALK_MODULE, "note", [this](const zor::Event &event) {
      note_ = event.module() + "/" + event.name() + "/" + std::to_string(Number(event.payload()["n"]));
      bus_.stop();
    });
    bus_.events(TALK_MODULE, "burst", [this](const zor::Event &) { Count(1); });
    bus_.on_gap([this](const zor::Gap &gap) { Count(gap.events); });
    bus_.on_lost([this] { lost_ = true; });
    bus_.on_rejoined([this] {
      rejoined_ = true;
      bus_.stop();
    });
  }

  int Run() {
    Try("request", &Consumer::Request);
    Try("word", &Consumer::Word);
    Try("deferred", &Consumer::Deferred);
    Try("error", &Consumer::Error);
    Try("timeout", &Consumer::Timeout);
    Try("absent", &Consumer::Absent);
    Try("large", &Consumer::Large);
    Try("event", &Consumer::Event);
    Try("descriptor", &Consumer::Descriptor);
    Try("gap", &Consumer::Gap);
    Try("lost", &Consumer::Lost);
    bus_.call(provider_, ZOR_MSG_SAFE_EXIT);
    std::puts("done");
    return failures_ == 0 ? 0 : 1;
  }

 private:
  void Try(const char *name, void (Consumer::*conversation)()) {
    try {
      (this->*conversation)();
      std::printf("ok %s\n", name);
    } catch (const std::exception &error) {
      std::printf("failed %s: %s\n", name, error.what());
      ++failures_;
    }
    std::fflush(stdout);
  }

  // Runs the loop until something stops it.
  void Await(const char *what) {
    const zor::Scoped limit = bus_.after(kPatience, [this] { bus_.stop(1); });
    Require(bus_.run() == 0, std::string("waited in vain for ") + what);
  }

  void Request() {
    const zor::Reply reply = bus_.call(provider_, TALK_STATE);
    const zor::Json json = reply.json();
    Require(reply.word() == 0 && json["actual"].number() == TALK_ACTUAL && json["label"].text() == TALK_LABEL,
            json.dump());
  }

  void Word() { Require(bus_.call(provider_, TALK_WORD, 41).word() == 42, "not the next number"); }

  void Deferred() {
    std::string order;
    const auto note = [&](char letter, std::uint32_t word, const zor::Result<zor::Reply> &reply) {
      order += reply && reply->word() == word ? letter : '?';
      if (order.size() == 2) bus_.stop();
    };
    bus_.call_async(provider_, TALK_LATER, 300, kPatience, [&](auto reply) { note('d', 42, reply); });
    bus_.call_async(provider_, TALK_WORD, 7, kPatience, [&](auto reply) { note('w', 8, reply); });
    Await("two replies");
    Require(order == "wd", "replies came as " + order);
  }

  void Error() {
    try {
      bus_.call(provider_, TALK_ERROR);
    } catch (const zor::Failed &error) {
      return Require(error.status() == ZOR_E_IO && error.text() == TALK_WHY, error.text());
    }
    throw std::runtime_error("no error");
  }

  void Timeout() {
    try {
      bus_.call(provider_, TALK_SILENT, {}, 300ms);
    } catch (const zor::Timeout &) {
      return Word();
    }
    throw std::runtime_error("a reply");
  }

  void Absent() {
    try {
      bus_.call("nobody", TALK_WORD, 1, kPatience);
    } catch (const zor::PeerGone &) {
      return;
    }
    throw std::runtime_error("a reply");
  }

  void Large() {
    std::string body(TALK_LARGE, '\0');
    for (std::size_t i = 0; i < body.size(); ++i) body[i] = static_cast<char>(i * 7 % 251);
    Require(bus_.call(provider_, TALK_ECHO, body, kPatience).body() == body, "not the same");
  }

  void Event() {
    note_.clear();
    bus_.send(provider_, TALK_NOTE, 5);
    while (note_.empty()) Await("an event");
    Require(note_ == TALK_MODULE "/note/5", note_);
  }

  void Descriptor() {
    int ends[2];
    Require(::pipe(ends) == 0, "pipe");
    const zor::Fd reading(ends[0]);
    bus_.send_fd(provider_, TALK_DESCRIPTOR, zor::Fd(ends[1]).get());
    std::string text;
    char piece[64];
    for (ssize_t count; (count = ::read(reading.get(), piece, sizeof piece)) > 0;) {
      text.append(piece, static_cast<std::size_t>(count));
    }
    Require(text == TALK_HELLO, text);
  }

  void Gap() {
    constexpr std::uint32_t kEvents = 30000;
    burst_ = 0;
    expected_ = kEvents;
    bus_.send(provider_, TALK_BURST, kEvents);
    ::poll(nullptr, 0, 1000);
    // A gap is told before the next event, so there have to be some behind the last one.
    std::uint32_t notes = 0;
    const zor::Scoped more = bus_.every(200ms, [&] {
      bus_.send(provider_, TALK_NOTE, 0);
      ++notes;
    });
    while (burst_ < kEvents) Await("events and gaps");
    // A note may be among what was missed.
    Require(burst_ <= kEvents + notes, std::to_string(burst_) + " events");
  }

  void Count(std::uint32_t events) {
    burst_ += events;
    if (burst_ >= expected_) bus_.stop();
  }

  void Lost() {
    std::puts("kill the server");
    std::fflush(stdout);
    while (!rejoined_) Await("the connection");
    Require(lost_, "rejoined without a loss");
    zor::Result<zor::Reply> reply = bus_.try_call(provider_, TALK_WORD, 1);
    for (int tries = 0; !reply && tries < 100; ++tries) {
      ::poll(nullptr, 0, 100);
      reply = bus_.try_call(provider_, TALK_WORD, 1);
    }
    Require(reply.value().word() == 2, "not the next number");
    Event();
  }

  zor::Bus bus_;
  std::string provider_;
  std::string note_;
  std::uint32_t burst_ = 0, expected_ = 0;
  bool lost_ = false, rejoined_ = false;
  int failures_ = 0;
};

}  // namespace

int main(int argc, char **argv) {
  if (argc != 3) return 2;
  return Consumer(argv[1], argv[2]).Run();
}
