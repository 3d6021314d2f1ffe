// A module's input from the notification server: a stream of notifications.
#include <cstring>

#include "fuzz.h"
#include "notifyclient/notify_transfer.h"

namespace {

using zor::fuzz::Require;
namespace notify = zor::notify;

const ZOR_NOTIFY_MSG *current = nullptr;

void CheckPart(const void *part) {
  const auto *first = reinterpret_cast<const char *>(current + 1);
  const auto *at = static_cast<const char *>(part);
  Require(part == nullptr || (at >= first && at <= first + current->data_len), "data is inside");
  Require(part == nullptr || std::strlen(at) <= current->data_len, "data ends in a zero byte");
}

uint32_t OnSync(uint32_t, void *data, void **reply, uint32_t *replyLength) {
  CheckPart(data);
  if (reply == nullptr) return ZOR_NOTIFY_OK;
  *reply = ::strdup("reply");
  *replyLength = sizeof "reply";
  return ZOR_NOTIFY_OK;
}

uint32_t OnAsync(uint32_t, void *part1, void *part2, void *) {
  CheckPart(part1);
  CheckPart(part2);
  return ZOR_NOTIFY_OK;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const zor::UniqueFd stream = zor::fuzz::StreamOf(data, size);
  ZOR_NOTIYCLT_RegMsgProc(OnSync, OnAsync);
  notify::g_stClient.fd = stream.get();
  size_t at = 0;
  for (notify::NotifyPtr msg; notify::Receive(msg) == ZOR_NOTIFY_OK;) {
    const size_t length = ZOR_NOTIFY_HEAD_SIZE + std::size_t{msg->data_len};
    Require(length <= size - at, "a notification is inside its stream");
    Require(std::memcmp(msg.get(), data + at, length) == 0, "a notification is read as it was sent");
    at += length;
    current = msg.get();
    ZOR_NOTIFYCLT_MsgFilterProc(msg.get());
  }
  notify::g_stClient.fd = -1;
  return 0;
}
