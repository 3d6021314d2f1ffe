#include "daemons/notifyserver_fixture.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zor/paths.h>

#include <csignal>
#include <fstream>

namespace zor::test {

void NotifyServerTest::Start(const std::string &settings) {
  std::vector<std::string> arguments = {NOTIFYSERVER};
  if (!settings.empty()) {
    const std::string path = root_.Path("/settings");
    std::ofstream(path) << settings;
    arguments.insert(arguments.end(), {"--settings", path});
  }
  log_ = std::make_unique<Capture>(STDERR_FILENO);
  server_ = std::make_unique<Child>(Child::Program(arguments));
  ASSERT_TRUE(server_->WaitForOutput("notifyserver: listening on /var/run/notify/notifyserver\n"));
}

std::string NotifyServerTest::Stop() {
  server_->Signal(SIGTERM);
  EXPECT_EQ(server_->Wait(), 0);
  std::string text = log_->Text();
  log_.reset();
  return text;
}

int NotifyServerTest::ExitCodeOf(const std::vector<std::string> &arguments) {
  std::vector<std::string> all = {NOTIFYSERVER};
  all.insert(all.end(), arguments.begin(), arguments.end());
  const Capture output(STDERR_FILENO);
  return Child::Program(all).Wait();
}

BusPeer NotifyServerTest::Connect() const {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  root_.Path(ZOR_PATH_NOTIFY_SERVER).copy(address.sun_path, sizeof address.sun_path - 1);
  EXPECT_EQ(::connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
  return BusPeer(fd);
}

BusPeer NotifyServerTest::Register(uint32_t mid) const {
  BusPeer client = Connect();
  client.Send(MakeRegistration(mid).Bytes());
  Settle(client, mid);
  return client;
}

// Nobody registers the server's own id, so a request to it comes back at once.
void NotifyServerTest::Settle(const BusPeer &client, uint32_t mid) {
  const NotifyFrame ping = MakeRequest(0x7fffffff, 0x7fffffff, mid, ZOR_NOTIFY_MID_SERVER);
  client.Send(ping.Bytes());
  const auto answer = ReceiveNotify(client);
  ASSERT_TRUE(answer);
  ASSERT_EQ(answer->Bytes(), MakeAnswer(ping).Bytes());
}

}  // namespace zor::test
