// The line to a broker: a real one, which is stopped, slowed down and replaced, and false ones.
#include "zorbridge/broker_link.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <set>

#include "bench/certificates.h"
#include "broker.h"
#include "support/capture.h"
#include "support/loop.h"
#include "support/temp_root.h"
#include "zorbridge/tls_context.h"

namespace zor::bridge {
namespace {

using bench::Authority;
using std::chrono::milliseconds;
using test::Broker;
using test::RunLoopUntil;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Listener : LinkListener {
  void OnConnected() override { happened.push_back("connected"); }
  void OnDisconnected(const std::string &why) override { happened.push_back("disconnected: " + why); }
  void OnAttemptFailed(const std::string &why) override { happened.push_back("failed: " + why); }
  void OnDelivery(const Delivery &delivery) override {
    deliveries.push_back(delivery);
    if (onDelivery) onDelivery(delivery);
  }
  void OnAcknowledged(uint64_t token) override { acknowledged.push_back(token); }
  void OnRefused(uint64_t token, const std::string &why) override {
    happened.push_back(std::to_string(token) + " refused: " + why);
  }
  void OnRoom() override {
    if (onRoom) onRoom();
  }
  void OnStopped() override { happened.push_back("stopped"); }

  // After what has been seen before.
  bool Sees(const std::string &what) {
    const bool seen = RunLoopUntil([&] {
      while (seenCount < happened.size()) {
        if (happened[seenCount++].find(what) != std::string::npos) return true;
      }
      return false;
    });
    if (!seen) ADD_FAILURE() << what << " was not seen in " << testing::PrintToString(happened);
    return seen;
  }

  size_t seenCount = 0;
  std::vector<std::string> happened;
  std::vector<Delivery> deliveries;
  std::vector<uint64_t> acknowledged;
  std::function<void(const Delivery &)> onDelivery;
  std::function<void()> onRoom;
};

class BrokerLinkTest : public testing::Test {
 protected:
  BrokerLink::Options To(const std::vector<std::string> &urls, const std::string &name = "gateway") const {
    BrokerLink::Options options;
    std::string problem;
    for (const std::string &url : urls) options.brokers.push_back(BrokerAddress::Parse(url, &problem).value());
    options.clientId = name;
    options.retry = {milliseconds(20), milliseconds(100), milliseconds(60000)};
    return options;
  }
  std::string Write(const std::string &name, const std::string &text, mode_t mode = 0600) const {
    const std::string path = root_.Path("/" + name);
    std::ofstream(path) << text;
    ::chmod(path.c_str(), mode);
    return path;
  }
  Broker WithTls(const bench::Issued &own) const {
    return Broker(root_.Path(""), Broker::WithTls(root_.Path(""), own.certificate, own.key, authority_.certificate()));
  }

