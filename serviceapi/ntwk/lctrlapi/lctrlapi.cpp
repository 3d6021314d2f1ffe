#include <zor/lctrl.h>
#include <zor/limits.h>
#include <zor/msg_bus.h>
#include <zor/msg_request.h>
#include <zor/platform/config.h>
#include <zor/status.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "message/context.h"
#include "message/header.h"

namespace {

constexpr uint32_t kWaitTimeParameter = 0x6180D104;
constexpr uint32_t kWaitTimeMax = 10;

// A message with a body of fixed size; the server routes it by its type.
template <std::size_t kSize>
struct Request {
  ZOR_MSG_HEAD head = {};
  char body[kSize];

  Request(uint32_t type, const void *bytes) noexcept {
    head.type = type;
    head.bodyLength = kSize;
    std::memcpy(body, bytes, kSize);
  }
};

// One retry, and only for a time-out: the service may have been busy writing its list.
uint32_t SendTwice(ZOR_MSG_HEAD *request, ZOR_MSG_HEAD **reply) {
  const uint32_t status = ZOR_MSG_SendAndRecv(request, reply, ZOR_LCTRL_WAIT_MS);
  if (status != ZOR_E_TIMEOUT) return status;
  std::printf("msg timeout error : %d \n", static_cast<int>(status));
  return ZOR_MSG_SendAndRecv(request, reply, ZOR_LCTRL_WAIT_MS);
}

template <std::size_t kRequestSize, std::size_t kResultSize>
uint32_t Ask(uint32_t type, const void *bytes, void *result) {
  if (bytes == nullptr || result == nullptr) return ZOR_LCTRL_E_ARGUMENT;
  Request<kRequestSize> request(type, bytes);
  ZOR_MSG_HEAD *received = nullptr;
  const uint32_t status = SendTwice(&request.head, &received);
  const zor::MessagePtr reply(received);
  if (status != ZOR_OK) return status;
  if (reply == nullptr || reply->bodyLength == 0) return ZOR_LCTRL_E_EMPTY_REPLY;
  std::memset(result, 0, kResultSize);
  std::memcpy(result, zor::BodyOf(reply.get()), std::min<std::size_t>(reply->bodyLength, kResultSize));
  return ZOR_OK;
}

}  // namespace

uint32_t ZOR_LCTRLAPI_Login(const void *request, void *result) {
  return Ask<ZOR_LCTRL_LOGIN_SIZE, ZOR_LCTRL_RESULT_SIZE>(ZOR_LCTRL_LOGIN, request, result);
}

uint32_t ZOR_LCTRLAPI_Check(const void *request, void *result) {
  return Ask<ZOR_LCTRL_LOGIN_SIZE, ZOR_LCTRL_RESULT_SIZE>(ZOR_LCTRL_CHECK, request, result);
}

uint32_t ZOR_LCTRLAPI_SetMaxFailedTimes(const void *setting) {
  if (setting == nullptr) return ZOR_LCTRL_E_ARGUMENT;
  Request<ZOR_LCTRL_MAX_FAILED_SIZE> request(ZOR_LCTRL_SET_MAX_FAILED, setting);
  return ZOR_MSG_Send(&request.head);
}

void ZOR_LCTRLAPI_ClearForbiddenList(uint32_t value) {
  Request<sizeof value> request(ZOR_LCTRL_CLEAR_FORBIDDEN, &value);
  ZOR_MSG_Send(&request.head);
}

uint32_t ZOR_LCTRLAPI_GetForbiddenRound(const void *request, void *result) {
  return Ask<ZOR_LCTRL_ROUND_SIZE, ZOR_LCTRL_ROUND_RESULT_SIZE>(ZOR_LCTRL_FORBIDDEN_ROUND, request, result);
}

uint32_t ZOR_LCTRLAPI_LoginWaitTime(void) {
  uint32_t waitTime = 0;
  if (ZOR_DBGetPara(kWaitTimeParameter, 0, &waitTime, sizeof waitTime) != ZOR_STORE_OK) return 0;
  return waitTime > kWaitTimeMax ? 0 : waitTime;
}
