#include "msgsvr_fixture.h"

#include <zor/paths.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace zor::test {
namespace {

const char *OtherServer() {
  return std::getenv("ZOR_TEST_MSGSVR_SOCKET");
}

}  // namespace

MsgsvrTest::~MsgsvrTest() {
  if (OtherServer() == nullptr || socketPath_.empty()) return;
  for (const auto &entry : std::filesystem::directory_iterator(RealPath(ZOR_PATH_MSG_FILE_DIR))) {
    std::filesystem::remove_all(entry.path());
  }
}

void MsgsvrTest::Start(const std::string &settings) {
  if (const char *other = OtherServer()) {
    socketPath_ = other;
    return;
  }
  std::filesystem::create_directories(root_.Path("/etc/zor"));
  std::ofstream(root_.Path("/etc/zor/msgsvr.conf")) << settings;
  socketPath_ = root_.Path(ZOR_PATH_MSGSVR);
  log_.emplace(2);
  server_.emplace(Child::Program({MSGSVR_PROGRAM}));
  ASSERT_TRUE(server_->WaitForOutput("msgsvr: listening on /var/msgsvr\n")) << LogText();
}

void MsgsvrTest::StartOwn(const std::string &settings) {
  if (OtherServer() != nullptr) GTEST_SKIP() << "needs a server of its own";
  Start(settings);
}

bool MsgsvrTest::LogHolds(const std::string &text) {
  return WaitUntil([&] { return LogText().find(text) != std::string::npos; });
}

WireClient MsgsvrTest::Client(const std::string &name) const {
  WireClient client = Connect();
  EXPECT_EQ(NameOf(client.Register(name).header.destination), name);
  return client;
}

std::string MsgsvrTest::MakeMessageFile(const std::string &name, const std::string &content) const {
  const std::string path = ZOR_PATH_MSG_FILE_DIR + name;
  std::ofstream(RealPath(path)) << content;
  return path;
}

std::string MsgsvrTest::RealPath(const std::string &fixedPath) const {
  return socketPath_.substr(0, socketPath_.size() - std::string(ZOR_PATH_MSGSVR).size()) + fixedPath;
}

std::string NameOf(const char (&field)[ZOR_MSG_NAME_SIZE]) {
  return {field, ::strnlen(field, sizeof field)};
}

std::string NameBody(const std::string &name) {
  std::string body = name;
  body.resize(ZOR_MSG_NAME_SIZE);
  return body;
}

Message MakeFileMessage(uint32_t type, const std::string &destination, std::string path) {
  path.resize(ZOR_MSG_FILE_PATH_SIZE);
  return MakeMessage(type | ZOR_MSG_BODY_IN_FILE, "", destination, 0, path);
}

bool IsNotice(const Message &message, uint32_t type) {
  return message.header.type == ZOR_MSG_SEND_FAILED_NOTICE && message.header.data == type &&
         message.header.bodyLength == 0 && NameOf(message.header.source).empty();
}

void Settle(const WireClient &client) {
  EXPECT_EQ(client.Ask(MakeMessage(ZOR_MSG_GET_PROCESS_NUM, "", "", 0, NameBody("nobody"))).header.type,
            ZOR_MSG_GET_PROCESS_NUM);
}

bool WaitUntilGone(const WireClient &client, const std::string &name) {
  const Message count = MakeMessage(ZOR_MSG_GET_PROCESS_NUM, "", "", 0, NameBody(name));
  return WaitUntil([&] { return client.Ask(count).header.data == 0; });
}

}  // namespace zor::test
