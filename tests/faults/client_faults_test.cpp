// One system call or allocation fails, each in turn, in a client of the library that registers, sends, requests,
// publishes, passes descriptors, logs and rejoins. Whatever it was for: the client does not crash or hang, what the
// library reports as done is done, the same conversation succeeds afterwards, and nothing has leaked.
//
// The test links the fault library: each client is a fork of it, which arms the fault for itself.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zor/event.h>
#include <zor/mlog.h>
#include <zor/msg.h>
#include <zor/msg_rejoin.h>
#include <zor/notifyclt.h>
#include <zor/trace.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "faults/fault_library.h"
#include "support/loop.h"
#include "support/scripted_server.h"
#include "support/temp_root.h"

namespace zor::test {
namespace {

// One for each kind of request: a late reply is taken for that to a later request of its type.
constexpr uint32_t kEcho = 0x4001;
constexpr uint32_t kEchoLong = 0x4002;
constexpr uint32_t kEchoLater = 0x4003;
constexpr uint32_t kGiveDescriptor = 0x4004;
constexpr uint32_t kEvent = ZOR_EVT_ITEMS_FIRST + 3;
constexpr uint32_t kWeb = 26;
constexpr long kMostCalls = 5000;  // more than a conversation makes
constexpr ZOR_MSG_REJOIN kQuick = {5, 20, 200};

// What a client reports, in memory that it shares with the test.
struct Report {
  bool reached;
  long blocks;
  long descriptors;
};

struct Heard {
  bool event, reply, rejoined;
};
Heard heard;

ZOR_MSG_HEAD *OnEcho(ZOR_MSG_HEAD *msg) {
  return ZOR_MSG_MsgResponseBuilder(msg, msg->data, msg + 1, msg->bodyLength);
}

ZOR_MSG_HEAD *OnGiveDescriptor(ZOR_MSG_HEAD *msg) {
  ZOR_MSG_SendSimpleMsgWithSeqNum(msg->source, msg->type, 0, msg->sequence);
  ZOR_MSG_SendFd(1);
  return nullptr;
}

// The peer of the clients, a daemon that no call fails in.
int RunPeer() {
  for (const uint32_t type : {kEcho, kEchoLong, kEchoLater}) ZOR_MSG_RegSyncMsgProc(type, OnEcho, 0, nullptr);
  ZOR_MSG_RegSyncMsgProc(kGiveDescriptor, OnGiveDescriptor, 0, nullptr);
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  return ZOR_MSG_Init("peer") == ZOR_OK && ZOR_MSG_GetAndDispatch() == ZOR_OK ? 0 : 1;
}

// The loop, until the condition holds; for a moment only where a fault may have lost what it waits for.
bool Await(bool patient, const bool &condition) {
  for (int turn = 0; !condition && turn < (patient ? 6000 : 10); ++turn) {
    if (ZOR_UTIL_TimerAdd(
            10, 1, [](void *) { ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault()); }, nullptr) == nullptr)
      continue;
    ZOR_UV_LoopRun(nullptr, 0);
  }
  return condition;
}

// A claim of the library that must hold also when a call has failed.
bool Claim(bool holds, const char *what) {
  if (holds) return true;
  std::fprintf(stderr, "wrong: %s\n", what);
  ::_exit(3);
}

bool Requests(bool patient, uint32_t type, uint32_t length) {
  const Block request(ZOR_MSG_GetMsgHead(ZOR_MSG_GetMsgBlock(length)));
  if (request == nullptr) return false;
  std::memset(request.get() + 1, 'x', length);
  ZOR_MSG_SetMsgProfile(request.get() + 1, "peer", type, length);
  ZOR_MSG_HEAD *reply = nullptr;
  if (ZOR_MSG_SendAndRecv(request.get(), &reply, patient ? 60000 : 300) != ZOR_OK) return false;
  const Block owner(reply);
  return Claim(reply != nullptr && reply->bodyLength == length && *reinterpret_cast<char *>(reply + 1) == 'x',
               "a request succeeded without its reply");
}

bool RequestsLater(bool patient) {
  ZOR_MSG_HEAD request;
  ZOR_MSG_SimpleBuilder(&request, "peer", kEchoLater, 7);
  heard.reply = false;
  const auto onReply = [](ZOR_MSG_HEAD *reply, uint32_t status, void *) {
    heard.reply = status == 0 && reply->data == 7;
  };
  return ZOR_MSG_AsyncSendAndRecv(&request, onReply, patient ? 60000 : 100, nullptr) == ZOR_OK &&
         Await(patient, heard.reply);
}

bool Publishes(bool patient) {
  static bool subscribed = false;  // callbacks last as long as the process
  const auto onEvent = [](uint32_t, const char *, uint32_t) {
    heard.event = true;
    return ZOR_OK;
  };
  if (!subscribed) subscribed = ZOR_EVT_SubscribeSingelEventCallBack(kEvent, onEvent) == ZOR_OK;
  heard.event = false;
  return subscribed && ZOR_MSG_SubscribeEventForOtherApp(kEvent, "client") == ZOR_OK &&
         ZOR_EVT_PublishEvent(kEvent, "happened", "name", "value") == ZOR_OK && Await(patient, heard.event);
}

bool PassesDescriptors(bool patient) {
  ZOR_MSG_HEAD request, *reply = nullptr;
  ZOR_MSG_SimpleBuilder(&request, "peer", kGiveDescriptor, 0);
  if (ZOR_MSG_SendAndRecv(&request, &reply, patient ? 60000 : 300) != ZOR_OK) return false;
  std::free(reply);
  int fd = -1;
  if (ZOR_MSG_RecvFd(&fd, patient ? 60000 : 300) != ZOR_OK) return false;
  Claim(::fcntl(fd, F_GETFD) == FD_CLOEXEC, "a descriptor was received that is not open");
  ::close(fd);
  return true;
}

bool Logs() {
  mlog_print("client", ZOR_MLOG_INFO, "line");
  ZOR_TRACE_PrintInfo("file", 1, 1, "client", ZOR_TRACE_INFO, "line");
  char value[16] = "";
  return set_mlog_stat_info("client", "value") == 0 && get_mlog_stat_info("client", value, sizeof value) == 0 &&
         std::string(value) == "value";
}

bool Notifies() {
  const bool posted =
      ZOR_NOTIFYCLT_Init(kWeb) == ZOR_NOTIFY_OK && ZOR_NOTIFYCLT_PostSimpleAsynNotify(kWeb, 1, 2, 3) == ZOR_NOTIFY_OK;
  ZOR_NOTIFYCLT_Destroy();
  return posted;
}

bool Rejoins(bool patient) {
  heard.rejoined = false;
  ::shutdown(g_stMsgCtx.socketFd, SHUT_RDWR);
  return Await(patient, heard.rejoined);
}

bool Converse(bool patient) {
  const auto onLink = [](uint32_t event, void *) { heard.rejoined = heard.rejoined || event == ZOR_MSG_LINK_REJOINED; };
  bool good = ZOR_MSG_Init("client") == ZOR_OK && g_stMsgCtx.socketFd >= 0;
  if (good) {
    if (patient) WaitUntil([] { return ZOR_MSG_GetNumOfProcesses("peer") == 1; });
    ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
    good = ZOR_MSG_EnableRejoin(&kQuick) == ZOR_OK && ZOR_MSG_SetLinkProc(onLink, nullptr) == ZOR_OK;
    for (const bool step :
         {Publishes(patient), Requests(patient, kEcho, 10), Requests(patient, kEchoLong, 5000), RequestsLater(patient),
          PassesDescriptors(patient), Rejoins(patient), Requests(patient, kEcho, 10)}) {
      good = good && step;
    }
  }
  ZOR_MSG_Destroy();
  const bool told = Notifies();
  const bool logged = Logs();
  return good && told && logged;
}

long CountDescriptors() {
  const std::filesystem::directory_iterator found("/proc/self/fd");
  return std::distance(begin(found), end(found));
}

struct Case {
  const char *call;
  int error;  // 0: a short count
};

void PrintTo(const Case &each, std::ostream *out) {
  *out << each.call << " " << each.error;
}

class ClientFaults : public testing::TestWithParam<Case> {
 protected:
  ClientFaults() {
    for (const char *program : {MSGSVR, NOTIFYSERVER, MLOGSERVER}) others_.push_back(Child::Program({program}));
    for (Child &other : others_) EXPECT_TRUE(other.WaitForOutput("listening"));
    others_.push_back(Child::Function(RunPeer));
    report_ = static_cast<Report *>(
        ::mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  }
  ~ClientFaults() override { ::munmap(report_, sizeof(Report)); }

  // Runs a client in which the N-th call fails; its exit status.
  int RunClient(long nth) {
    return Child::Function([this, nth] {
             ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), 1);
             ArmFault(GetParam().call, nth, GetParam().error);
             bool good = Converse(nth == 0);
             if (!good && !FaultHappened()) good = Converse(true);  // a busy machine needs longer
             report_->reached = FaultHappened();
             ArmFault("", 0, 0);
             if (!good && !report_->reached) return 4;
             const bool again = Converse(true);
             report_->blocks = LiveBlocks();
             report_->descriptors = CountDescriptors();
             return again ? 0 : 5;
           })
        .Wait();
  }

