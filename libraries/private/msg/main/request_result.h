// Requests whose reply is one word.
#ifndef MAIN_REQUEST_RESULT_H
#define MAIN_REQUEST_RESULT_H

#include <zor/msg_request.h>
#include <zor/status.h>

#include <cstdint>

#include "message/context.h"

namespace zor {

// The data word of the reply, or the status of the failure. An exchange that succeeds without a reply counts as 0;
// ZOR_MSG_SendAndRecvMsgData has another rule.
inline std::uint32_t RequestResult(ZOR_MSG_HEAD &request, std::uint32_t timeoutMs) noexcept {
  ZOR_MSG_HEAD *received = nullptr;
  const std::uint32_t status = ZOR_MSG_SendAndRecv(&request, &received, timeoutMs);
  const MessagePtr reply(received);
  if (status != ZOR_OK) return status;
  return reply == nullptr ? 0 : reply->data;
}

}  // namespace zor

#endif
