#include "daemons/notifyserver_fixture.h"

#include <zor/paths.h>

#include <csignal>
#include <fstream>

#include "support/wire_client.h"

namespace zor::test {

Child NotifyServerTest::Run(const std::string &settings) const {
  const std::string path = root_.Path("/settings");
  std::ofstream(path) << settings;
  return Child::Program({NOTIFYSERVER, "--settings", path});
}

void NotifyServerTest::Start(const std::string &settings) {
  log_.reset();  // before the next one replaces it
  log_ = std::make_unique<Capture>(STDERR_FILENO);
  server_ = std::make_unique<Child>(Run(settings));
  ASSERT_TRUE(server_->WaitForOutput("notifyserver: listening on /var/run/notify/notifyserver\n"));
}

std::string NotifyServerTest::Stop() {
  server_->Signal(SIGTERM);
  EXPECT_EQ(server_->Wait(), 0);
  std::string text = log_->Text();
  log_.reset();
  return text;
}

BusPeer NotifyServerTest::Connect() const {
  return WireClient::Connect(root_.Path(ZOR_PATH_NOTIFY_SERVER));
}

BusPeer NotifyServerTest::Register(uint32_t mid) const {
  BusPeer client = Connect();
  client.Send(MakeRegistration(mid).Bytes());
  Settle(client, mid);
  return client;
}

// No client registers the server's own id, so a request to it returns at once.
void NotifyServerTest::Settle(const BusPeer &client, uint32_t mid) {
  const NotifyFrame ping = MakeRequest(0x7fffffff, 0x7fffffff, mid, ZOR_NOTIFY_MID_SERVER);
  client.Send(ping.Bytes());
  const auto reply = ReceiveNotify(client);
  ASSERT_TRUE(reply);
  ASSERT_EQ(reply->Bytes(), MakeReply(ping).Bytes());
}

}  // namespace zor::test
