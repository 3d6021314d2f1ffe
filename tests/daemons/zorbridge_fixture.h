// A bus with a bridge, a real broker, and a subscriber that sees everything at the broker.
#ifndef TESTS_DAEMONS_ZORBRIDGE_FIXTURE_H
#define TESTS_DAEMONS_ZORBRIDGE_FIXTURE_H

#include <zor/event.h>
#include <zor/msg.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "daemons/broker.h"
#include "daemons/bus_daemon_fixture.h"
#include "support/wire_client.h"

namespace zor::test {

using Json = nlohmann::json;

class ZorbridgeTest : public BusDaemonTest {
 protected:
  ZorbridgeTest() : BusDaemonTest(ZORBRIDGE_PROGRAM), broker_(root_.Path("")) { Subscribe(); }

  // The settings of a bridge that connects at once.
  std::string Settings(const std::string &more = "", const std::string &gateway = "gw7") const {
    return "broker = " + broker_.url() + "\ngateway = " + gateway +
           "\nretry_first_seconds = 1\nretry_most_seconds = 2\n" + more;
  }
  // Starts the bridge and waits until it is at the broker.
  void StartBridge(const std::string &more = "") {
    Start(Settings(more));
    ASSERT_TRUE(Shown("zor/gw7/presence {\"schema\":1,\"gateway\":\"gw7\",\"online\":true")) << errors_.Text();
  }
  // Waits until the subscriber has got it; what came before is no longer looked at.
  bool Shown(const std::string &text) {
    return WaitUntil([&] {
      subscriber_->WaitForOutput("nothing that is ever shown", std::chrono::milliseconds(5));  // reads what is there
      const size_t at = subscriber_->output().find(text, shown_);
      if (at != std::string::npos) shown_ = at + text.size();
      return at != std::string::npos;
    });
  }
  void Subscribe() {
    shown_ = 0;
    subscriber_.reset();
    subscriber_.emplace(broker_.Client({"mosquitto_sub", "-v", "-q", "1", "-t", "#"}));
    Mark("subscribed");
  }
  // For a broker that has been stopped: the subscriber is there before the bridge.
  void RestartBroker() {
    daemon_->Signal(SIGSTOP);
    broker_.Start();
    Subscribe();
    daemon_->Signal(SIGCONT);
  }
  // A publication of the test's own, after everything that was published before it.
  void Mark(const std::string &text) {
    EXPECT_TRUE(WaitUntil([&] {
      broker_.Client({"mosquitto_pub", "-q", "1", "-t", "mark", "-m", text}).Wait();
      return subscriber_->WaitForOutput("mark " + text + "\n", std::chrono::milliseconds(500));
    }));
  }
  // All publications to topics that begin so, that the subscriber has got by now, in their order.
  std::vector<std::pair<std::string, Json>> Received(const std::string &topic) const {
    std::vector<std::pair<std::string, Json>> found;
    std::istringstream lines(subscriber_->output());
    for (std::string line; std::getline(lines, line);) {
      const size_t blank = line.find(' ');
      if (line.starts_with(topic) && blank != line.npos) {
        found.emplace_back(line.substr(0, blank), Json::parse(line.substr(blank + 1), nullptr, false));
      }
    }
    return found;
  }
  bool Logged(const std::string &text) {
    return WaitUntil([&] { return errors_.Text().find(text) != std::string::npos; });
  }

  Broker broker_;
  std::optional<Child> subscriber_;
  size_t shown_ = 0;  // of its output
};

// Publishes events under a name of its own.
class Publisher {
 public:
  explicit Publisher(const TempRoot &root) : client_(WireClient::Connect(root.Path("/var/msgsvr"))) {
    client_.Register("publisher");
  }
  void Publish(uint32_t type, const std::string &body) const { client_.Send(MakeMessage(type, "", "", 0, body)); }
  void Event(int number, const std::string &name = "Counted", uint32_t type = 0x2DA07) const {
    Publish(type, Json{{"Method", "notify"}, {"EventType", name}, {"Payload", {{"n", number}}}}.dump());
  }
  // Events with these numbers.
  void Events(int first, int last) const {
    for (int number = first; number <= last; ++number) Event(number);
  }

 private:
  WireClient client_;
};

}  // namespace zor::test

#endif
