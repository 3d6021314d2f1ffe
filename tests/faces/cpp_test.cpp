// The C++ face against a real message server. Providers run in a child process, so that their replies travel.
#include <gtest/gtest.h>
#include <unistd.h>
#include <zor/zor.hpp>

#include <csignal>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/capture.h"
#include "support/child.h"
#include "support/temp_root.h"

namespace zor {
namespace {

using namespace std::chrono_literals;
using test::Child;
using test::kPatience;

// A described type as the generator writes one: the data word, then a byte for the level.
struct Level {
  static constexpr std::uint32_t kType = 0x6201;
  static constexpr const char *kName = "Level";
  struct Message {
    std::uint32_t room = 0;
    std::string level;
    std::string unknown;
    std::uint32_t data_word() const { return room; }
    void append_to(std::string &body) const { body += level; }
    static bool decode(std::string_view body, std::uint32_t data, Message &out) {
      out.room = data;
      out.level = body;
      return body != "?";
    }
  };
  using Request = Message;
  using Reply = Message;
};

// A described event with one member.
struct Reached {
  static constexpr std::uint32_t kType = 0x2DA20;
  static constexpr const char *kModule = "thermo";
  static constexpr const char *kEvent = "reached";
  struct Message {
    double actual = 0;
    std::uint32_t data_word() const { return 0; }
    void append_to(std::string &body) const { body += Json{{"actual", actual}}.dump(); }
    static bool decode(std::string_view body, std::uint32_t, Message &out) {
      const auto json = Json::try_parse(body);
      out.actual = json ? (*json)["actual"].number() : 0;
      return json.has_value();
    }
  };
};

class CppFaceTest : public testing::Test {
 protected:
  void SetUp() override { StartServer(); }

  void StartServer() {
    server_.emplace(Child::Program({MSGSVR_PROGRAM}));
    ASSERT_TRUE(server_->WaitForOutput("msgsvr: listening"));
  }

  // Runs a provider until its safe exit, which the destructor of this test's last Bus does not ask for: the child is
  // killed.
  void Provide(const std::function<void(Bus &)> &serve) {
    provider_.emplace(Child::Function([serve] {
      Bus bus("provider");
      serve(bus);
      return bus.run();
    }));
  }
  Bus &Join() {
    bus_.emplace("tester");
    EXPECT_TRUE(test::WaitUntil([&] { return !provider_ || bus_->try_call("provider", ZOR_MSG_INTROSPECT); }));
    return *bus_;
  }
  // Runs the loop until something stops it.
  void Run() {
    const Scoped limit = bus_->after(kPatience, [this] { bus_->stop(1); });
    EXPECT_EQ(bus_->run(), 0) << "nothing stopped the loop";
  }

