#include <zor/mlog.h>
#include <zor/msg_bus.h>
#include <zor/status.h>
#include <zor/trace.h>

#include <algorithm>
#include <climits>
#include <cstdio>

#include "base/wait.h"
#include "message/context.h"
#include "message/header.h"
#include "message/reader.h"
#include "sdk/msgapi/body_file.h"
#include "sdk/msgapi/rejoin.h"
#include "sdk/msgapi/transfer.h"
#include "trace/trace_line.h"

namespace zor {
namespace {

constexpr std::uint32_t kDefaultWaitMs = 20000;

int PollLimit(std::uint32_t timeoutMs) {
  return static_cast<int>(std::min(timeoutMs, static_cast<std::uint32_t>(INT_MAX)));
}

void TraceReceived(const ZOR_MSG_HEAD &header) {
  Trace("msg", ZOR_TRACE_INFO,
        "recvd msg type:[0x%x] app:[%.12s] data:[%d] len:[%d] dst:[%.12s] src:[%.12s] on board %d with "
        "flags [0x%x]:%d ...",
        header.type, g_stMsgCtx.appName, header.data, header.bodyLength, header.destination, header.source,
        header.type >> ZOR_MSG_BOARD_SHIFT, g_stMsgCtx.flags, header.type & ZOR_MSG_BODY_IN_FILE);
}

void ReportTooLong(const ZOR_MSG_HEAD &header) {
  std::printf("msgapi too large body len, src=%.12s, dest=%.12s, type=0x%x, data_len=%u\n", header.source,
              header.destination, header.type, header.bodyLength);
  mlog_print("msg", ZOR_MLOG_FATAL, "Too long msg:[0x%x] len:[%d].\n", header.type, header.bodyLength);
}

// Every read of the body may wait the whole time-out.
ReadRules RulesFor(std::uint32_t timeoutMs) {
  const int waitMs = timeoutMs == 0 ? -1 : PollLimit(timeoutMs);
  return {ZOR_MSG_HEAD_SIZE, false, {}, {waitMs, waitMs}};
}

std::uint32_t Receive(int fd, MessagePtr &msg, std::uint32_t timeoutMs, bool convert) {
  if (timeoutMs != 0 && !WaitForInput(fd, timeoutMs)) return ZOR_E_TIMEOUT;
  MessageReader reader(fd, RulesFor(timeoutMs));
  std::uint32_t status = reader.ReadHeader();
  if (reader.torn()) AbandonStream(fd);
  if (status != ZOR_OK) return status;
  ZOR_MSG_HEAD &header = *reader.message();
  const bool bodyInFile = convert && FixUpReceivedHeader(header, g_stMsgCtx) != 0;
  TraceReceived(header);
  if (header.bodyLength > ZOR_MSG_RECV_BODY_MAX) ReportTooLong(header);
  status = reader.ReadPayload(header.bodyLength);
  if (reader.torn()) AbandonStream(fd);
  if (status != ZOR_OK) return status;
  msg = reader.Take();
  return bodyInFile && msg->bodyLength != 0 ? RestoreFileBody(msg) : ZOR_OK;
}

}  // namespace

bool WaitForInput(int fd, std::uint32_t timeoutMs) noexcept {
  WaitResult result;
  do {
    result = WaitReadable(fd, PollLimit(timeoutMs == 0 ? kDefaultWaitMs : timeoutMs));
  } while (result == WaitResult::kInterrupted);
  return result != WaitResult::kTimedOut;
}

}  // namespace zor

uint32_t ZOR_MSG_RecvWithEndian(int fd, ZOR_MSG_HEAD **msg, uint32_t timeoutMs, uint32_t convert) {
  if (msg == nullptr || fd < 0) return ZOR_E_ARGUMENT;
  *msg = nullptr;
  zor::MessagePtr received;
  const uint32_t status = zor::Receive(fd, received, timeoutMs, convert != 0);
  if (status == ZOR_OK) *msg = received.release();
  return status;
}

uint32_t ZOR_MSG_Recv(int fd, ZOR_MSG_HEAD **msg, uint32_t timeoutMs) {
  return ZOR_MSG_RecvWithEndian(fd, msg, timeoutMs, 1);
}
