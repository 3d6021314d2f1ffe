// A message server of the test's own, with clients that speak frames. When the environment variable
// ZOR_TEST_MSGSVR_SOCKET names the socket of another server, the tests of the protocol run against that one; those that
// need a server with settings of their own, or its log, are skipped then.
#ifndef TESTS_DAEMONS_MSGSVR_FIXTURE_H
#define TESTS_DAEMONS_MSGSVR_FIXTURE_H

#include <gtest/gtest.h>

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
  // A server that outlives the test must not show the next one its files.
  ~MsgsvrTest() override;

  // Starts the server and waits until it listens.
  void Start(const std::string &settings = "");
  // The same, but skips the test when another server is named; what the server logs is in LogText().
  void StartOwn(const std::string &settings);
  std::string LogText() { return log_->Text(); }
  bool LogHolds(const std::string &text);

  WireClient Connect() const { return WireClient::Connect(socketPath_); }
  // A client that has been granted the name.
  WireClient Client(const std::string &name) const;

  // Makes a message file that belongs to this user; its fixed path.
  std::string MakeMessageFile(const std::string &name, const std::string &content) const;
  // Where a fixed path lies beneath the server's root.
  std::string RealPath(const std::string &fixedPath) const;

  TempRoot root_;
  std::optional<Child> server_;

 private:
  std::optional<Capture> log_;
  std::string socketPath_;
};

std::string NameOf(const char (&field)[ZOR_MSG_NAME_SIZE]);

// A name as a 12-byte body.
std::string NameBody(const std::string &name);

// A message whose body lies in a file.
Message MakeFileMessage(uint32_t type, const std::string &destination, std::string path);

// Whether it is the notice that a message of that type was not delivered.
bool IsNotice(const Message &message, uint32_t type);

// Waits until the server has handled everything that the client sent: its answer to a question says so.
void Settle(const WireClient &client);

// Waits until nobody bears the name any more; false after the deadline.
bool WaitUntilGone(const WireClient &client, const std::string &name);

}  // namespace zor::test

#endif
