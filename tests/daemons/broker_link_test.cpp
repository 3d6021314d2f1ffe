// The line to a broker: a real one, which is stopped, slowed down and replaced.
#include <gmock/gmock.h>

#include "broker.h"
#include "support/temp_root.h"

namespace zor::test {
namespace {

TEST(BrokerFixture, RestartsOnItsPort) {
  const TempRoot root;
  Broker broker(root.Path(""));
  broker.Client({"mosquitto_pub", "-t", "kept", "-m", "text", "-r"}).Wait();
  Child sub = broker.Client({"mosquitto_sub", "-v", "-t", "#"});
  EXPECT_TRUE(sub.WaitForOutput("kept text\n"));
  broker.Stop();
  broker.Start();
  Child again = broker.Client({"mosquitto_sub", "-v", "-t", "#"});
  broker.Client({"mosquitto_pub", "-t", "kept", "-m", "text", "-r"}).Wait();
  EXPECT_TRUE(again.WaitForOutput("kept text\n"));
}

}  // namespace
}  // namespace zor::test
