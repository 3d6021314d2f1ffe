#include "sdk/msgapi/queue.h"

#include <zor/msg_dispatch.h>
#include <zor/status.h>
#include <zor/trace.h>

#include <cstdlib>

#include "base/list.h"
#include "message/context.h"
#include "trace/trace_line.h"

namespace {

void FreeMessage(void *node) {
  std::free(static_cast<ZOR_MSG_QUEUE_NODE *>(node)->msg);
}

// The message at the head of the queue, null when the queue is empty.
zor::MessagePtr TakeFirst(ZOR_MSG_QUEUE_NODE *&head) {
  const zor::MallocPtr<ZOR_MSG_QUEUE_NODE> node(head);
  if (node == nullptr) return nullptr;
  zor::Unlink(head, node.get());
  return zor::MessagePtr(node->msg);
}

}  // namespace

uint32_t ZOR_MSG_QueueAppendEx(ZOR_MSG_QUEUE_NODE **head, ZOR_MSG_HEAD *msg, uintptr_t extra) {
  if (head == nullptr || msg == nullptr) return ZOR_E_ARGUMENT;
  auto node = zor::GuardedNew<ZOR_MSG_QUEUE_NODE>();
  if (node == nullptr) return ZOR_E_NO_MEMORY;
  node->msg = msg;
  node->extra = extra;
  zor::Append(*head, node.release());
  return ZOR_OK;
}

uint32_t ZOR_MSG_QueueAppend(ZOR_MSG_QUEUE_NODE **head, ZOR_MSG_HEAD *msg) {
  return ZOR_MSG_QueueAppendEx(head, msg, 0);
}

void ZOR_MSG_QueueDestroy(ZOR_MSG_QUEUE_NODE **head) {
  ZOR_UTIL_ListDeleteAll(head, FreeMessage);
}

namespace zor {

void DrainPending(UvIdle *, std::uint32_t) {
  const std::uint32_t queued = ZOR_UTIL_ListGetCount(&g_stMsgCtx.pending);
  if (queued == 0) return;
  Trace("msg", ZOR_TRACE_INFO, "Clear %d messages in queue now ...", queued);
  std::uint32_t handled = 0;
  // The head is read afresh each time: a handler may queue more, destroy the bus or run a loop that drains the rest.
  while (const MessagePtr msg = TakeFirst(g_stMsgCtx.pending)) {
    ZOR_MSG_MsgFilterProc(msg.get(), 0);
    ++handled;
  }
  Trace("msg", ZOR_TRACE_INFO, "Clear %d messages in queue finished.", handled);
}

}  // namespace zor
