// A message server and clients that speak frames. When the environment variable ZOR_TEST_MSGSVR_SOCKET names the socket
// of another server, the tests of the protocol run against that one.
#ifndef TESTS_DAEMONS_MSGSVR_FIXTURE_H
#define TESTS_DAEMONS_MSGSVR_FIXTURE_H

#include <gtest/gtest.h>
#include <zor/paths.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "support/capture.h"
#include "support/child.h"
#include "support/temp_root.h"
#include "support/wire_client.h"

namespace zor::test {

inline constexpr uint32_t kType = 0x1234;  // type of ordinary messages

inline std::string NameOf(const char (&field)[ZOR_MSG_NAME_SIZE]) {
  return {field, ::strnlen(field, sizeof field)};
}

// A request to the server itself.
inline Message MakeRequest(uint32_t type, const std::string &body = "", uint32_t data = 0, uint32_t sequence = 0) {
  return MakeMessage(type, "", "", data, body, sequence);
}

// How many clients have the name.
inline Message MakeCount(const std::string &name) {
  return MakeRequest(ZOR_MSG_GET_PROCESS_NUM, name, 0, 6);
}

// A message whose body is in a file.
inline Message MakeFileMessage(uint32_t type, const std::string &destination, std::string path) {
  path.resize(ZOR_MSG_FILE_PATH_SIZE);
  return MakeMessage(type | ZOR_MSG_BODY_IN_FILE, "", destination, 0, path);
}

// Whether it is the notice that a message of that type was not delivered.
inline bool IsNotice(const Message &message, uint32_t type) {
  return message.header.type == ZOR_MSG_SEND_FAILED_NOTICE && message.header.data == type &&
         message.header.bodyLength == 0 && NameOf(message.header.source).empty();
}

// Sends a one-way message and waits until the server has handled it, shown by its reply to a later request.
inline void Tell(const WireClient &client, const Message &message) {
  client.Send(message);
  EXPECT_EQ(client.Ask(MakeCount("nobody")).header.type, ZOR_MSG_GET_PROCESS_NUM);
}

// Waits until that many clients have the name.
inline void AwaitCount(const WireClient &client, const std::string &name, uint32_t count) {
  EXPECT_TRUE(WaitUntil([&] { return client.Ask(MakeCount(name)).header.data == count; })) << name;
}

class MsgsvrTest : public testing::Test {
 protected:
  void SetUp() override { Start(); }
  // Every test also checks that the server exits cleanly, without a leak.
  void TearDown() override {
    if (!server_) return;
    server_->Signal(SIGTERM);
    EXPECT_EQ(server_->Wait(), 0) << log_.Text();
  }

  // Starts the server and waits until it listens, then connects the two clients.
  void Start(const std::string &settings = "") {
    if (other_ == nullptr) {
      std::ofstream(root_.Path("/settings")) << settings;
      server_.emplace(Child::Program({program_, "--settings", root_.Path("/settings")}));
      ASSERT_TRUE(server_->WaitForOutput("msgsvr: listening on /var/msgsvr\n")) << log_.Text();
    }
    sender_ = Client("sender");
    receiver_ = Client("receiver");
  }
  bool LogHolds(const std::string &text) {
    return WaitUntil([&] { return log_.Text().find(text) != std::string::npos; });
  }

  WireClient Connect() const { return WireClient::Connect(RealPath(ZOR_PATH_MSGSVR)); }
  // A client that has been granted the name.
  WireClient Client(const std::string &name) const {
    WireClient client = Connect();
    EXPECT_EQ(NameOf(client.Register(name).header.destination), name);
    return client;
  }

  // A fixed path beneath the server's root.
  std::string RealPath(const std::string &fixedPath) const {
    const std::string socket = other_ == nullptr ? root_.Path(ZOR_PATH_MSGSVR) : other_;
    return socket.substr(0, socket.size() - std::string(ZOR_PATH_MSGSVR).size()) + fixedPath;
  }
  bool Exists(const std::string &fixedPath) const { return std::filesystem::exists(RealPath(fixedPath)); }
  // The reply to a request, with its body fetched if that is in a file.
  Message AskAndFetch(const WireClient &client, const Message &request) const {
    return client.AskAndFetch(request, RealPath(""));
  }
  // Writes a text to a message file of this user, replacing an older one; returns its fixed path.
  std::string MakeFile(const std::string &content = "content", const std::string &name = "msg_file_1") const {
    const std::string path = ZOR_PATH_MSG_FILE_DIR + name;
    std::filesystem::remove(RealPath(path));
    std::ofstream(RealPath(path)) << content;
    return path;
  }

  const char *other_ = std::getenv("ZOR_TEST_MSGSVR_SOCKET");
  TempRoot root_;
  std::string program_ = MSGSVR_PROGRAM;
  Capture log_{2};
  std::optional<Child> server_;
  WireClient sender_, receiver_;  // registered under these names
};

// Tests that need their own settings or the server's log: they start it themselves.
class OwnMsgsvrTest : public MsgsvrTest {
 protected:
  void SetUp() override {
    if (other_ != nullptr) GTEST_SKIP() << "needs a server of its own";
  }
};

}  // namespace zor::test

#endif
