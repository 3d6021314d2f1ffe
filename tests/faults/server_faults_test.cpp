// One system call or allocation of a server fails, each in turn. Whatever it was for: the server does not crash or
// hang, and afterwards honest clients are served. Where it fails while the server starts, the server may end with an
// exit status of its own instead.
#include <gtest/gtest.h>
#include <unistd.h>
#include <zor/mlog.h>
#include <zor/paths.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <ostream>
#include <string>

#include "support/capture.h"
#include "support/child.h"
#include "support/notify_frame.h"
#include "support/temp_root.h"
#include "support/wire_client.h"

namespace zor::test {
namespace {

namespace fs = std::filesystem;

constexpr uint32_t kCms = 8;
constexpr uint32_t kWeb = 26;
constexpr long kMostCalls = 2000;  // more than any scenario makes

// How long a conversation goes on in which the fault may have lost a message; the result does not matter then.
constexpr std::chrono::milliseconds kBriefly{300};

struct Server {
  const char *name;
  const char *program;
  // A conversation of honest clients, which reaches every call; whether they were served.
  bool (*serves)(const TempRoot &root, std::chrono::milliseconds deadline);
};

bool Converse(const TempRoot &root, std::chrono::milliseconds deadline) {
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

bool KeepsStatistics(const TempRoot &, std::chrono::milliseconds) {
  mlog_print("faults", ZOR_MLOG_INFO, "a line that is too long for a small string of the standard library");
  char value[64] = "";
  return set_mlog_stat_info("faults", "a value that is not short either") == 0 &&
         get_mlog_stat_info("faults", value, sizeof value) == 0 &&
         std::string(value) == "a value that is not short either";
}

constexpr Server kNotifyServer = {"notifyserver", NOTIFYSERVER, Converse};
constexpr Server kMlogServer = {"mlogserver", MLOGSERVER, KeepsStatistics};

struct Case {
  const Server *server;
  const char *call;
  int error;  // 0: a short count
};

void PrintTo(const Case &each, std::ostream *out) {
  *out << each.server->name << ", " << each.call << " " << each.error;
}

class ServerFaults : public testing::TestWithParam<Case> {};

// Runs one server in which the N-th call fails; false when it makes fewer calls.
bool SurvivesCall(const Case &each, long nth) {
  const TempRoot root;
  const std::string reached = root.Path("/reached");
  ::setenv("FAULT_NTH", std::to_string(nth).c_str(), 1);
  ::setenv("FAULT_FILE", reached.c_str(), 1);
  ::setenv("LD_PRELOAD", FAULT_LIBRARY, 1);
  Child server = Child::Program({each.server->program});
  ::unsetenv("LD_PRELOAD");
  if (!server.WaitForOutput("listening")) {
    const int status = server.Wait();
    EXPECT_TRUE(fs::exists(reached) && status > 0 && status < 128) << "call " << nth << " at start: status " << status;
    return true;
  }
  each.server->serves(root, kBriefly);
  const bool isReached = fs::exists(reached);
  if (!isReached) return false;  // only in a second conversation, if at all: the walk is at its end
  EXPECT_TRUE(each.server->serves(root, kPatience)) << "after call " << nth;
  server.Signal(SIGTERM);
  EXPECT_EQ(server.Wait(), 0) << "after call " << nth;
  return true;
}

TEST_P(ServerFaults, EachOneIsSurvived) {
  Capture lines(STDERR_FILENO);
  ::setenv("FAULT_PROGRAM", GetParam().server->name, 1);
  ::setenv("FAULT_CALL", GetParam().call, 1);
  ::setenv("FAULT_ERROR", std::to_string(GetParam().error).c_str(), 1);
  long nth = 1;
  while (nth < kMostCalls && SurvivesCall(GetParam(), nth) && !HasFailure()) ++nth;
  EXPECT_GT(nth, 1) << "no such call is made";
  EXPECT_LT(nth, kMostCalls);
  if (HasFailure()) ADD_FAILURE() << lines.Text();
}

std::string NameOf(const testing::TestParamInfo<Case> &info) {
  const std::string name = std::string(info.param.server->name) + "_" + info.param.call + "_";
  return name + (info.param.error == 0 ? "short" : ::strerrorname_np(info.param.error));
}

INSTANTIATE_TEST_SUITE_P(OfEachKind, ServerFaults,
                         testing::Values(Case{&kNotifyServer, "alloc", ENOMEM}, Case{&kNotifyServer, "recv", EINTR},
                                         Case{&kNotifyServer, "recv", EAGAIN}, Case{&kNotifyServer, "recv", ENOMEM},
                                         Case{&kNotifyServer, "recv", 0}, Case{&kNotifyServer, "send", EINTR},
                                         Case{&kNotifyServer, "send", EAGAIN}, Case{&kNotifyServer, "send", ENOMEM},
                                         Case{&kNotifyServer, "send", 0}, Case{&kNotifyServer, "accept", EMFILE},
                                         Case{&kNotifyServer, "accept", EINTR}, Case{&kNotifyServer, "epoll", EINTR},
                                         Case{&kNotifyServer, "epoll", ENOSPC}, Case{&kNotifyServer, "open", ENFILE},
                                         Case{&kMlogServer, "alloc", ENOMEM}, Case{&kMlogServer, "recv", EINTR},
                                         Case{&kMlogServer, "recv", EAGAIN}, Case{&kMlogServer, "recv", ENOMEM},
                                         Case{&kMlogServer, "send", ENOMEM}, Case{&kMlogServer, "open", EMFILE}),
                         NameOf);

}  // namespace
}  // namespace zor::test
