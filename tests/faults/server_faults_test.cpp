// One system call or allocation of a server or daemon fails, each in turn. Whatever it was for: the program does not
// crash or hang, leaks no descriptor, and afterwards honest clients are served. Where it fails while the program
// starts, the program may end with an exit status of its own instead.
//
// A kind of which there are many is walked in steps; FAULT_STEP=1 in the environment walks through all of it.
#include <gtest/gtest.h>
#include <unistd.h>
#include <zor/config_wire.h>
#include <zor/control_wire.h>
#include <zor/log_wire.h>
#include <zor/mlog.h>
#include <zor/paths.h>
#include <zor/platform/config.h>
#include <zor/platform/config_file.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/child.h"
#include "support/notify_frame.h"
#include "support/preload.h"
#include "support/temp_root.h"
#include "support/wire_client.h"

namespace zor::test {
namespace {

namespace fs = std::filesystem;
using Milliseconds = std::chrono::milliseconds;

constexpr uint32_t kCms = 8;
constexpr uint32_t kWeb = 26;
constexpr uint32_t kType = 0x1234;
constexpr uint32_t kEvent = 0x2DA10;
constexpr long kMostCalls = 20000;  // more than any scenario makes

// How long a conversation goes on in which the fault may have lost a message; the result does not matter then.
constexpr Milliseconds kBriefly{300};

// Made when the fault has happened.
constexpr char kReached[] = "/reached";

struct Server {
  const char *name;
  const char *program;
  const char *ready;  // what it says when it serves
  // A conversation of honest clients, which reaches every call; whether they were served.
  bool (*serves)(const TempRoot &root, Milliseconds deadline);
  bool onBus = false;  // it is a client of the other servers
  // The variable of a successor: only that one has the fault. It may end, or cut off and name a client.
  const char *onlyIf = nullptr;
};

bool Converse(const TempRoot &root, Milliseconds deadline) {
  const BusPeer cms = WireClient::Connect(root.Path(ZOR_PATH_NOTIFY_SERVER));
  const BusPeer web = WireClient::Connect(root.Path(ZOR_PATH_NOTIFY_SERVER));
  cms.Send(MakeRegistration(kCms).Bytes() + MakeRequest(1, 1, kCms, ZOR_NOTIFY_MID_SERVER).Bytes());
  if (!ReceiveNotify(cms, deadline)) return false;
  // More than a socket holds, so that it is queued too.
  const NotifyFrame request = MakeRequest(0x55, 7, kWeb, kCms, std::string(500'000, 'a'));
  web.Send(MakeRegistration(kWeb).Bytes() + request.Bytes());
  if (!ReceiveNotify(cms, deadline)) return false;
  cms.Send(MakeReply(request, "result").Bytes());
  const auto reply = ReceiveNotify(web, deadline);
  return reply && reply->data == "result";
}

bool KeepsStatistics(const TempRoot &, Milliseconds) {
  mlog_print("faults", ZOR_MLOG_INFO, "a line that is too long for a small string of the standard library");
  char value[64] = "";
  return set_mlog_stat_info("faults", "a value that is not short either") == 0 &&
         get_mlog_stat_info("faults", value, sizeof value) == 0 &&
         std::string(value) == "a value that is not short either";
}

// A client of the message server; not connected when the server did not reply.
std::optional<WireClient> Join(const TempRoot &root, const std::string &name, Milliseconds deadline) {
  WireClient client = WireClient::Connect(root.Path(ZOR_PATH_MSGSVR));
  client.Send(MakeMessage(ZOR_MSG_REGISTER_APP, name, ""));
  if (!client.ReceiveMessage(deadline)) return std::nullopt;
  return client;
}

// What an abandoned conversation has left on its way must not reach the next one, which would take it for its own.
std::string FreshName(const std::string &name) {
  static unsigned conversations = 0;
  return name + std::to_string(++conversations % 1000);
}

// Whether the next message is of this type and data word.
bool Gets(const WireClient &client, Milliseconds deadline, uint32_t type, uint32_t data = 0) {
  const auto message = client.ReceiveMessage(deadline);
  return message && message->header.type == type && message->header.data == data;
}

bool PassesMessages(const TempRoot &root, Milliseconds deadline) {
  constexpr uint32_t kCount =
      400'000 / ZOR_MSG_INLINE_BODY_MAX;  // more than a socket holds, so that they are queued too
  const std::string from = FreshName("from"), to = FreshName("to");
  const auto sender = Join(root, from, deadline);
  const auto receiver = Join(root, to, deadline);
  if (!sender || !receiver) return false;
  receiver->Send(MakeMessage(ZOR_MSG_SUBSCRIBE_EVENT, "", "", kEvent, std::string(to.c_str(), to.size() + 1)));
  receiver->Send(MakeMessage(ZOR_MSG_GET_PROCESS_NUM, "", "", 0, from));
  if (!Gets(*receiver, deadline, ZOR_MSG_GET_PROCESS_NUM, 1)) return false;
  sender->Send(MakeMessage(kEvent, "", "mic", 5));
  if (!Gets(*receiver, deadline, kEvent, 5)) return false;

  std::string path = std::string(ZOR_PATH_MSG_FILE_DIR) + "msg_file_1";
  std::ofstream(root.Path(path)) << "content";
  path.resize(ZOR_MSG_FILE_PATH_SIZE);
  sender->Send(MakeMessage(kType | ZOR_MSG_BODY_IN_FILE, "", to, 0, path));
  if (!Gets(*receiver, deadline, kType | ZOR_MSG_BODY_IN_FILE)) return false;

  const std::string body(ZOR_MSG_INLINE_BODY_MAX, 'a');
  for (uint32_t i = 0; i < kCount; ++i) sender->Send(MakeMessage(kType, "", to, i, body));
  sender->Send(MakeMessage(kType, "", "absent", 1));
  if (!Gets(*sender, deadline, ZOR_MSG_SEND_FAILED_NOTICE, kType)) return false;
  for (uint32_t i = 0; i < kCount; ++i) {
    if (!Gets(*receiver, deadline, kType, i)) return false;
  }
  receiver->Send(MakeMessage(kType, "", from));
  receiver->SendDescriptor(receiver->fd());
  return Gets(*sender, deadline, kType) && sender->Receive(2, deadline) == std::string(2, '\0');
}

// The server replaces itself. It may refuse that once, because of the fault.
bool HandsOver(const TempRoot &root, Milliseconds deadline) {
  const std::string from = FreshName("from"), to = FreshName("to");
  const auto sender = Join(root, from, deadline);
  const auto receiver = Join(root, to, deadline);
  if (!sender || !receiver) return false;
  const std::string body(ZOR_MSG_INLINE_BODY_MAX, 'a');
  constexpr uint32_t kCount = 300'000 / ZOR_MSG_INLINE_BODY_MAX;  // some stay in the server
  for (uint32_t i = 0; i < kCount; ++i) sender->Send(MakeMessage(kType, "", to, i, body));
  sender->Send(MakeMessage(ZOR_MSG_CONTROL_RESTART, "", ""));
  const auto reply = sender->ReceiveMessage(deadline);
  if (!reply || reply->header.type != ZOR_MSG_CONTROL_RESTART) return false;
  for (uint32_t i = 0; i < kCount; ++i) {
    if (!Gets(*receiver, deadline, kType, i)) return false;
  }
  if (reply->header.data == ZOR_CONTROL_OK) return true;
  return fs::exists(root.Path(kReached)) && fs::create_directory(root.Path("/refused"));
}

// Asks a daemon that is on the bus: the data word of the reply.
std::optional<uint32_t> Ask(const WireClient &client, Milliseconds deadline, const std::string &name, uint32_t type,
                            const std::string &body = {}) {
  client.Send(MakeMessage(type, "", name, 0, body));
  const auto reply = client.ReceiveMessage(deadline);
  if (!reply || reply->header.type != type) return std::nullopt;
  return reply->header.data;
}

bool SavesConfiguration(const TempRoot &root, Milliseconds deadline) {
  constexpr uint32_t kPara = 7;
  ZOR_DBSetPara(kPara, 0, "saved", 6);
  const auto web = Join(root, FreshName("web"), deadline);
  const std::string path("/export.db", 11);
  if (!web || Ask(*web, deadline, "cms", ZOR_MSG_DB_SAVE_SYNC) != 0 ||
      Ask(*web, deadline, "cms", ZOR_MSG_EXPORT_CFG_FILE, path) != 0) {
    return false;
  }
  ZOR_DBSetPara(kPara, 0, "changed", 8);
  if (Ask(*web, deadline, "cms", ZOR_MSG_IMPORT_CFG_FILE, path) != 0) return false;
  char value[16] = "";
  ZOR_DBGetPara(kPara, 0, value, sizeof value - 1);
  return std::string(value) == "saved";
}

bool KeepsRecords(const TempRoot &root, Milliseconds deadline) {
  const ZOR_LOG_RECORD record = {0, 0, 0, 0x1E080001, 1, 8, "someone"};  // its sender waits
  ZOR_LOG_QUERY query = {ZOR_LOG_USER, 0xffffffff, 1, "/var/syslog/result"};
  const auto web = Join(root, FreshName("web"), deadline);
  return web &&
         Ask(*web, deadline, "syslog", ZOR_LOG_MSG_RECORD,
             std::string(reinterpret_cast<const char *>(&record), sizeof record)) == 0 &&
         Ask(*web, deadline, "syslog", ZOR_LOG_MSG_SYSTEM_QUERY,
             std::string(reinterpret_cast<const char *>(&query), sizeof query)) == 1;
}

constexpr Server kMsgsvr = {"msgsvr", MSGSVR, "listening", PassesMessages};
constexpr Server kHandOver = {"msgsvr", MSGSVR, "listening", HandsOver};
constexpr Server kSuccessor = {"msgsvr", MSGSVR, "listening", HandsOver, false, "ZOR_HANDOVER"};
constexpr Server kNotifyServer = {"notifyserver", NOTIFYSERVER, "listening", Converse};
constexpr Server kMlogServer = {"mlogserver", MLOGSERVER, "listening", KeepsStatistics};
constexpr Server kConfiguration = {"cms", CMS, "on the bus", SavesConfiguration, true};
constexpr Server kLog = {"syslogd", SYSLOGD, "on the bus", KeepsRecords, true};

struct Case {
  const Server *server;
  const char *call;
  int error;      // 0: a short count
  long step = 1;  // between the calls that fail, where there are many
};

void PrintTo(const Case &each, std::ostream *out) {
  *out << each.server->name << ", " << each.call << " " << each.error;
}

size_t DescriptorsOf(pid_t pid) {
  std::error_code ignored;
  const fs::directory_iterator found("/proc/" + std::to_string(pid) + "/fd", ignored);
  return static_cast<size_t>(std::distance(begin(found), end(found)));
}

// When its clients have gone, and what it opens when it is used is open.
size_t DescriptorsAtRest(pid_t pid) {
  size_t least = SIZE_MAX;
  WaitUntil([&] { return (least = std::min(least, DescriptorsOf(pid))) == 0; }, kBriefly);
  return least;
}

class ServerFaults : public testing::TestWithParam<Case> {
 protected:
  ServerFaults() {
    ::setenv("FAULT_PROGRAM", server_.name, 1);
    ::setenv("FAULT_CALL", GetParam().call, 1);
    if (server_.onlyIf != nullptr) ::setenv("FAULT_IF", server_.onlyIf, 1);
    ::setenv("FAULT_ERROR", std::to_string(GetParam().error).c_str(), 1);
  }
  // Runs the program with the N-th call failing; false when it makes fewer calls.
  bool SurvivesCall(long nth);

  const Server &server_ = *GetParam().server;
  Capture lines_{STDERR_FILENO};
  size_t descriptors_ = 0;  // that it has open when no client is connected
};

bool ServerFaults::SurvivesCall(long nth) {
  const TempRoot root;
  const std::string reached = root.Path(kReached);
  std::vector<Child> others;
  for (const char *program : {MSGSVR, NOTIFYSERVER}) {
    if (server_.onBus) others.push_back(Child::Program({program}));
  }
  for (Child &other : others) EXPECT_TRUE(other.WaitForOutput("listening"));
  const size_t logged = lines_.Text().size();
  ::setenv("FAULT_NTH", std::to_string(nth).c_str(), 1);
  ::setenv("FAULT_FILE", reached.c_str(), 1);
  Child server = [&] {
    const Preload faults(root, FAULT_LIBRARY);
    return Child::Program({server_.program});
  }();
  if (!server.WaitForOutput(server_.ready)) {
    const int status = server.Wait();
    EXPECT_TRUE(fs::exists(reached) && status > 0 && status < 128) << "call " << nth << " at start: status " << status;
    return true;
  }
  bool served = server_.serves(root, nth == 0 || server_.onlyIf != nullptr ? kPatience : kBriefly);
  // A busy machine needs longer; and a hand-over that is still under way refuses another.
  if (!served) WaitUntil([&] { return fs::exists(reached) || (served = server_.serves(root, kPatience)); });
  const bool isReached = fs::exists(reached);
  EXPECT_TRUE(served || isReached) << "without a fault";
  if (nth == 0) descriptors_ = DescriptorsAtRest(server.pid());
  if (!isReached) return false;  // only in a second conversation, if at all: the walk is at its end
  if (server_.onlyIf != nullptr && !served) {
    int status = -1;
    const auto ended = [&] { return (status = server.Wait(Milliseconds(0))) >= 0; };
    EXPECT_TRUE(WaitUntil([&] { return ended() || lines_.Text().find("cut off", logged) != std::string::npos; }));
    EXPECT_TRUE(status != 0 && status < 128) << "call " << nth << " in the successor: status " << status;
    if (status > 0) return true;
  }
  EXPECT_TRUE(WaitUntil([&] { return server_.serves(root, kPatience); })) << "after call " << nth;
  EXPECT_TRUE(WaitUntil([&] { return DescriptorsOf(server.pid()) <= descriptors_; })) << "after call " << nth;
  server.Signal(SIGTERM);
  EXPECT_EQ(server.Wait(), 0) << "after call " << nth;
  return true;
}

TEST_P(ServerFaults, EachOneIsSurvived) {
  const char *step = std::getenv("FAULT_STEP");
  SurvivesCall(0);
  long nth = 1;
  while (nth < kMostCalls && !HasFailure() && SurvivesCall(nth)) {
    nth += step == nullptr ? GetParam().step : std::max(1L, std::atol(step));
  }
  EXPECT_GT(nth, 1) << "no such call is made";
  EXPECT_LT(nth, kMostCalls);
  if (HasFailure()) ADD_FAILURE() << lines_.Text();
}

std::string NameOf(const testing::TestParamInfo<Case> &info) {
  const Server &server = *info.param.server;
  const char *part = server.onlyIf != nullptr ? "_successor_" : server.serves == HandsOver ? "_replaced_" : "_";
  const std::string name = std::string(server.name) + part + info.param.call + "_";
  return name + (info.param.error == 0 ? "short" : ::strerrorname_np(info.param.error));
}

INSTANTIATE_TEST_SUITE_P(
    OfEachKind, ServerFaults,
    testing::Values(
        Case{&kMsgsvr, "alloc", ENOMEM}, Case{&kMsgsvr, "recv", EINTR}, Case{&kMsgsvr, "recv", EAGAIN},
        Case{&kMsgsvr, "recv", ENOMEM}, Case{&kMsgsvr, "recv", 0}, Case{&kMsgsvr, "send", EINTR},
        Case{&kMsgsvr, "send", EAGAIN}, Case{&kMsgsvr, "send", ENOMEM}, Case{&kMsgsvr, "send", 0},
        Case{&kMsgsvr, "accept", EMFILE}, Case{&kMsgsvr, "accept", EINTR}, Case{&kMsgsvr, "epoll", EINTR},
        Case{&kMsgsvr, "epoll", ENOSPC}, Case{&kMsgsvr, "open", ENFILE}, Case{&kHandOver, "write", ENOSPC},
        Case{&kHandOver, "alloc", ENOMEM, 5}, Case{&kSuccessor, "epoll", ENOSPC}, Case{&kSuccessor, "alloc", ENOMEM, 7},
        Case{&kSuccessor, "open", EMFILE}, Case{&kHandOver, "epoll", ENOSPC}, Case{&kHandOver, "open", EMFILE},
        Case{&kHandOver, "recv", EINTR}, Case{&kNotifyServer, "alloc", ENOMEM}, Case{&kNotifyServer, "recv", EINTR},
        Case{&kNotifyServer, "recv", EAGAIN}, Case{&kNotifyServer, "recv", ENOMEM}, Case{&kNotifyServer, "recv", 0},
        Case{&kNotifyServer, "send", EINTR}, Case{&kNotifyServer, "send", EAGAIN}, Case{&kNotifyServer, "send", ENOMEM},
        Case{&kNotifyServer, "send", 0}, Case{&kNotifyServer, "accept", EMFILE}, Case{&kNotifyServer, "accept", EINTR},
        Case{&kNotifyServer, "epoll", EINTR}, Case{&kNotifyServer, "epoll", ENOSPC},
        Case{&kNotifyServer, "open", ENFILE}, Case{&kMlogServer, "alloc", ENOMEM}, Case{&kMlogServer, "recv", EINTR},
        Case{&kMlogServer, "recv", EAGAIN}, Case{&kMlogServer, "recv", ENOMEM}, Case{&kMlogServer, "send", ENOMEM},
        Case{&kMlogServer, "epoll", EINTR}, Case{&kMlogServer, "open", EMFILE},
        Case{&kConfiguration, "alloc", ENOMEM, 23}, Case{&kConfiguration, "store", ENOSPC},
        Case{&kConfiguration, "store", EINTR}, Case{&kConfiguration, "read", EINTR},
        Case{&kConfiguration, "open", EMFILE}, Case{&kConfiguration, "recv", EINTR},
        Case{&kConfiguration, "recv", ENOMEM}, Case{&kConfiguration, "send", EAGAIN},
        Case{&kConfiguration, "epoll", EINTR}, Case{&kLog, "alloc", ENOMEM, 23}, Case{&kLog, "store", ENOSPC},
        Case{&kLog, "store", EINTR}, Case{&kLog, "write", ENOSPC}, Case{&kLog, "open", EMFILE},
        Case{&kLog, "send", ENOMEM}),
    NameOf);

}  // namespace
}  // namespace zor::test