  TempRoot root_;
  std::vector<Child> others_;
  Report *report_;
};

TEST_P(ClientFaults, EachOneIsSurvivedAndReported) {
  ASSERT_EQ(RunClient(0), 0) << "without a fault";
  const Report usual = *report_;
  long nth = 1;
  for (; nth < kMostCalls; ++nth) {
    ASSERT_EQ(RunClient(nth), 0) << "call " << nth;
    if (!report_->reached) break;
    EXPECT_LE(report_->descriptors, usual.descriptors) << "call " << nth;
    EXPECT_LE(report_->blocks, usual.blocks) << "call " << nth;
  }
  EXPECT_GT(nth, 1) << "no such call is made";
  EXPECT_LT(nth, kMostCalls);
}

std::string NameOf(const testing::TestParamInfo<Case> &info) {
  return std::string(info.param.call) + "_" + (info.param.error == 0 ? "short" : ::strerrorname_np(info.param.error));
}

INSTANTIATE_TEST_SUITE_P(OfEachKind, ClientFaults,
                         testing::Values(Case{"alloc", ENOMEM}, Case{"read", EINTR}, Case{"read", 0},
                                         Case{"write", ENOSPC}, Case{"write", 0}, Case{"recv", EINTR},
                                         Case{"recv", EAGAIN}, Case{"recv", ENOMEM}, Case{"recv", 0},
                                         Case{"send", EINTR}, Case{"send", ENOMEM}, Case{"send", 0},
                                         Case{"open", EMFILE}, Case{"open", ENFILE}, Case{"epoll", EINTR},
                                         Case{"epoll", ENOMEM}),
                         NameOf);

}  // namespace
}  // namespace zor::test
