#include "mlogserver/datagram.h"

#include <algorithm>
#include <cstring>

namespace zor::mlogserver {
namespace {

// What the kernel reports, with process 0, for a datagram that was sent before the socket asked for credentials.
constexpr uid_t kOverflowUser = 65534;

// The text of a field; none if it is unterminated.
std::optional<std::string> TextOf(const char (&field)[ZOR_MLOG_STAT_TEXT_SIZE]) {
  const size_t length = ::strnlen(field, sizeof field);
  return length == sizeof field ? std::nullopt : std::optional(std::string(field, length));
}

std::optional<ZOR_MLOG_STAT> RecordOf(const ZOR_MLOG_MSG &msg) {
  ZOR_MLOG_STAT record;
  if (msg.length != sizeof record) return std::nullopt;
  std::memcpy(&record, msg.data, sizeof record);
  return record;
}

std::optional<std::string> NameOf(const ZOR_MLOG_STAT &record) {
  std::optional<std::string> name = TextOf(record.name);
  return name && name->empty() ? std::nullopt : name;
}

}  // namespace

Sender SenderOf(const msghdr &message) {
  const cmsghdr *head = CMSG_FIRSTHDR(&message);
  ucred credentials;
  if (head == nullptr || head->cmsg_level != SOL_SOCKET || head->cmsg_type != SCM_CREDENTIALS ||
      head->cmsg_len != CMSG_LEN(sizeof credentials)) {
    return {};
  }
  std::memcpy(&credentials, CMSG_DATA(head), sizeof credentials);
  if (credentials.pid == 0 && credentials.uid == kOverflowUser) return {};
  return {credentials.pid, credentials.uid};
}

std::string PathOf(const Datagram &datagram) {
  constexpr size_t kBefore = offsetof(sockaddr_un, sun_path);
  if (datagram.addressLength <= kBefore) return {};
  const size_t room = std::min(size_t{datagram.addressLength} - kBefore, sizeof datagram.address.sun_path);
  return {datagram.address.sun_path, ::strnlen(datagram.address.sun_path, room)};
}

bool IsWhole(const ZOR_MLOG_MSG &msg, size_t size) {
  return size >= ZOR_MLOG_HEAD_SIZE && size <= sizeof msg && size - ZOR_MLOG_HEAD_SIZE == msg.length;
}

std::optional<std::string_view> LineOf(const ZOR_MLOG_MSG &msg) {
  const std::string_view line(msg.data, ::strnlen(msg.data, msg.length));
  return line.empty() ? std::nullopt : std::optional(line);
}

std::optional<Statistic> StatisticOf(const ZOR_MLOG_MSG &msg) {
  const std::optional<ZOR_MLOG_STAT> record = RecordOf(msg);
  if (!record) return std::nullopt;
  std::optional<std::string> name = NameOf(*record);
  std::optional<std::string> value = TextOf(record->value);
  if (!name || !value) return std::nullopt;
  return Statistic{std::move(*name), std::move(*value)};
}

std::optional<std::string> StatisticNameOf(const ZOR_MLOG_MSG &msg) {
  const std::optional<ZOR_MLOG_STAT> record = RecordOf(msg);
  return record ? NameOf(*record) : std::nullopt;
}

ZOR_MLOG_MSG StatisticReply(const Statistic &statistic) {
  ZOR_MLOG_STAT record = {};
  statistic.name.copy(record.name, sizeof record.name - 1);
  statistic.value.copy(record.value, sizeof record.value - 1);
  ZOR_MLOG_MSG reply = {ZOR_MLOG_GET_STAT, sizeof record, {}};
  std::memcpy(reply.data, &record, sizeof record);
  return reply;
}

}  // namespace zor::mlogserver