  test::TempRoot root_;
  std::optional<Child> server_, provider_;
  std::optional<Bus> bus_;
};

Error ErrorOf(const Result<Reply> &reply) {
  return reply ? Error(0, "a reply") : reply.error();
}

TEST_F(CppFaceTest, WhatAHandlerReturnsOrThrowsIsItsReply) {
  Provide([](Bus &bus) {
    bus.serve(0x6301, [] {});
    bus.serve(0x6302, [](const Request &request) { return request.word() + 1; });
    bus.serve(0x6303, [](Request request) { return "<" + std::string(request.text()) + ">"; });
    bus.serve(0x6304, [] { return Bytes{0, 1, 255}; });
    bus.serve(0x6305, [] { return std::pair(7, Json{{"rooms", Json::array({1, "two", nullptr})}}); });
    bus.serve(0x6306, [](Request request) { request.reply(9); });
    bus.serve<Level>([](const Level::Message &message) { return Level::Reply{message.room, message.level + "!", {}}; });
    bus.serve(0x6307, []() -> Result<int> { return Error(ZOR_E_BUSY, "later"); });
    bus.serve(0x6308, [](Request request) { return request.json()["n"].integer(); });
    bus.serve(0x6309, []() -> int { throw std::runtime_error("broken"); });
    bus.serve(0x630a, []() -> int { throw Failed("no such room", 0x10042); });
    bus.serve(0x630b, []() -> int { throw 5; });
    bus.serve(0x630d, [](Request request) -> int { throw Failed(std::string(request.text())); });
    bus.serve(0x630c, [](Request request) { request.defer(); });
  });
  Bus &bus = Join();
  const struct {
    std::uint32_t type;
    Content content;
    std::uint32_t word;
    std::string_view body;  // of the reply, or the text of the error reply
  } cases[] = {
      {0x6301, 5, 0, ""},
      {0x6302, 5, 6, ""},
      {0x6303, "room", 0, "<room>"},
      {0x6304, {}, 0, {"\0\1\377", 3}},
      {0x6305, {}, 7, R"({"rooms":[1,"two",null]})"},
      {0x6306, {}, 9, ""},
      {Level::kType, std::pair(3, "low"), 3, "low!"},
      {Level::kType, "?", ZOR_E_ARGUMENT, "the body does not decode"},
      {0x6307, {}, ZOR_E_BUSY, "later"},
      {0x6308, {{"n", 12}}, 12, ""},
      {0x6308, "{", ZOR_E_ARGUMENT, "malformed JSON"},
      {0x6309, {}, ZOR_E_IO, "broken"},
      {0x630a, {}, 0x10042, "no such room"},
      {0x630b, {}, ZOR_E_IO, "unknown exception"},
      {0x630d, "\xC3\xBC \xF0\x9F\x98\x80 \xFF \xED\xA0\x80 \xE2\x82", ZOR_E_IO,
       "\xC3\xBC \xF0\x9F\x98\x80 \xEF\xBF\xBD \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD \xEF\xBF\xBD\xEF\xBF\xBD"},
      {0x630c, {}, ZOR_E_IO, "the request was dropped without a reply"},
  };
  for (const auto &each : cases) {
    const Result<Reply> reply = bus.try_call("provider", each.type, each.content, kPatience);
    EXPECT_EQ(reply ? reply->word() : reply.error().status(), each.word) << std::hex << each.type;
    EXPECT_EQ(reply ? reply->body() : reply.error().text(), each.body) << std::hex << each.type;
    EXPECT_EQ(!reply, each.word >= 0x10000) << std::hex << each.type;
  }
  EXPECT_EQ(bus.call<Level>("provider", {3, "low", {}}).level, "low!");
  EXPECT_THROW(bus.call("provider", 0x630a), Failed);
}

TEST_F(CppFaceTest, EachCallGetsItsOwnReplyAndNoLateOne) {
  Provide([](Bus &bus) {
    bus.serve(0x6301, [&bus](Request request) {
      bus.after(request.word() * 1ms,
                [word = request.word(), reply = request.defer()]() mutable { reply.reply(word); });
    });
  });
  Bus &bus = Join();
  std::vector<std::string> order;
  bus.on(0x6301, [&](Request request) { order.push_back("late " + std::to_string(request.word())); });
  EXPECT_EQ(ErrorOf(bus.try_call("provider", 0x6301, 500, 20ms)).kind(), ErrorKind::kTimeout);
  const auto note = [&](Result<Reply> reply) {
    order.push_back(reply ? std::to_string(reply->word()) : reply.error().what());
    if (order.size() == 4) bus.stop();
  };
  bus.call_async("provider", 0x6301, 700, kPatience, note);
  bus.call_async("provider", 0x6301, 5000, 100ms, note);
  bus.call_async("provider", 0x6301, 1, kPatience, note);
  bus.call_async("nobody", 0x6301, 1, 0ms, note);
  // What comes for the others while this one waits is theirs still.
  EXPECT_EQ(bus.call("provider", 0x6301, 30, kPatience).word(), 30u);
  EXPECT_EQ(ErrorOf(bus.try_call("nobody", 0x6301, 1, kPatience)).kind(), ErrorKind::kPeerGone);
  Run();
  std::sort(order.begin(), order.end());
  EXPECT_EQ(order, (std::vector<std::string>{"1", "700", "no reply in time", "the peer is not on the bus"}));
}

TEST_F(CppFaceTest, CallbacksMayEndThemselvesAndEachOther) {
  Bus &bus = Join();
  const auto captured = std::make_shared<int>(0);
  Handle once, other;
  once = bus.on(0x6301, [&once, &other, captured] {
    once.stop();
    other.stop();
    ++*captured;  // what the handler owns outlives its registration until it returns
  });
  other = bus.on(0x6301, [captured] { *captured += 100; });
  Handle ticking = bus.every(1ms, [&bus, &ticking, count = 0]() mutable {
    if (++count < 3) return;
    ticking.stop();
    bus.send("tester", 0x6301);
    bus.send("tester", 0x6301);
    bus.send("tester", 0x6302);
  });
  Handle afterwards = bus.after(1ms, [] {});
  bus.on(0x6302, [&] { bus.stop(); });
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const Fd reading(ends[0]);
  Fd writing(ends[1]);
  int pieces = 0;
  Handle watch = bus.watch(reading.get(), [&](std::uint32_t) {
    ++pieces;
    watch.stop();  // although there is more to read
  });
  ASSERT_EQ(::write(writing.get(), "x", 1), 1);
  Run();
  EXPECT_EQ(*captured, 1);
  EXPECT_EQ(captured.use_count(), 1) << "ended handlers are gone";
  EXPECT_EQ(pieces, 1);
  for (const Handle &each : {once, other, ticking, afterwards, watch}) EXPECT_FALSE(each.active());
  EXPECT_EQ(::write(writing.get(), "x", 1), 1) << "a watched descriptor stays its owner's";
  EXPECT_EQ(bus.serve(0x6301, [] {}).active(), true) << "the type is free again";
}

TEST_F(CppFaceTest, SubscriptionsEndWithTheirOwner) {
  Bus &bus = Join();
  bus.module("thermo", Reached::kType);
  std::string heard;
  const auto subscriptions = [&] { return bus.call("tester", ZOR_MSG_INTROSPECT).json()["events"].size(); };
  bus.on(0x6301, [&] { bus.stop(); });
  {
    const Scoped all = bus.events("thermo", [&](const Event &event) { heard += event.name() + " "; });
    const Scoped typed = bus.on<Reached>([&](Reached::Message message) { heard += Json(message.actual).dump() + " "; });
    const Scoped items = bus.events("lan", "up", [&](const Event &event) {
      heard += event.module() + event.source() + std::string(event.payload()["port"].text());
    });
    EXPECT_EQ(subscriptions(), 2u);
    bus.publish<Reached>({21.5});
    bus.publish("thermo", "other", {{"a", "\"b\""}});
    bus.publish("lan", "down", {{"port", 1}});
    bus.publish("lan", "up", {{"port", 2}});
    bus.send("tester", 0x6301);
    Run();
  }
  EXPECT_EQ(heard, "reached 21.5 other lantester2");
  EXPECT_EQ(subscriptions(), 0u);
  bus.publish("thermo", "other");
  bus.send("tester", 0x6301);
  Run();
  EXPECT_EQ(heard.find("other", heard.find("other") + 1), std::string::npos) << "the last owner unsubscribed";
  EXPECT_THROW(bus.events("unknown", [](const Event &) {}), Argument);
}

TEST_F(CppFaceTest, WhatIsThrownWhereNobodyWaitsIsReportedAndTheDaemonGoesOn) {
  Bus &bus = Join();
  std::vector<std::string> errors;
  bus.on_error([&](const Error &error) {
    errors.push_back(error.what());
    if (errors.size() == 4) bus.stop();
    throw std::runtime_error("in the handler of errors");
  });
  bus.events("network", [](const Event &) { throw std::runtime_error("event"); });
  bus.on(0x6301, [](Request) { throw Timeout("message"); });
  bus.after(1ms, [] { throw Argument("timer"); });
  bus.execute({{"sh", "-c", "exit 3"}, [](ExitStatus status) { throw status.code; }});
  bus.publish("network", "note");
  bus.send("tester", 0x6301);
  test::Capture errorOutput(2);
  Run();
  std::sort(errors.begin(), errors.end());
  EXPECT_EQ(errors, (std::vector<std::string>{"event", "message", "timer", "unknown exception"}));
  EXPECT_NE(errorOutput.Text().find("tester: timer"), std::string::npos);
}

TEST_F(CppFaceTest, ChildrenAreHeardAndReaped) {
  Bus &bus = Join();
  std::string output;
  ExitStatus end;
  const auto stop = [&](ExitStatus status) {
    end = status;
    bus.stop();
  };
  bus.execute({{"sh", "-c", "echo \"$WORD\" in $PWD; exit 3"},
               stop,
               [&](std::string_view piece) { output += piece; },
               {},
               {"WORD=here", "PATH=/bin:/usr/bin"},
               "/"});
  Run();
  EXPECT_EQ(output, "here in /\n");
  EXPECT_EQ(end.code, 3);
  const zor::Child sleeping = bus.execute({{"sleep", "1000"}, stop});
  EXPECT_TRUE(sleeping.running());
  sleeping.kill(SIGTERM);
  Run();
  EXPECT_EQ(end.signal, SIGTERM);
  EXPECT_FALSE(sleeping.running());
}

// Runs it in a callback of a synchronous spawn, whose loop is gone afterwards, with all its records.
void WithinASpawn(std::function<void()> body) {
  const char *const arguments[] = {"true", nullptr};
  UvProcessOptions options = {};
  options.file = arguments[0];
  options.args = arguments;
  options.data = &body;
  options.exitCallback = [](UvProcess *process, std::int32_t, std::int32_t, std::int32_t) {
    (*static_cast<std::function<void()> *>(process->header.data))();
  };
  EXPECT_EQ(ZOR_UV_ProcessSpawnSync(&options, 0), ZOR_OK);
}

TEST_F(CppFaceTest, WhatBeginsWithinASynchronousSpawnBelongsToTheLoopOfTheBus) {
  Scoped timer;
  std::uint32_t status = ZOR_OK;
  WithinASpawn([&] {
    Bus &bus = Join();
    timer = bus.every(1ms, [&bus] { bus.stop(); });
    try {
      bus.execute({{"true"}});
    } catch (const Error &error) {
      status = error.status();
    }
  });
  EXPECT_EQ(status, ZOR_E_BUSY);
  Run();
}

TEST_F(CppFaceTest, AProcessHasOneBusAtATime) {
  Join();
  try {
    Bus second("second");
    FAIL();
  } catch (const Error &error) {
    EXPECT_EQ(error.status(), ZOR_E_BUSY);
  }
  EXPECT_EQ(bus_->call("tester", ZOR_MSG_INTROSPECT).json()["name"].text(), "tester") << "the first goes on";
  Handle left = bus_->every(1ms, [] {});
  bus_->events("network", [](const Event &) {});
  bus_.reset();
  EXPECT_FALSE(left.active());
  left.stop();
  bus_.emplace("again");
  EXPECT_EQ(bus_->call("again", ZOR_MSG_INTROSPECT).json()["events"].size(), 0u);
  bus_.reset();
  server_.reset();
  EXPECT_THROW(Bus("nobody"), NotConnected);
  EXPECT_EQ(Bus::try_open("nobody").error().kind(), ErrorKind::kNotConnected);
}

TEST_F(CppFaceTest, AHandlerMayDestroyTheBus) {
  Join();
  bus_->serve(0x6301, [this](Request request) {
    const Deferred owed = request.defer();
    bus_.reset();  // which ends the loop
  });
  bus_->every(1ms, [] {});
  bus_->call_async("tester", 0x6301, {}, kPatience, [](Result<Reply>) { FAIL() << "nothing is called any more"; });
  bus_->run();
  EXPECT_FALSE(bus_.has_value());
}

TEST_F(CppFaceTest, AForkedChildLeavesTheConnectionToItsParent) {
  Bus &bus = Join();
  bus.serve(0x6301, [&](Request request) {
    bus.after(1ms, [reply = request.defer()]() mutable { reply.reply(7); });
    Child child = Child::Function([this] {
      bus_.reset();  // and with it the reply that is owed
      return 0;
    });
    EXPECT_EQ(child.Wait(), 0);
  });
  bus.call_async("tester", 0x6301, {}, kPatience, [&](Result<Reply> reply) {
    EXPECT_EQ(reply ? reply->word() : 0, 7u) << ErrorOf(reply).text();
    bus.stop();
  });
  Run();
}

TEST_F(CppFaceTest, ALostConnectionEndsCallsAndComesBack) {
  Provide([](Bus &bus) { bus.on(0x6301, [] {}); });
  Bus &bus = Join();
  std::string story;
  bus.on_lost([&] { story += "lost "; });
  bus.call_async("provider", 0x6301, {}, 0ms, [&](Result<Reply> reply) {
    story += ErrorOf(reply).kind() == ErrorKind::kPeerGone ? "gone " : "? ";
    server_->Wait();  // its lock is released after its connections
    StartServer();
  });
  bus.on_rejoined([&] {
    story += "rejoined ";
    bus.publish("network", "note");
  });
  bus.events("network", [&](const Event &event) {
    story += event.name();
    bus.stop();
  });
  server_->Signal(SIGKILL);
  Run();
  EXPECT_EQ(story, "lost gone rejoined note");
}

TEST_F(CppFaceTest, ASafeExitIsRepliedToAndEndsTheLoop) {
  Provide([](Bus &) {});
  Bus &bus = Join();
  EXPECT_EQ(bus.call("provider", ZOR_MSG_SAFE_EXIT).word(), 0u);
  EXPECT_EQ(provider_->Wait(), 0);
}

#if ZOR_CPP_COROUTINES
TEST_F(CppFaceTest, CoroutinesCallOthersWhileTheLoopRuns) {
  Provide([](Bus &bus) {
    bus.serve(0x6301, [&bus](Request request) -> Task<int> {
      co_await bus.sleep(request.word() * 1ms);
      co_return static_cast<int>(request.word());
    });
    bus.serve<Level>([](Level::Message message) -> Task<Level::Reply> {
      if (message.level.empty()) throw Failed("no level", 0x10042);
      co_return Level::Reply{message.room + 1, message.level, {}};
    });
  });
  Bus &bus = Join();
  std::string story;
  const auto ask = [&](std::uint32_t time) -> Task<std::uint32_t> {
    const Reply reply = co_await bus.call_async("provider", 0x6301, time, kPatience);
    co_return reply.word();
  };
  const auto all = [&](std::string name) -> Task<> {
    auto slow = bus.call_async("provider", 0x6301, 200, kPatience);  // both are on their way
    story += std::to_string(co_await ask(1)) + " ";
    story += name + std::to_string((co_await slow).word()) + " ";
    const Level::Request request{1, "low", {}};
    story += (co_await bus.call_async<Level>("provider", request)).level + " ";
    story += (co_await bus.try_call_async("provider", Level::kType)).error().text() + " ";
    try {
      co_await bus.call_async("nobody", 0x6301);
    } catch (const PeerGone &) {
      story += "gone";
    }
    bus.stop();
    throw std::runtime_error("at the end");
  };
  std::string error;
  bus.on_error([&](const Error &thrown) { error = thrown.what(); });
  bus.spawn(all("slow "));
  Run();
  EXPECT_EQ(story, "1 slow 200 low no level gone");
  EXPECT_EQ(error, "at the end");
}

TEST_F(CppFaceTest, CoroutinesThatWaitEndWithTheBus) {
  Provide([](Bus &bus) {
    bus.serve(0x6301, [&bus]() -> Task<> { co_await bus.sleep(1h); });
    bus.on(0x6302, [&bus] { bus.stop(); });
  });
  Bus &bus = Join();
  const auto captured = std::make_shared<int>(0);
  bus.serve(0x6303, [&bus, captured]() -> Task<int> {
    co_await bus.call_async("provider", 0x6301, {}, 0ms);
    co_return 1;
  });
  bus.call_async("tester", 0x6303, {}, 0ms, [](Result<Reply>) {});
  bus.call_async("provider", 0x6301, {}, kPatience, [&](Result<Reply> reply) {
    EXPECT_EQ(ErrorOf(reply).text(), "the daemon ended before it replied");
    bus.stop();
  });
  bus.send("provider", 0x6302);
  Run();
  bus_.reset();
  EXPECT_EQ(captured.use_count(), 1) << "the frame that waited is gone";
}
#endif

}  // namespace
}  // namespace zor
