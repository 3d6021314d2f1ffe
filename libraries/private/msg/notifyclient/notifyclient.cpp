#include <unistd.h>
#include <zor/notifyclt.h>
#include <zor/trace.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <utility>

#include "base/list.h"
#include "common/unique_fd.h"
#include "notifyclient/notify_connect.h"
#include "notifyclient/notify_dispatch.h"
#include "notifyclient/notify_module.h"
#include "notifyclient/notify_rejoin.h"
#include "notifyclient/notify_state.h"
#include "notifyclient/notify_transfer.h"
#include "sdk/loop/idle/idle.h"
#include "trace/trace_line.h"

static_assert(sizeof(ZOR_NOTIFY_MSG) == ZOR_NOTIFY_HEAD_SIZE);
static_assert(offsetof(ZOR_NOTIFY_MSG, msg_type) == 0);
static_assert(offsetof(ZOR_NOTIFY_MSG, seq) == 4);
static_assert(offsetof(ZOR_NOTIFY_MSG, source_id) == 8);
static_assert(offsetof(ZOR_NOTIFY_MSG, des_id) == 12);
static_assert(offsetof(ZOR_NOTIFY_MSG, sync_tag) == 16);
static_assert(offsetof(ZOR_NOTIFY_MSG, ack_tag) == 20);
static_assert(offsetof(ZOR_NOTIFY_MSG, data_len) == 24);
static_assert(offsetof(ZOR_NOTIFY_MSG, sub_data_len1) == 28);
static_assert(offsetof(ZOR_NOTIFY_MSG, sub_data_len2) == 32);
static_assert(offsetof(ZOR_NOTIFY_MSG, request_word) == 36);
static_assert(offsetof(ZOR_NOTIFY_MSG, reserved) == 40);
static_assert(offsetof(ZOR_NOTIFY_MSG, async_flag) == 44);

namespace zor::notify {
namespace {

std::uint32_t FailInit(std::uint32_t status) {
  Destroy();
  return status;
}

bool IsReply(const ZOR_NOTIFY_MSG &msg, const ZOR_NOTIFY_MSG &request) {
  return msg.msg_type == request.msg_type && msg.seq == request.seq;
}

// Receives until the reply comes and keeps everything else for the idle hook.
std::uint32_t AwaitReply(const ZOR_NOTIFY_MSG &request, NotifyPtr &reply) {
  for (;;) {
    NotifyPtr msg;
    const std::uint32_t status = Receive(msg);
    if (status == ZOR_NOTIFY_E_SERVER_GONE) {
      std::printf("error: notify server dead when recv, destory client, my pid=%d!\n", ::getpid());
      OnConnectionEnded();
    }
    if (status != ZOR_NOTIFY_OK) return status;
    Trace(kTraceModule, ZOR_TRACE_DEBUG,
          "recv msg_type = %x, seq_num = %x data_len=%x ack_tag=%x, wait for msg_type = %x, seq_num = %x \n",
          msg->msg_type, msg->seq, msg->data_len, msg->ack_tag, request.msg_type, request.seq);
    if (IsReply(*msg, request)) {
      reply = std::move(msg);
      return ZOR_NOTIFY_OK;
    }
    AppendPending(std::move(msg));
  }
}

// A copy of the reply's data for the caller, null for a reply without data.
std::uint32_t CopyData(ZOR_NOTIFY_MSG &reply, MallocPtr<void> &data) {
  if (reply.data_len > ZOR_NOTIFY_DATA_MAX) {
    std::printf("notifyclient data len too long: %x, msg %x from %d to %d.\n", reply.data_len, reply.msg_type,
                reply.source_id, reply.des_id);
    return ZOR_NOTIFY_E_NO_MEMORY;
  }
  if (reply.data_len == 0) return ZOR_NOTIFY_OK;
  data.reset(GuardedAlloc(reply.data_len));
  if (data == nullptr) return ZOR_NOTIFY_E_NO_MEMORY;
  std::memcpy(data.get(), DataOf(reply), reply.data_len);
  return ZOR_NOTIFY_OK;
}

// The entry of a type, made when there is none; null without memory.
Handler *EnsureHandler(std::uint32_t type) {
  if (Handler *known = FindHandler(type)) return known;
  auto handler = GuardedNew<Handler>();
  if (handler == nullptr) return nullptr;
  handler->type = type;
  Append(g_stClient.handlers, handler.get());
  return handler.release();
}

}  // namespace
}  // namespace zor::notify

using namespace zor::notify;