  const test::TempRoot root_;
  const Authority authority_;
  daemon::ProblemLog log_{"link"};
  Listener listener_, peerListener_;
};

Publication Plain(const std::string &topic, uint64_t token = 1, const std::string &payload = "{}") {
  Publication publication;
  publication.topic = topic;
  publication.payload = payload;
  publication.token = token;
  return publication;
}

TEST_F(BrokerLinkTest, CarriesRequestsAndRepliesAndSaysHowItEnds) {
  Broker broker(root_.Path(""));
  auto options = To({broker.url()});
  options.subscriptions = {"zor/gateway/call/+/+", "more"};
  options.willTopic = "zor/gateway/presence";
  options.willPayload = "lost";
  auto link = std::make_unique<BrokerLink>(options, listener_, log_);
  auto peerOptions = To({broker.url()}, "peer");
  peerOptions.subscriptions = {"reply/#", "zor/+/presence"};
  peerOptions.retainedToo = true;
  BrokerLink peer(peerOptions, peerListener_, log_);

  // A request that was kept by the broker is an old one, which nobody may execute.
  broker.Client({"mosquitto_pub", "-t", "zor/gateway/call/cms/OLD", "-m", "{}", "-r"}).Wait();
  listener_.onDelivery = [&](const Delivery &request) {
    Publication reply = Plain(request.responseTopic, 7, "pong");
    reply.correlation = request.correlation;
    EXPECT_TRUE(link->Publish(reply));
  };
  ASSERT_TRUE(link->Start() && peer.Start());
  ASSERT_TRUE(listener_.Sees("connected") && peerListener_.Sees("connected"));
  Publication request = Plain("zor/gateway/call/cms/PING", 3, "ping");
  request.responseTo = "reply/peer";
  request.correlation = std::string("\0\xff", 2);
  request.expirySeconds = 30;
  request.properties = {{"schema", "1"}};
  ASSERT_TRUE(peer.Publish(request));
  ASSERT_TRUE(RunLoopUntil([&] { return !peerListener_.deliveries.empty() && !listener_.acknowledged.empty(); }));
  ASSERT_EQ(listener_.deliveries.size(), 1u);
  const Delivery &got = listener_.deliveries.front();
  EXPECT_EQ(got.topic + got.payload + got.responseTopic, "zor/gateway/call/cms/PINGpingreply/peer");
  EXPECT_EQ(got.correlation, request.correlation);
  EXPECT_TRUE(got.expirySeconds && *got.expirySeconds <= 30 && *got.expirySeconds > 0);
  EXPECT_EQ(got.properties, request.properties);
  EXPECT_FALSE(got.retained);
  EXPECT_EQ(peerListener_.deliveries[0].payload + peerListener_.deliveries[0].correlation,
            "pong" + request.correlation);
  EXPECT_THAT(listener_.acknowledged, ElementsAre(7));

  link.reset();  // as in a crash
  ASSERT_TRUE(RunLoopUntil([&] { return peerListener_.deliveries.size() == 2; }));
  EXPECT_EQ(peerListener_.deliveries[1].payload, "lost");
  link = std::make_unique<BrokerLink>(options, listener_, log_);
  ASSERT_TRUE(link->Start() && listener_.Sees("connected"));
  link->Stop(Plain("zor/gateway/presence", 0, "stopped"));
  ASSERT_TRUE(listener_.Sees("stopped"));
  ASSERT_TRUE(RunLoopUntil([&] { return peerListener_.deliveries.size() == 3; }));
  EXPECT_EQ(peerListener_.deliveries[2].payload, "stopped");
  EXPECT_TRUE(RunLoopUntil([&] { return broker.log().find("Client gateway disconnected.") != std::string::npos; }))
      << broker.log();
}

// Each of them is the first choice, and a good broker the second.
TEST_F(BrokerLinkTest, NamesWhatIsWrongWithABrokerOnceAndTakesTheNext) {
  const Authority stranger;
  test::Capture errors(2);
  Broker good = WithTls(authority_.Issue("DNS:localhost,IP:127.0.0.1"));
  Broker expired = WithTls(authority_.Issue("DNS:localhost", -1));
  Broker misnamed = WithTls(authority_.Issue("DNS:other,DNS:another"));
  Broker unknown = WithTls(stranger.Issue("DNS:localhost"));
  Broker refusing(root_.Path(""), "allow_anonymous false\n");
  const test::FakeBroker silent("");
  uint16_t closed = 0;
  const UniqueFd nobodyListens = test::BoundSocket(&closed);
  const auto url = [](const std::string &scheme, uint16_t port) {
    return scheme + "://localhost:" + std::to_string(port);
  };
  const std::pair<std::string, std::string> kCases[] = {
      {url("mqtt", closed), "cannot connect: Connection refused"},
      {url("mqtt", silent.port()), "it does not answer"},
      {"mqtt://name.invalid", "its name cannot be looked up"},
      {url("mqtt", refusing.port()), "the broker refuses this gateway: Not authorized"},
      {url("mqtt", good.port()), "closed the connection|reset by peer"},
      {url("mqtts", refusing.port()), "closed the connection|reset by peer"},
      {url("mqtts", expired.port()), "the broker's certificate has expired on 2"},
      {url("mqtts", misnamed.port()), "the broker's certificate is for other, another, not for localhost"},
      {url("mqtts", unknown.port()), "the broker's certificate is not signed by an authority of "},
  };
  for (const auto &[bad, why] : kCases) {
    auto options = To({bad, good.url("mqtts")});
    options.connectTime = milliseconds(why.starts_with("it does") ? 10000 : 60000);
    options.tls.authority = Write("authority", authority_.certificate());
    Listener listener;
    BrokerLink link(options, listener, log_);
    ASSERT_TRUE(link.Start() && listener.Sees("connected")) << bad;
    EXPECT_THAT(listener.happened, ElementsAre(ContainsRegex("failed: .*(" + why + ")"), "connected")) << bad;
    EXPECT_EQ(link.figures().broker, options.brokers[1].Text());
    EXPECT_EQ(link.figures().failures, 1u);
    EXPECT_THAT(errors.Text(), ContainsRegex(options.brokers[0].Text() + ": .*(" + why + ")"));
  }
}

TEST_F(BrokerLinkTest, ShowsItsCertificateAndPasswordAndDoesNotStartWithWorthlessFiles) {
  const bench::Issued own = authority_.Issue("DNS:gw-1,DNS:gw-2");
  const bench::Issued broken = authority_.Issue("DNS:localhost");
  const std::string passwords = Write("passwords", "user:secret\n");
  test::Child::Program({BROKER_PREFIX "/usr/bin/mosquitto_passwd", "-U", passwords}).Wait();
  Broker broker(root_.Path(""),
                Broker::WithTls(root_.Path(""), broken.certificate, broken.key, authority_.certificate()) +
                    "require_certificate true\nallow_anonymous false\npassword_file " + passwords + "\n");
  auto options = To({"mqtts://localhost:" + std::to_string(broker.port())});
  options.tls = {Write("authority", authority_.certificate()), Write("own.pem", own.certificate),
                 Write("own.key", own.key), Write("revoked", authority_.Revoke({own.serial}))};
  options.userName = "user";
  options.passwordFile = Write("password", "secret\n");
  BrokerLink link(options, listener_, log_);
  ASSERT_TRUE(link.Start() && listener_.Sees("connected"));

  std::string problem;
  EXPECT_EQ(NameFromCertificate(options.tls.certificate, &problem), "gw-1");
  EXPECT_EQ(NameFromCertificate(Write("plain", authority_.Issue("").certificate), &problem), "modem");
  EXPECT_EQ(problem, "");
  EXPECT_EQ(NameFromCertificate(options.tls.key, &problem), "");
  EXPECT_THAT(problem, HasSubstr("own.key: "));
  auto anonymous = options;
  anonymous.tls.certificate.clear();
  Listener refused;
  BrokerLink other(anonymous, refused, log_);
  ASSERT_TRUE(other.Start() && refused.Sees("failed: TLS: tlsv13 alert certificate required"));
  const auto spoils = std::to_array<std::function<void(BrokerLink::Options &)>>({
      [&](auto &each) { each.passwordFile = Write("open", "secret\n", 0604); },
      [&](auto &each) { each.passwordFile = "/none"; },
      [&](auto &each) { each.tls.key = Write("other", broken.key); },
      [&](auto &each) { each.tls.authority.clear(); },
      [&](auto &each) { each.tls.revoked = each.tls.key; },
      [&](auto &each) { each.brokers.clear(); },
  });
  for (const auto &spoil : spoils) {
    auto spoilt = options;
    spoil(spoilt);
    EXPECT_FALSE(BrokerLink(spoilt, listener_, log_).Start());
  }
}

TEST_F(BrokerLinkTest, OutlivesBrokersThatRestartOrHang) {
  Broker broker(root_.Path(""));
  auto options = To({broker.url()});
  options.ackTime = milliseconds(300);
  BrokerLink link(options, listener_, log_);
  ASSERT_TRUE(link.Start() && listener_.Sees("connected"));
  broker.Stop();
  ASSERT_TRUE(listener_.Sees("failed: cannot connect"));
  EXPECT_FALSE(link.Publish(Plain("event")));
  broker.Start();
  ASSERT_TRUE(listener_.Sees("connected"));
  broker.Signal(SIGSTOP);
  ASSERT_TRUE(link.Publish(Plain("event")));
  ASSERT_TRUE(RunLoopUntil([&] { return !link.connected(); }));
  EXPECT_THAT(listener_.happened, testing::Contains("disconnected: the broker does not acknowledge"));
  broker.Signal(SIGCONT);
  ASSERT_TRUE(listener_.Sees("connected"));
}

TEST_F(BrokerLinkTest, NamesASecondGatewayWithItsNameOnceAndStaysAwayLonger) {
  Broker broker(root_.Path(""));
  test::Capture errors(2);
  BrokerLink link(To({broker.url()}), listener_, log_);
  ASSERT_TRUE(link.Start() && listener_.Sees("connected"));
  // This broker does not say why it closes the connection of the first one.
  for (int time = 0; time < 4; ++time) {
    test::Child other = broker.Client({"mosquitto_sub", "-i", "gateway", "-t", "x"});
    ASSERT_TRUE(listener_.Sees(time < 2 ? "disconnected" : "is there a second gateway with the name gateway?"));
    other.Signal(SIGKILL);
    ASSERT_TRUE(listener_.Sees("connected"));
  }
  const std::string said = errors.Text();
  EXPECT_NE(said.find("second gateway"), std::string::npos);
  EXPECT_EQ(said.find("second gateway"), said.rfind("second gateway")) << said;
  // Others do.
  const test::FakeBroker fake(std::string("\x20\x03\x00\x00\x00\xe0\x02\x8e\x00", 9));
  auto options = To({fake.url()});
  options.retry.longest = std::chrono::hours(1000);
  Listener listener;
  BrokerLink taken(options, listener, log_);
  ASSERT_TRUE(taken.Start() && listener.Sees("disconnected: another client has connected to the broker as gateway"));
  broker.Stop();
  ASSERT_TRUE(listener_.Sees("failed") && listener_.Sees("failed"));
  EXPECT_EQ(taken.figures().connects, 1u);
}

TEST_F(BrokerLinkTest, GivesUpALineOnWhichNothingComesBack) {
  // It accepts the session, with a keep-alive of a second, and says nothing more.
  const test::FakeBroker fake(std::string("\x20\x06\x00\x00\x03\x13\x00\x01", 8));
  auto options = To({fake.url()});
  BrokerLink link(options, listener_, log_);
  ASSERT_TRUE(link.Start() && listener_.Sees("disconnected: the broker is silent"));
  options.ackTime = milliseconds(200);
  options.inFlight = 3;
  Listener listener;
  BrokerLink other(options, listener, log_);
  ASSERT_TRUE(other.Start() && listener.Sees("connected"));
  uint64_t token = 0;
  while (other.Publish(Plain("event", token + 1))) ++token;
  EXPECT_EQ(token, 3u);
  ASSERT_TRUE(RunLoopUntil([&] { return !other.connected(); }));
  EXPECT_THAT(listener.happened, testing::Contains("disconnected: the broker does not acknowledge"));
  EXPECT_THAT(listener.acknowledged, IsEmpty());

  // Of a packet of 256 MiB, as little as possible is stored.
  const test::FakeBroker boundless(std::string("\x20\x03\x00\x00\x00\x30\xff\xff\xff\x7f", 10) +
                                   std::string(1 << 20, 'x'));
  BrokerLink third(To({boundless.url()}), listener, log_);
  ASSERT_TRUE(third.Start() && listener.Sees("disconnected: the broker sends a packet that is too large"));
}

TEST_F(BrokerLinkTest, BoundsWhatIsUnderWayAndKeepsItsOrder) {
  Broker broker(root_.Path(""), "allow_anonymous true\nmax_packet_size 300000\nacl_file " +
                                    Write("rules", "topic readwrite zor/#\n") + "\n");
  auto options = To({broker.url()});
  options.subscriptions = {"zor/#"};
  options.inFlight = 8;
  BrokerLink link(options, listener_, log_);
  ASSERT_TRUE(link.Start() && listener_.Sees("connected"));
  constexpr uint64_t kCount = 3000;
  uint64_t next = 1;
  listener_.onRoom = [&] {
    while (next <= kCount && link.Publish(Plain("zor/event", next, std::string(next % 50 == 0 ? 200000 : 10, 'x'))))
      ++next;
  };
  listener_.onRoom();
  ASSERT_TRUE(RunLoopUntil([&] { return listener_.acknowledged.size() >= kCount; }));
  EXPECT_TRUE(std::is_sorted(listener_.acknowledged.begin(), listener_.acknowledged.end()));
  EXPECT_EQ(std::set(listener_.acknowledged.begin(), listener_.acknowledged.end()).size(), kCount);
  ASSERT_TRUE(RunLoopUntil([&] { return listener_.deliveries.size() == kCount; }));

  // What the broker will never take does not stand in the way of what follows.
  listener_.happened.clear();
  for (const auto &[topic, size] :
       {std::pair("zor/large", 8 << 20), {"zor/+/wild", 1}, {"other", 1}, {"zor/last", 1}}) {
    ASSERT_TRUE(link.Publish(Plain(topic, ++next, std::string(static_cast<size_t>(size), 'x')))) << topic;
  }
  ASSERT_TRUE(RunLoopUntil([&] { return listener_.happened.size() == 3 && listener_.acknowledged.back() == next; }));
  EXPECT_THAT(listener_.happened, testing::UnorderedElementsAre(HasSubstr("larger than"), HasSubstr("refused: "),
                                                                HasSubstr("Not authorized")));
  // The broker knows that more than 256 KiB at once are not wanted.
  broker.Client({"mosquitto_pub", "-t", "zor/in", "-q", "1", "-f", Write("large", std::string(280000, 'x'))}).Wait();
  broker.Client({"mosquitto_pub", "-t", "zor/in", "-q", "1", "-m", "small"}).Wait();
  ASSERT_TRUE(RunLoopUntil([&] { return listener_.deliveries.back().payload == "small"; }));
  EXPECT_EQ(listener_.deliveries.size(), kCount + 2);
}

}  // namespace
}  // namespace zor::bridge
