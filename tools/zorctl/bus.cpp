#include "zorctl/bus.h"

#include <poll.h>
#include <unistd.h>
#include <zor/control_wire.h>
#include <zor/msg.h>
#include <zor/paths.h>
#include <zor/trace.h>
#include <zor/uv.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <system_error>

#include "common/malloc_ptr.h"
#include "programs/messages/message_types.h"
#include "programs/messages/nearest.h"
#include "programs/messages/status_text.h"
#include "programs/paths.h"
#include "zorctl/control_result.h"
#include "zorctl/exit_code.h"
#include "zorctl/format.h"
#include "zorctl/output.h"
#include "zorctl/text.h"
#include "zorctl/watchdog.h"

namespace zor::ctl {
namespace {

constexpr char kServer[] = "the message server";

}  // namespace

Failure ServerGone() {
  return {kExitNoServer, std::string(kServer) + " has disconnected", "restart it, then run this command again"};
}

namespace {

Failure TimeOver(const std::string &what) {
  return {kExitTimeOver, what, "check whether it is busy or stuck, or increase --timeout"};
}

// A server that dies with our messages unread makes a read fail like any other fault.
bool HasHungUp(int fd) {
  pollfd watched = {fd, 0, 0};
  return fd < 0 || (::poll(&watched, 1, 0) == 1 && (watched.revents & (POLLHUP | POLLERR)) != 0);
}

// No server listens, or we may not connect; the library does not report which.
Failure NotConnected() {
  const std::string path = daemon::FixedPath(ZOR_PATH_MSGSVR);
  if (::access(path.c_str(), F_OK) == 0 && ::access(path.c_str(), W_OK) != 0 && errno == EACCES) {
    return {kExitRefused, "no permission to open " + path, "become a member of the server's group"};
  }
  return {kExitNoServer, "no message server listens on " + path,
          "start msgsvr, or set ZOR_ROOT to the directory that it runs in"};
}

std::string StatusOf(uint32_t status) {
  const std::string_view text = messages::StatusText(status);
  return text.empty() ? "status " + HexText(status) : std::string(text);
}

void CheckSent(uint32_t status) {
  switch (status) {
    case ZOR_OK:
      return;
    case ZOR_E_PEER_GONE:
    case ZOR_E_NOT_CONNECTED:
      throw ServerGone();
    case ZOR_E_NOT_WRITABLE:
      throw TimeOver(std::string(kServer) + " accepts no more messages");
    case ZOR_E_BODY_FILE:
      throw Failure(kExitFailure, "cannot write the body to " + daemon::FixedPath(ZOR_PATH_MSG_FILE_DIR),
                    "check its permissions and free space");
    default:
      throw Failure(kExitFailure, "cannot send: " + StatusOf(status), "see docs/operations.md");
  }
}

Message Unpack(ZOR_MSG_HEAD *head) {
  const auto *body = static_cast<const char *>(ZOR_MSG_GetMsgByHead(head));
  return {head->type & ZOR_MSG_TYPE_MASK, head->sequence, std::string(FieldText(head->source, sizeof head->source)),
          head->data, body == nullptr ? std::string() : std::string(body, head->bodyLength)};
}

bool IsNoticeOf(const Message &message, uint32_t type, uint32_t sequence) {
  return message.type == ZOR_MSG_SEND_FAILED_NOTICE && message.fromServer() &&
         (message.data & ZOR_MSG_TYPE_MASK) == type && message.sequence == sequence;
}

// As for every daemon, a message of the same type is the reply: not all daemons return the sequence number. For a
// request without a destination the replying side is known only if it is the server.
bool IsReplyTo(const Message &message, const Outgoing &request) {
  if (message.type != request.type) return false;
  if (!request.destination.empty()) return message.source == request.destination;
  const types::Type *known = messages::FindType(request.type);
  return known == nullptr || known->to != "server" || message.fromServer();
}

}  // namespace

Bus::Bus(const Deadline &deadline, const std::string &name) {
  const Watchdog watchdog(deadline);
  const std::string wanted = name.empty() ? "ctl" + std::to_string(::getpid()) : name;
  if (ZOR_MSG_Init(wanted.c_str()) != ZOR_OK) throw NotConnected();
  if (g_stMsgCtx.socketFd < 0) {
    throw Failure(kExitRefused, std::string(kServer) + " refused the connection",
                  "check its log; it has max_clients clients, or its rules do not grant this command a name");
  }
  name_ = g_stMsgCtx.appName;
  ZOR_TRACE_SetPackageLevel(nullptr, 0);  // whatever the server sets for all daemons
}

Bus::~Bus() {
  ZOR_MSG_Destroy();
}

uint32_t Bus::Send(const Outgoing &message, const Deadline &deadline) {
  if (message.body.size() > kMaxBody) {
    throw Failure(kExitUsage, "the body is too large: " + std::to_string(message.body.size()) + " bytes",
                  "receivers accept at most " + std::to_string(kMaxBody));
  }
  SendNumbered(message, ++sequence_, deadline);
  return sequence_;
}

void Bus::Reply(const Message &request, uint32_t data, const std::string &body, const Deadline &deadline) {
  SendNumbered({request.type, request.source, data, body}, request.sequence, deadline);
}

void Bus::SendNumbered(const Outgoing &message, uint32_t sequence, const Deadline &deadline) {
  const Watchdog watchdog(deadline);
  const auto length = static_cast<uint32_t>(message.body.size());
  CheckSent(ZOR_MSG_SendMsgDataWithDataSeq(message.destination.c_str(), message.type,
                                           length == 0 ? nullptr : message.body.data(), length, message.data,
                                           sequence));
}

int Bus::TimeUntilTimer() {
  timespec now = {};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  UvLoop *loop = ZOR_UV_LoopGetDefault();
  UvTime wait = {};
  if (loop == nullptr) return -1;
  loop->now = {static_cast<int32_t>(now.tv_sec), static_cast<int32_t>(now.tv_nsec / 1000)};
  constexpr int32_t kLongest = 3600;
  if (ZOR_UV_RunTimers(loop, &wait) != ZOR_OK) return -1;
  return std::clamp(wait.seconds, 0, kLongest) * 1000 + wait.microseconds / 1000 + 1;
}

bool Bus::AwaitMessage(const Deadline &deadline) {
  Flush();
  while (!stopped_) {
    const int timer = TimeUntilTimer();
    pollfd watched[] = {{g_stMsgCtx.socketFd, POLLIN, 0}, {stop_ == nullptr ? -1 : stop_->fd(), POLLIN, 0}};
    const int timeout = timer < 0 ? deadline.pollTimeout() : std::min(timer, deadline.pollTimeout());
    const int ready = ::poll(watched, std::size(watched), timeout);
    if (ready < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category(), "poll");
    stopped_ = ready > 0 && watched[1].revents != 0;
    if (ready > 0 && watched[0].revents != 0 && !stopped_) return true;
    if (deadline.over()) break;
  }
  return false;
}

std::optional<Message> Bus::Read(const Deadline &deadline) {
  if (!AwaitMessage(deadline)) return std::nullopt;
  // A message that has arrived is read, however little time is left.
  const Watchdog watchdog(deadline);
  ZOR_MSG_HEAD *received = nullptr;
  const uint32_t status = ZOR_MSG_Recv(g_stMsgCtx.socketFd, &received, 0);
  const MallocPtr<ZOR_MSG_HEAD> head(received);
  if (status == ZOR_E_PEER_GONE || (status == ZOR_E_IO && HasHungUp(g_stMsgCtx.socketFd))) throw ServerGone();
  if (status != ZOR_OK) {
    throw Unreadable(kExitFailure, "cannot read a message: " + StatusOf(status),
                     "a body file may be missing or unreadable in " + daemon::FixedPath(ZOR_PATH_MSG_FILE_DIR));
  }
  return Unpack(head.get());
}

std::optional<Message> Bus::Receive(const Deadline &deadline) {
  if (setAside_.empty()) return Read(deadline);
  Message first = std::move(setAside_.front());
  setAside_.pop_front();
  return first;
}

Message Bus::Request(const Outgoing &request, const Deadline &deadline) {
  const uint32_t sequence = Send(request, deadline);
  while (std::optional<Message> message = Read(deadline)) {
    if (IsNoticeOf(*message, request.type, sequence)) throw Undelivered(request);
    if (IsReplyTo(*message, request)) return std::move(*message);
    setAside_.push_back(std::move(*message));
  }
  const std::string what =
      request.destination.empty() ? "no reply in time" : Escape(request.destination) + " has not replied in time";
  const types::Type *known = messages::FindType(request.type);
  if (known == nullptr || known->kind != types::Kind::kOneway) throw TimeOver(what);
  throw Failure(kExitTimeOver, what, messages::TypeText(*known) + " is one-way, so zorctl send sends it");
}

std::string Bus::Control(uint32_t type, std::string_view body, const Deadline &deadline) try {
  Message reply = Request({type, "", 0, std::string(body)}, deadline.ForServer());
  CheckControl(reply.data, kServer, reply.body);
  return std::move(reply.body);
} catch (const Failure &failure) {
  if (failure.code != kExitNotFound) throw;
  // A server that lacks these requests looks for a daemon to forward them to.
  CheckControl(ZOR_CONTROL_UNKNOWN, kServer);
  throw;
}

nlohmann::json Bus::ControlJson(uint32_t type, std::string_view body, const Deadline &deadline) {
  nlohmann::json reply = nlohmann::json::parse(Control(type, body, deadline), nullptr, false);
  if (!reply.is_object()) {
    throw Failure(kExitFailure, std::string(kServer) + " sent a reply that is not JSON",
                  "use a server and a tool of the same version");
  }
  return reply;
}

// The server handles a client's messages in order: its reply to the request that follows the message comes after any
// notice that the message could not be delivered.
void Bus::SendAndCheck(const Outgoing &message, const Deadline &deadline) {
  const uint32_t sequence = Send(message, deadline);
  CountProcesses(name_, deadline);
  const auto notice = std::find_if(setAside_.begin(), setAside_.end(),
                                   [&](const Message &each) { return IsNoticeOf(each, message.type, sequence); });
  if (notice != setAside_.end()) throw Undelivered(message);
}

uint32_t Bus::CountProcesses(std::string_view name, const Deadline &deadline) {
  return Request({ZOR_MSG_GET_PROCESS_NUM, "", 0, NameField(name)}, deadline.ForServer()).data;
}

Failure Bus::Undelivered(const Outgoing &request) {
  if (request.destination.empty()) {
    const types::Type *known = messages::FindType(request.type);
    const bool isForOne = known != nullptr && known->to != "server" && known->to != "any";
    return {kExitNotFound,
            "no daemon on the bus receives messages of type " + HexText(request.type) + " without a destination",
            "name the daemon" + (isForOne ? ", " + known->to : "") + ", or set route." + HexText(request.type) +
                " in the server's settings"};
  }
  return NoSuchDaemon(request.destination);
}

// Only operators may see the list; others are not told what they may have meant.
Failure Bus::NoSuchDaemon(std::string_view name) {
  std::vector<std::string> names;
  try {
    const nlohmann::json list = ControlJson(ZOR_MSG_CONTROL_LIST, "", Deadline(Milliseconds(0)));
    for (const auto &client : list.value("clients", nlohmann::json::array())) {
      if (!client.value("self", false)) names.push_back(client.value("name", ""));
    }
  } catch (const Failure &) {
  }
  return {kExitNotFound, "no daemon " + Escape(name) + " on the bus",
          messages::DidYouMean(name, names) + "zorctl list shows the daemons on the bus"};
}

std::string NameField(std::string_view name) {
  const bool visible = std::all_of(name.begin(), name.end(), [](char each) { return each > ' ' && each <= '~'; });
  if (name.empty() || name.size() >= ZOR_MSG_NAME_SIZE || !visible) {
    throw Failure(kExitUsage, "not a valid daemon name: " + Escape(name),
                  "names have 1 to 11 visible ASCII characters");
  }
  std::string field(name);
  field.resize(ZOR_MSG_NAME_SIZE);
  return field;
}

}  // namespace zor::ctl
