// The tool's line to a broker over TLS: whom it trusts, and what it says when it does not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "bench/certificates.h"
#include "daemons/broker.h"
#include "support/temp_root.h"
#include "zorctl/exit_code.h"
#include "zorctl/fleet_line.h"

namespace zor::ctl {
namespace {

using bench::Authority;
using bench::Issued;
using test::Broker;
using testing::HasSubstr;

class FleetLineTest : public testing::Test {
 protected:
  std::string Write(const std::string &name, const std::string &text, mode_t mode = 0600) const {
    const std::string path = root_.Path("/" + name);
    std::ofstream(path) << text;
    ::chmod(path.c_str(), mode);
    return path;
  }

  // What the tool says of a broker with this certificate; empty when it has connected.
  std::string Problem(const Issued &broker, const FleetOptions &options, const std::string &more = "") const {
    const Broker server(
        root_.Path(""),
        Broker::WithTls(root_.Path(""), broker.certificate, broker.key, authority_.certificate()) + more);
    FleetOptions all = options;
    all.url = server.url("mqtts");
    return ProblemAt(all);
  }
  static FleetOptions Trusting(const std::string &authority) {
    FleetOptions options;
    options.authority = authority;
    return options;
  }
  static std::string ProblemAt(const FleetOptions &options) try {
    const auto line = OpenMqttLine(AccessOf(options), Deadline(std::chrono::seconds(60)));
    line->Subscribe({"mine"}, 1, Deadline(std::chrono::seconds(60)));
    line->Publish({"mine", std::string(size_t{1} << 20, 'x'), "", "c", 0});
    const auto delivery = line->Receive(Deadline(std::chrono::seconds(60)));
    return delivery && delivery->payload.size() == size_t{1} << 20 && delivery->correlation == "c" ? ""
                                                                                                   : "not delivered";
  } catch (const Failure &failure) {
    return failure.what();
  }

  const test::TempRoot root_;
  const Authority authority_;
  const Issued good_ = authority_.Issue("IP:127.0.0.1");
  const std::string ca_ = Write("ca.pem", authority_.certificate());
};

TEST_F(FleetLineTest, TrustsOnlyACurrentCertificateOfItsAuthorityForTheBroker) {
  const FleetOptions options = Trusting(ca_);
  EXPECT_EQ(Problem(good_, options), "");
  EXPECT_THAT(Problem(authority_.Issue("DNS:other"), options), HasSubstr("is not accepted: IP address mismatch"));
  EXPECT_THAT(Problem(authority_.Issue("IP:127.0.0.1", -1), options), HasSubstr("certificate has expired"));
  EXPECT_THAT(Problem(good_, Trusting(Write("other.pem", Authority().certificate()))), HasSubstr("is not accepted"));
  EXPECT_EQ(Problem(good_, Trusting(root_.Path("/none"))), "the files for TLS cannot be used");
}

TEST_F(FleetLineTest, ShowsItsCertificateToABrokerThatWantsOne) {
  const Issued own = authority_.Issue("DNS:operator");
  FleetOptions options = Trusting(ca_);
  options.certificate = Write("own.pem", own.certificate);
  options.key = Write("key", own.key);
  const std::string wanted = "require_certificate true\nuse_identity_as_username true\n";
  EXPECT_EQ(Problem(good_, options, wanted), "");
  EXPECT_THAT(Problem(good_, Trusting(ca_), wanted), HasSubstr("no connection to the broker"));
  ::chmod(options.key.c_str(), 0644);
  EXPECT_EQ(Problem(good_, options, wanted), "the files for TLS cannot be used") << "anyone could read the key";
}

TEST_F(FleetLineTest, FailsWithoutTlsAndWithAPasswordThatAnyoneCouldRead) {
  const Broker plain(root_.Path(""));
  FleetOptions options = Trusting(ca_);
  options.url = plain.url("mqtts");
  EXPECT_THAT(ProblemAt(options), HasSubstr("no connection to the broker"));
  options.url = "mqtt://me@127.0.0.1:" + std::to_string(plain.port());
  options.passwordFile = Write("password", "secret\n", 0644);
  EXPECT_EQ(ProblemAt(options), "the password cannot be read");
  ::chmod(options.passwordFile.c_str(), 0600);
  EXPECT_EQ(ProblemAt(options), "");
}

}  // namespace
}  // namespace zor::ctl
