#include <zor/mlog.h>
#include <zor/platform/bounded.h>

#include <unistd.h>
#include <zor/limits.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "mlogapi/client_socket.h"

static_assert(sizeof(ZOR_MLOG_STAT) == 516);
static_assert(offsetof(ZOR_MLOG_STAT, value) == 256);
static_assert(offsetof(ZOR_MLOG_STAT, reserved) == 512);

namespace zor {
namespace {

// The name of a socket that several processes may use at a time.
struct ProcessSocketName {
  explicit ProcessSocketName(const char *word) noexcept {
    snprintf_s(text, sizeof text, sizeof text, "%s_%d", word, ::getpid());
  }
  char text[32];
};

ZOR_MLOG_MSG StatMessage(std::uint32_t type, const char *name, const char *value) {
  ZOR_MLOG_STAT stat = {};
  strcpy_s(stat.name, sizeof stat.name, name);
  strcpy_s(stat.value, sizeof stat.value, value);
  ZOR_MLOG_MSG msg = {type, sizeof stat, {}};
  std::memcpy(msg.data, &stat, sizeof stat);
  return msg;
}

}  // namespace
}  // namespace zor

int32_t set_mlog_stat_info(const char *name, const char *value) {
  if (name == nullptr || value == nullptr) return -1;
  const zor::ProcessSocketName socketName("STAT");
  const zor::ClientSocket socket(socketName.text);
  if (!socket.valid()) return -1;
  const ZOR_MLOG_MSG request = zor::StatMessage(ZOR_MLOG_SET_STAT, name, value);
  return mlog_send_msg(socket.fd(), &request, ZOR_MLOG_SERVER_NAME);
}

int32_t get_mlog_stat_info(const char *name, char *value, int32_t size) {
  if (name == nullptr || value == nullptr || size < 1) return -1;
  const zor::ProcessSocketName socketName("STAT");
  const zor::ClientSocket socket(socketName.text);
  if (!socket.valid()) return -1;
  const ZOR_MLOG_MSG request = zor::StatMessage(ZOR_MLOG_GET_STAT, name, "");
  if (mlog_send_msg(socket.fd(), &request, ZOR_MLOG_SERVER_NAME) != 0) return -1;
  ZOR_MLOG_MSG reply;
  const bool replied = mlog_recv_msg(socket.fd(), &reply, ZOR_MLOG_ANSWER_WAIT_SECONDS, nullptr, 0) == 0;
  if (!replied || reply.length != sizeof(ZOR_MLOG_STAT)) return 0;
  const char *text = reply.data + offsetof(ZOR_MLOG_STAT, value);
  strncpy_s(value, static_cast<size_t>(size), text, ZOR_MLOG_STAT_TEXT_SIZE - 1);
  return 0;
}

int32_t inform_mlogger_power_off(void) {
  const zor::ProcessSocketName socketName("FLUSH");
  const zor::ClientSocket socket(socketName.text);
  if (!socket.valid()) return -1;
  const ZOR_MLOG_MSG request = {ZOR_MLOG_POWER_OFF, 0, {}};
  if (mlog_send_msg(socket.fd(), &request, ZOR_MLOG_SERVER_NAME) != 0) return -1;
  ZOR_MLOG_MSG reply;
  mlog_recv_msg(socket.fd(), &reply, ZOR_MLOG_ANSWER_WAIT_SECONDS, nullptr, 0);  // power goes off with or without it
  return 0;
}
