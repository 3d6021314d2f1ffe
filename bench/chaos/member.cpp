#include "chaos/member.h"

#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <zor/control_wire.h>
#include <zor/event.h>
#include <zor/msg.h>
#include <zor/msg_rejoin.h>
#include <zor/uv_timer.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "harness.h"

namespace zor::bench {
namespace {

constexpr uint32_t kPlain = 0x4100;       // the low byte of the three is the receiver
constexpr uint32_t kDescriptor = 0x4200;  // a descriptor follows
constexpr uint32_t kEcho = 0x4300;
constexpr uint32_t kEvent = ZOR_EVT_ITEMS_FIRST + 7;
constexpr uint32_t kWaitMs = 20000;
constexpr ZOR_MSG_REJOIN kRejoin = {5, 200, 2000};
constexpr char kProvider[] = "provider";

struct Body {
  uint32_t slot;  // of a message; the number of an event
  uint32_t from;
  uint32_t life;  // of the sender: how often it had been killed
};

// One for each process.
struct Self {
  Account *account;
  Worker *worker;
  uint32_t index;
  uint32_t burst;
  uint32_t life;
  std::mt19937 random;
  std::vector<char> bytes;
};
Self self;

uint32_t Random(uint32_t below) {
  return static_cast<uint32_t>(self.random() % below);
}

// Mostly short bodies, sometimes long ones, rarely such that travel in a file.
uint32_t RandomLength() {
  const uint32_t kind = Random(100);
  if (kind < 90) return sizeof(Body) + Random(120);
  return kind < 98 ? Random(ZOR_MSG_INLINE_BODY_MAX - 20) + 20 : ZOR_MSG_INLINE_BODY_MAX + 1 + Random(20000);
}

bool Send(uint32_t type, uint32_t to, const Body &body, uint32_t length, uint32_t sequence) {
  std::memcpy(self.bytes.data(), &body, sizeof body);
  const std::string name = to < kMostWorkers ? WorkerName(to) : std::string();
  return ZOR_MSG_SendMsgDataWithDataSeq(name.c_str(), type, self.bytes.data(), length, 0, sequence) == ZOR_OK;
}

void SendDescriptor(uint32_t slot) {
  const int fd = ::memfd_create("chaos", MFD_CLOEXEC);
  if (fd < 0) return;
  if (::write(fd, &slot, sizeof slot) == sizeof slot) ZOR_MSG_SendFd(fd);
  ::close(fd);
}

// A daemon to which descriptors are passed gets messages from one sender alone: those of others would come between the
// message that announces a descriptor and the descriptor. So the last worker, which sends nothing, hears from the last
// but one alone.
bool IsTaker(uint32_t index) {
  return index + 1 == self.account->workers;
}
bool IsGiver() {
  return self.index + 2 == self.account->workers;
}

uint32_t RandomReceiver() {
  if (IsGiver()) return self.index + 1;
  const uint32_t to = Random(self.account->workers - 2);
  return to >= self.index ? to + 1 : to;
}

void SendNext() {
  Account &account = *self.account;
  const uint32_t n = self.worker->begun;
  if (n >= account.share) return;
  const uint32_t slot = self.index * account.share + n;
  Message &message = account.message[slot];
  const uint32_t to = RandomReceiver();
  message.to = static_cast<uint8_t>(to);
  message.marks = kBegun;
  self.worker->begun = n + 1;
  const bool withDescriptor = IsGiver() && Random(100) == 0;
  const uint32_t type = (withDescriptor ? kDescriptor : kPlain) + to;
  const bool sent = Send(type, to, {slot, self.index, self.life}, RandomLength(), slot + 1);
  message.marks |= sent ? kSent : kNotTaken;
  if (sent && withDescriptor) SendDescriptor(slot);
}

void Publish() {
  const uint32_t number = self.worker->events++;
  if (!Send(kEvent, kMostWorkers, {number, self.index, self.life}, sizeof(Body) + Random(500), 0))
    --self.worker->events;
}

bool HasUnread() {
  int count = 0;
  return ::ioctl(g_stMsgCtx.socketFd, FIONREAD, &count) == 0 && count > 0;
}

// Reading comes first: members that only sent would fill each other's queues for good.
void OnTick(void *) {
  if (self.account->quiet || HasUnread()) return;
  for (uint32_t i = 0; i < self.burst; ++i) SendNext();
  if (Random(20) == 0) Publish();
}

// Messages of one connection come in their order; those of a sender that has been killed since may come later.
void NoteNumber(Newest &newest, const Body &body) {
  const bool known = newest.number != 0 && newest.life == body.life;
  if (known && body.slot < newest.number) ++self.worker->outOfOrder;
  newest.life = body.life;
  newest.number = body.slot + 1;
}

void NoteReceived(const Body &body) {
  const Account &account = *self.account;
  if (body.from >= account.workers || body.slot / account.share != body.from) {
    ++self.worker->strange;
    return;
  }
  Message &message = self.account->message[body.slot];
  if (message.to != self.index) ++self.worker->strange;
  if ((message.marks.fetch_or(kReceived) & kReceived) != 0) ++self.worker->doubled;
  NoteNumber(self.worker->newestFrom[body.from], body);
  ++self.worker->received;
}

Body BodyOf(const ZOR_MSG_HEAD *msg) {
  Body body = {UINT32_MAX, UINT32_MAX, 0};
  if (msg->bodyLength >= sizeof body) std::memcpy(&body, msg + 1, sizeof body);
  return body;
}

void OnMessage(ZOR_MSG_HEAD *msg) {
  NoteReceived(BodyOf(msg));
}

void OnMessageWithDescriptor(ZOR_MSG_HEAD *msg) {
  const Body body = BodyOf(msg);
  NoteReceived(body);
  int fd = -1;
  uint32_t content = 0;
  const bool good =
      ZOR_MSG_RecvFd(&fd, kWaitMs) == ZOR_OK && ::pread(fd, &content, sizeof content, 0) == sizeof content;
  if (!good) ++self.worker->noDescriptor;
  if (good && content != body.slot) ++self.worker->strange;
  if (fd >= 0) ::close(fd);
}

// Of the right message: its type names the receiver.
void OnNotice(ZOR_MSG_HEAD *msg) {
  const uint32_t slot = msg->sequence - 1;
  const Account &account = *self.account;
  if (slot / account.share != self.index || (msg->data & 0xff) != account.message[slot].to) {
    ++self.worker->strange;
  } else {
    self.account->message[slot].marks |= kNoticed;
  }
}

void OnEvent(ZOR_MSG_HEAD *msg) {
  const Body body = BodyOf(msg);
  if (body.from >= self.account->workers) {
    ++self.worker->strange;
    return;
  }
  ++self.worker->eventsReceived;
  Newest &newest = self.worker->newestEvent[body.from];
  if (newest.number != 0 && newest.life == body.life && body.slot > newest.number) {
    self.worker->missedEvents += body.slot - newest.number;
  }
  NoteNumber(newest, body);
}

void OnGap(ZOR_MSG_HEAD *msg) {
  ZOR_CONTROL_GAP gap = {};
  if (msg->bodyLength >= sizeof gap) std::memcpy(&gap, msg + 1, sizeof gap);
  self.worker->gapEvents += gap.events;
}

void AskForGaps() {
  ZOR_MSG_SendSimpleMsg("", ZOR_MSG_CONTROL_GAPS, 1);
}

// What was published in the meantime is not for this member.
void OnLink(uint32_t event, void *) {
  if (event != ZOR_MSG_LINK_REJOINED) return;
  for (Newest &newest : self.worker->newestEvent) newest = {};
  AskForGaps();
}

void Join(const char *name) {
  while (ZOR_MSG_Init(name) != ZOR_OK || g_stMsgCtx.socketFd < 0) {
    ZOR_MSG_Destroy();
    ::usleep(1000);
  }
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  Require(ZOR_MSG_EnableRejoin(&kRejoin) == ZOR_OK, "a member rejoins");
}

ZOR_MSG_HEAD *Echo(ZOR_MSG_HEAD *msg) {
  return ZOR_MSG_MsgResponseBuilder(msg, 0, ZOR_MSG_GetMsgByHead(msg), msg->bodyLength);
}

}  // namespace

void RunWorker(Account &account, uint32_t index, uint32_t burst) {
  self = {&account,
          &account.worker[index],
          index,
          burst,
          account.worker[index].deaths,
          std::mt19937(std::random_device()()),
          std::vector<char>(32768)};
  for (Newest &newest : self.worker->newestEvent) newest = {};
  const std::string name = WorkerName(index);
  ZOR_MSG_RegMsgProc(kPlain + index, OnMessage, 0, nullptr);
  ZOR_MSG_RegMsgProc(kDescriptor + index, OnMessageWithDescriptor, 0, nullptr);
  ZOR_MSG_RegMsgProc(ZOR_MSG_SEND_FAILED_NOTICE, OnNotice, 0, nullptr);
  ZOR_MSG_RegMsgProc(kEvent, OnEvent, 0, nullptr);
  ZOR_MSG_RegMsgProc(ZOR_MSG_CONTROL_GAP, OnGap, 0, nullptr);
  Join(name.c_str());
  ZOR_MSG_SetLinkProc(OnLink, nullptr);
  if (!IsTaker(index)) {
    ZOR_MSG_SubscribeEventForOtherApp(kEvent, name.c_str());
    AskForGaps();
    ZOR_UTIL_TimerAdd(1, 0, OnTick, nullptr);
  }
  ZOR_MSG_GetAndDispatch();
}

void RunProvider() {
  ZOR_MSG_RegSyncMsgProc(kEcho, Echo, 0, nullptr);
  Join(kProvider);
  ZOR_MSG_GetAndDispatch();
}

void RunRequester(Account &account, uint32_t index, uint32_t pauseMs) {
  Join(("r" + std::to_string(index)).c_str());
  // A request is made in the loop, so that a lost connection is made again.
  static Account *counted = &account;
  const auto request = [](void *) {
    ZOR_MSG_HEAD head, *reply = nullptr;
    ZOR_MSG_SimpleBuilder(&head, kProvider, kEcho, 0);
    const double start = Now();
    if (ZOR_MSG_SendAndRecv(&head, &reply, kWaitMs) != ZOR_OK) {
      ++counted->failedRequests;
      return;
    }
    const auto took = static_cast<uint64_t>(Now() - start);
    std::free(reply);
    ++counted->roundTrips;
    uint64_t longest = counted->longestRoundTrip;
    while (took > longest && !counted->longestRoundTrip.compare_exchange_weak(longest, took)) {
    }
  };
  ZOR_UTIL_TimerAdd(pauseMs, 0, request, nullptr);
  ZOR_MSG_GetAndDispatch();
}

}  // namespace zor::bench
