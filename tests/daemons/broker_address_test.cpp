// Where brokers are, and when they are tried again.
#include <gmock/gmock.h>

#include <set>

#include "zorbridge/broker_address.h"
#include "zorbridge/retry.h"

namespace zor::bridge {
namespace {

using std::chrono::milliseconds;

TEST(BrokerAddress, IsReadFromUrlsAndNothingElseIs) {
  const std::pair<const char *, BrokerAddress> kGood[] = {
      {"mqtt://broker", {false, "broker", 1883}},
      {"mqtts://Broker-1.example.org/", {true, "Broker-1.example.org", 8883}},
      {"mqtts://192.0.2.1:1", {true, "192.0.2.1", 1}},
      {"mqtt://[2001:db8::1]", {false, "2001:db8::1", 1883}},
      {"mqtts://[::1]:65535", {true, "::1", 65535}},
  };
  std::string problem;
  for (const auto &[url, address] : kGood) {
    EXPECT_EQ(BrokerAddress::Parse(url, &problem), address) << url;
    EXPECT_EQ(BrokerAddress::Parse((address.tls ? "mqtts://" : "mqtt://") + address.Text(), &problem), address);
    EXPECT_EQ(address.isLiteral(), address.host.find("roker") == std::string::npos) << url;
  }
  for (const char *url : {"",
                          "broker",
                          "http://broker",
                          "mqtt://",
                          "mqtt://:1883",
                          "mqtt://broker:0",
                          "mqtt://broker:",
                          "mqtt://broker:65536",
                          "mqtt://broker:1x",
                          "mqtt://broker:+1",
                          "mqtt://[::1",
                          "mqtt://[::1]x",
                          "mqtt://[broker]",
                          "mqtt://[]",
                          "mqtt://::1",
                          "mqtt://user@broker",
                          "mqtt://-broker",
                          "mqtt://broker/topic",
                          "mqtt://bro ker",
                          "mqtt://br\xc3\xb6ker",
                          "MQTT://broker"}) {
    problem.clear();
    EXPECT_EQ(BrokerAddress::Parse(url, &problem), std::nullopt) << url;
    EXPECT_NE(problem, "") << url;
  }
}

TEST(Retry, SpreadsEachAttemptOverAPauseThatGrows) {
  const Retry::Options options = {milliseconds(1000), milliseconds(5000), milliseconds(60000)};
  // The part of each pause in which some attempt of many gateways falls.
  const auto spread = [&](auto prepare, int64_t pause) {
    std::set<int64_t> tenths;
    for (int gateway = 0; gateway < 1000; ++gateway) {
      Retry retry(options);
      prepare(retry);
      const int64_t time = retry.Next().count();
      EXPECT_TRUE(time >= 0 && time < pause) << time;
      tenths.insert(time * 10 / pause);
    }
    EXPECT_EQ(tenths.size(), 10u) << "attempts fall into each tenth of " << pause << " ms";
  };
  const auto fail = [](int times) {
    return [times](Retry &retry) {
      for (int i = 0; i < times; ++i) retry.Next();
    };
  };
  spread(fail(0), 1000);
  spread(fail(1), 2000);
  spread(fail(9), 5000);
  spread([](Retry &retry) { retry.Refused(); }, 5000);
  for (const bool lasting : {false, true}) {
    spread(
        [lasting](Retry &retry) {
          retry.Refused();
          EXPECT_EQ(retry.Ended(milliseconds(lasting ? 60000 : 59999)), lasting);
        },
        lasting ? 1000 : 5000);
  }
}

}  // namespace
}  // namespace zor::bridge
