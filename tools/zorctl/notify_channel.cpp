#include "zorctl/notify_channel.h"

#include <poll.h>
#include <sys/socket.h>
#include <zor/notify_control_wire.h>
#include <zor/paths.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "common/socket_address.h"
#include "programs/local_address.h"
#include "programs/paths.h"
#include "zorctl/control_result.h"
#include "zorctl/exit_code.h"
#include "zorctl/record.h"

namespace zor::ctl {
namespace {

constexpr char kServer[] = "the notification server";

Failure ServerGone() {
  return {kExitNoServer, std::string(kServer) + " has disconnected",
          "check its log, restart it if it has exited, then run this command again"};
}

// errno has the reason.
Failure NotConnected(const std::string &path) {
  if (errno == EACCES) {
    return {kExitRefused, "no permission to open " + path, "run this as a user with that permission"};
  }
  return {kExitNoServer, "no notification server listens on " + path,
          "start notifyserver, or set ZOR_ROOT to the directory that it runs in"};
}

Failure SystemFailure(const char *what) {
  return {kExitFailure, std::string(what) + ": " + std::strerror(errno), "check the limits of the system"};
}

sockaddr_un ServerAddress(const std::string &path) {
  if (const auto address = daemon::LocalAddress(path)) return *address;
  throw Failure(kExitUsage, "the path " + path + " is too long for a socket", "use a shorter ZOR_ROOT");
}

}  // namespace

NotifyChannel::NotifyChannel(const Deadline &deadline)
    : deadline_(deadline), socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  if (!socket_.valid()) throw SystemFailure("no socket");
  const std::string path = daemon::FixedPath(ZOR_PATH_NOTIFY_SERVER);
  const sockaddr_un address = ServerAddress(path);
  while (!Connect(socket_.get(), address)) {
    if (errno != EAGAIN) throw NotConnected(path);
    // A local socket does not report when the server's queue of connections has room again.
    if (deadline_.over())
      throw Failure(kExitTimeOver, std::string(kServer) + " accepts no connections", "check whether it is stopped");
    ::poll(nullptr, 0, 10);
  }
}

ZOR_NOTIFY_MSG NotifyChannel::NewHead(uint32_t module, uint32_t type, size_t dataLength) {
  if (dataLength > ZOR_NOTIFY_DATA_MAX) {
    throw Failure(kExitUsage, "the data is too large: " + std::to_string(dataLength) + " bytes",
                  "the limit is " + std::to_string(ZOR_NOTIFY_DATA_MAX));
  }
  ZOR_NOTIFY_MSG head = {};
  head.msg_type = type;
  head.seq = ++sequence_;
  head.source_id = module_;
  head.des_id = module;
  head.ack_tag = ZOR_NOTIFY_ACK_REQUEST;
  head.data_len = static_cast<uint32_t>(dataLength);
  return head;
}

void NotifyChannel::Register(uint32_t module) {
  module_ = module;
  const uint32_t data[] = {module, 0};
  const std::string_view bytes = RecordBytes(data);
  ZOR_NOTIFY_MSG head = NewHead(ZOR_NOTIFY_MID_SERVER, ZOR_NOTIFY_TYPE_REGISTER, bytes.size());
  head.sub_data_len1 = head.sub_data_len2 = sizeof module;
  Send(head, bytes);
}

void NotifyChannel::Post(uint32_t module, uint32_t type, std::string_view part1, std::string_view part2) {
  ZOR_NOTIFY_MSG head = NewHead(module, type, part1.size() + part2.size());
  head.sub_data_len1 = static_cast<uint32_t>(part1.size());
  head.sub_data_len2 = static_cast<uint32_t>(part2.size());
  head.async_flag = 1;
  Send(head, std::string(part1).append(part2));
}

std::string NotifyChannel::Request(uint32_t module, uint32_t type, std::string_view data) {
  ZOR_NOTIFY_MSG request = NewHead(module, type, data.size());
  request.sync_tag = 1;
  request.request_word = ZOR_NOTIFY_DATA_MAX;
  Send(request, data);
  for (;;) {
    ZOR_NOTIFY_MSG reply;
    std::memcpy(&reply, Receive(sizeof reply).data(), sizeof reply);
    if (reply.data_len > ZOR_NOTIFY_DATA_MAX) throw ServerGone();
    std::string replyData = Receive(reply.data_len);
    const bool isReply = reply.sync_tag == 1 && reply.ack_tag == ZOR_NOTIFY_ACK_ANSWER;
    if (isReply && reply.msg_type == type && reply.seq == request.seq) return replyData;
  }
}

nlohmann::json NotifyChannel::List() {
  return ControlJson(ZOR_NOTIFY_CONTROL_LIST);
}

nlohmann::json NotifyChannel::Restart() {
  return ControlJson(ZOR_NOTIFY_CONTROL_RESTART);
}

nlohmann::json NotifyChannel::ReloadRules() {
  return ControlJson(ZOR_NOTIFY_CONTROL_ACCESS_RELOAD);
}

std::string NotifyChannel::Refused() {
  return Control(ZOR_NOTIFY_CONTROL_REFUSALS);
}

std::string NotifyChannel::Control(uint32_t type) {
  const std::string reply = Request(ZOR_NOTIFY_MID_SERVER, type, {});
  uint32_t result = ZOR_CONTROL_UNKNOWN;  // a server that lacks this request replies without data
  if (reply.size() >= sizeof result) std::memcpy(&result, reply.data(), sizeof result);
  std::string body = reply.substr(std::min(reply.size(), sizeof result));
  CheckControl(result, kServer, body);
  return body;
}

nlohmann::json NotifyChannel::ControlJson(uint32_t type) {
  nlohmann::json json = nlohmann::json::parse(Control(type), nullptr, false);
  if (json.is_object()) return json;
  throw Failure(kExitFailure, std::string(kServer) + " sent a reply that is not JSON",
                "use a server and a tool of the same version");
}

void NotifyChannel::Await(short events) {
  pollfd watched = {socket_.get(), events, 0};
  int ready = 0;
  while (ready <= 0) {
    ready = ::poll(&watched, 1, deadline_.pollTimeout());
    if (ready < 0 && errno != EINTR) throw SystemFailure("poll");
    if (ready <= 0 && deadline_.over()) {
      throw Failure(kExitTimeOver, "no reply in time", "check whether the module is stuck, or increase --timeout");
    }
  }
}

void NotifyChannel::Send(const ZOR_NOTIFY_MSG &head, std::string_view data) {
  std::string bytes(RecordBytes(head));
  bytes.append(data);
  for (size_t sent = 0; sent < bytes.size();) {
    const ssize_t count = ::send(socket_.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count >= 0) {
      sent += static_cast<size_t>(count);
    } else if (errno == EAGAIN) {
      Await(POLLOUT);
    } else if (errno != EINTR) {
      throw ServerGone();
    }
  }
}

std::string NotifyChannel::Receive(size_t length) {
  std::string bytes(length, '\0');
  for (size_t received = 0; received < length;) {
    Await(POLLIN);
    const ssize_t count = ::recv(socket_.get(), bytes.data() + received, length - received, 0);
    if (count > 0) {
      received += static_cast<size_t>(count);
    } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
      throw ServerGone();
    }
  }
  return bytes;
}

}  // namespace zor::ctl
