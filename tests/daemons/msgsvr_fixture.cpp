#include "msgsvr_fixture.h"

#include <zor/paths.h>

#include <csignal>
#include <cstdlib>
#include <fstream>

namespace zor::test {
namespace {

const char *OtherServer() {
  return std::getenv("ZOR_TEST_MSGSVR_SOCKET");
}

}  // namespace

void MsgsvrTest::SetUp() {
  Start();
}

void OwnMsgsvrTest::SetUp() {
  if (OtherServer() != nullptr) GTEST_SKIP() << "needs a server of its own";
}

void MsgsvrTest::TearDown() {
  if (!server_) return;
  server_->Signal(SIGTERM);
  EXPECT_EQ(server_->Wait(), 0) << log_.Text();
}

void MsgsvrTest::Start(const std::string &settings) {
  socketPath_ = OtherServer() != nullptr ? OtherServer() : root_.Path(ZOR_PATH_MSGSVR);
  if (OtherServer() == nullptr) {
    std::ofstream(root_.Path("/settings")) << settings;
    server_.emplace(Child::Program({MSGSVR_PROGRAM, "--settings", root_.Path("/settings")}));
    ASSERT_TRUE(server_->WaitForOutput("msgsvr: listening on /var/msgsvr\n")) << log_.Text();
  }
  sender_ = Client("sender");
  receiver_ = Client("receiver");
}

bool MsgsvrTest::LogHolds(const std::string &text) {
  return WaitUntil([&] { return log_.Text().find(text) != std::string::npos; });
}

WireClient MsgsvrTest::Client(const std::string &name) const {
  WireClient client = Connect();
  EXPECT_EQ(NameOf(client.Register(name).header.destination), name);
  return client;
}

std::string MsgsvrTest::MakeFile(const std::string &content, const std::string &name) const {
  std::filesystem::remove(RealPath(ZOR_PATH_MSG_FILE_DIR + name));
  std::ofstream(RealPath(ZOR_PATH_MSG_FILE_DIR + name)) << content;
  return ZOR_PATH_MSG_FILE_DIR + name;
}

std::string MsgsvrTest::RealPath(const std::string &fixedPath) const {
  return socketPath_.substr(0, socketPath_.size() - std::string(ZOR_PATH_MSGSVR).size()) + fixedPath;
}

std::string NameOf(const char (&field)[ZOR_MSG_NAME_SIZE]) {
  return {field, ::strnlen(field, sizeof field)};
}

Message MakeRequest(uint32_t type, const std::string &body, uint32_t data, uint32_t sequence) {
  return MakeMessage(type, "", "", data, body, sequence);
}

Message MakeCount(const std::string &name) {
  return MakeRequest(ZOR_MSG_GET_PROCESS_NUM, name, 0, 6);
}

Message MakeFileMessage(uint32_t type, const std::string &destination, std::string path) {
  path.resize(ZOR_MSG_FILE_PATH_SIZE);
  return MakeMessage(type | ZOR_MSG_BODY_IN_FILE, "", destination, 0, path);
}

bool IsNotice(const Message &message, uint32_t type) {
  return message.header.type == ZOR_MSG_SEND_FAILED_NOTICE && message.header.data == type &&
         message.header.bodyLength == 0 && NameOf(message.header.source).empty();
}

void Tell(const WireClient &client, const Message &message) {
  client.Send(message);
  EXPECT_EQ(client.Ask(MakeCount("nobody")).header.type, ZOR_MSG_GET_PROCESS_NUM);
}

void ExpectGone(const WireClient &client, const std::string &name) {
  EXPECT_TRUE(WaitUntil([&] { return client.Ask(MakeCount(name)).header.data == 0; })) << name;
}

}  // namespace zor::test
