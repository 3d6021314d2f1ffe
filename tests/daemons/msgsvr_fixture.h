// A message server and clients that speak frames. When the environment variable ZOR_TEST_MSGSVR_SOCKET names the socket
// of another server, the tests of the protocol run against that one.
#ifndef TESTS_DAEMONS_MSGSVR_FIXTURE_H
#define TESTS_DAEMONS_MSGSVR_FIXTURE_H

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

#include "support/capture.h"
#include "support/child.h"
#include "support/temp_root.h"
#include "support/wire_client.h"

namespace zor::test {

inline constexpr uint32_t kType = 0x1234;  // of ordinary messages

class MsgsvrTest : public testing::Test {
 protected:
  void SetUp() override;
  // Every test also checks that the server ends well, without a leak.
  void TearDown() override;

  // Starts the server and waits until it listens, then connects the two clients.
  void Start(const std::string &settings = "");
  bool LogHolds(const std::string &text);

  WireClient Connect() const { return WireClient::Connect(socketPath_); }
  // A client that has been granted the name.
  WireClient Client(const std::string &name) const;

  // Makes a message file of this user that holds a text, replacing an older one; its fixed path.
  std::string MakeFile(const std::string &content = "content", const std::string &name = "msg_file_1") const;
  // Where a fixed path lies beneath the server's root.
  std::string RealPath(const std::string &fixedPath) const;
  bool Exists(const std::string &fixedPath) const { return std::filesystem::exists(RealPath(fixedPath)); }

  TempRoot root_;
  Capture log_{2};
  std::optional<Child> server_;
  WireClient sender_, receiver_;  // of these names

 private:
  std::string socketPath_;
};

// Tests that need a server with settings of their own, or its log: they start it themselves.
class OwnMsgsvrTest : public MsgsvrTest {
 protected:
  void SetUp() override;
};

std::string NameOf(const char (&field)[ZOR_MSG_NAME_SIZE]);

// A request to the server itself.
Message MakeRequest(uint32_t type, const std::string &body = "", uint32_t data = 0, uint32_t sequence = 0);

// How many bear the name.
Message MakeCount(const std::string &name);

// A message whose body lies in a file.
Message MakeFileMessage(uint32_t type, const std::string &destination, std::string path);

// Whether it is the notice that a message of that type was not delivered.
bool IsNotice(const Message &message, uint32_t type);

// Sends a message that is not answered and waits until the server has handled it: its answer to a question says so.
void Tell(const WireClient &client, const Message &message);

// Waits until nobody bears the name any more.
void ExpectGone(const WireClient &client, const std::string &name);

}  // namespace zor::test

#endif