uint32_t ZOR_NOTIFYCLT_Init(uint32_t mid) {
  if (!IsModuleId(mid)) return ZOR_NOTIFY_E_MID;
  if (IsConnected() || g_stClient.lost) return ZOR_NOTIFY_OK;
  SetOwnId(mid);
  zor::UniqueFd fd = BoundSocket();
  if (!fd.valid()) return ZOR_NOTIFY_E_CONNECT;
  if (!ConnectToServer(fd.get())) {
    const int error = errno;
    Destroy();
    zor::Trace(kTraceModule, ZOR_TRACE_DEBUG, "Connect to notify server failed %d.\n", error);
    return ZOR_NOTIFY_E_CONNECT;
  }
  SetDescriptor(fd.release());
  const uint32_t status = ZOR_NOTIFYCLT_PostSimpleAsynNotify(ZOR_NOTIFY_MID_SERVER, ZOR_NOTIFY_TYPE_REGISTER, mid, 0);
  if (status != ZOR_NOTIFY_OK) {
    std::printf("notifyclient: Register to notify server failed %x, pid=%d.\n", status, ::getpid());
    return FailInit(ZOR_NOTIFY_E_SERVER_GONE);
  }
  // The hook stays when the client is destroyed and serves the next one.
  if (!StartWatching(OnReadable) || !zor::EnsureIdleHook(DrainPending)) return FailInit(ZOR_NOTIFY_E_NO_MEMORY);
  return ZOR_NOTIFY_OK;
}

uint32_t ZOR_NOTIFYCLT_InitByName(const char *name) {
  const uint32_t mid = ConnectingModuleId(name);
  return mid == 0 ? ZOR_NOTIFY_OK : ZOR_NOTIFYCLT_Init(mid);
}

void ZOR_NOTIFYCLT_Destroy(void) {
  StopRejoin();
  Destroy();
}

void ZOR_NOTIFYCLT_SwitchSock(int32_t fd) {
  const bool watched = g_stClient.watcher != nullptr || g_stClient.lost;
  StopWatching();
  SetDescriptor(fd);
  OnSwitched();
  if (watched && IsConnected()) StartWatching(OnReadable);
}

void *ZOR_NOTIFYCLT_RegSyncMsgProc(uint32_t type, ZOR_NOTIFY_SYNC_PROC proc) {
  Handler *handler = EnsureHandler(type);
  if (handler != nullptr) handler->syncProc = proc;
  return handler;
}

void *ZOR_NOTIFYCLT_RegAsyncMsgProc(uint32_t type, ZOR_NOTIFY_ASYNC_PROC proc) {
  Handler *handler = EnsureHandler(type);
  if (handler != nullptr) handler->asyncProc = proc;
  return handler;
}

void ZOR_NOTIYCLT_RegMsgProc(ZOR_NOTIFY_DEFAULT_SYNC_PROC syncProc, ZOR_NOTIFY_DEFAULT_ASYNC_PROC asyncProc) {
  g_stClient.defaultSync = syncProc;
  g_stClient.defaultAsync = asyncProc;
}

uint32_t ZOR_NOTIFYCLT_SendSynNotify(uint32_t destination, uint32_t type, const void *data, uint32_t length,
                                     void **replyData, uint32_t *replyLength) {
  const NotifyPtr request = NewMessage(destination, type, length);
  if (request == nullptr) return ZOR_NOTIFY_E_NO_MEMORY;
  request->sync_tag = 1;
  request->request_word = replyLength == nullptr ? 0 : *replyLength;
  PutData(*request, 0, data, length);
  if (const uint32_t status = Send(*request); status != ZOR_NOTIFY_OK) return status;

  NotifyPtr reply;
  if (const uint32_t status = AwaitReply(*request, reply); status != ZOR_NOTIFY_OK) return status;
  zor::MallocPtr<void> copy;
  if (const uint32_t status = CopyData(*reply, copy); status != ZOR_NOTIFY_OK) return status;
  if (replyLength != nullptr) *replyLength = reply->data_len;
  if (replyData != nullptr) *replyData = copy.release();
  return ZOR_NOTIFY_OK;
}

uint32_t ZOR_NOTIFYCLT_PostAsynNotify(uint32_t destination, uint32_t type, const void *part1, uint32_t length1,
                                      const void *part2, uint32_t length2) {
  const NotifyPtr msg = NewMessage(destination, type, uint64_t{length1} + length2);
  if (msg == nullptr) return ZOR_NOTIFY_E_NO_MEMORY;
  msg->sub_data_len1 = length1;
  msg->sub_data_len2 = length2;
  msg->async_flag = 1;
  PutData(*msg, 0, part1, length1);
  PutData(*msg, length1, part2, length2);
  return Send(*msg);
}

uint32_t ZOR_NOTIFYCLT_PostSimpleAsynNotify(uint32_t destination, uint32_t type, uint32_t value1, uint32_t value2) {
  const NotifyPtr msg = NewMessage(destination, type, sizeof value1 + sizeof value2);
  if (msg == nullptr) return ZOR_NOTIFY_E_NO_MEMORY;
  msg->sub_data_len1 = sizeof value1;
  msg->sub_data_len2 = sizeof value2;
  PutData(*msg, 0, &value1, sizeof value1);
  PutData(*msg, sizeof value1, &value2, sizeof value2);
  return Send(*msg);
}
