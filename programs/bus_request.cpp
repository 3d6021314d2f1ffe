#include "programs/bus_request.h"

#include <zor/msg.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <utility>

#include "common/malloc_ptr.h"

namespace zor::daemon {
namespace {

struct Waiting {
  std::uint32_t type;
  std::uint32_t sequence;
  OnReply then;
};

// By number, since the library calls back also for one that a notice has ended.
std::map<std::uintptr_t, Waiting> &All() {
  static std::map<std::uintptr_t, Waiting> waiting;
  return waiting;
}

void End(std::map<std::uintptr_t, Waiting>::iterator at, const ZOR_MSG_HEAD *reply, NoReply why) {
  const OnReply then = std::move(at->second.then);
  All().erase(at);
  then(reply, why);
}

void CallBack(ZOR_MSG_HEAD *reply, std::uint32_t status, void *number) {
  const auto found = All().find(reinterpret_cast<std::uintptr_t>(number));
  if (found == All().end()) return;
  End(found, reply, status == ZOR_E_PEER_GONE ? NoReply::kServerGone : NoReply::kTimeOver);
}

}  // namespace

void AskBus(const BusRequest &request, std::chrono::milliseconds timeout, OnReply then) {
  static std::uintptr_t last = 0;
  const MallocPtr<ZOR_MSG_HEAD> message(
      static_cast<ZOR_MSG_HEAD *>(std::malloc(sizeof(ZOR_MSG_HEAD) + request.body.size())));
  if (message == nullptr) return then(nullptr, NoReply::kServerGone);
  ZOR_MSG_SimpleBuilder(message.get(), request.destination.c_str(), request.type, request.data);
  message->bodyLength = static_cast<std::uint32_t>(request.body.size());
  request.body.copy(reinterpret_cast<char *>(message.get() + 1), request.body.size());
  const auto ms = static_cast<std::uint32_t>(std::max<std::int64_t>(timeout.count(), 1));
  const std::uintptr_t number = ++last;
  if (ZOR_MSG_AsyncSendAndRecv(message.get(), CallBack, ms, reinterpret_cast<void *>(number)) != ZOR_OK) {
    return then(nullptr, NoReply::kServerGone);
  }
  All()[number] = {request.type, message->sequence, std::move(then)};
}

void TakeUndelivered(const ZOR_MSG_HEAD &notice) {
  const auto found = std::ranges::find_if(All(), [&notice](const auto &each) {
    return each.second.type == notice.data && each.second.sequence == notice.sequence;
  });
  if (found != All().end()) End(found, nullptr, NoReply::kUndelivered);
}

std::string_view BodyOf(const ZOR_MSG_HEAD &message) {
  return {reinterpret_cast<const char *>(&message + 1), message.bodyLength};
}

std::string NameField(std::string name) {
  name.resize(ZOR_MSG_NAME_SIZE);
  return name;
}

}  // namespace zor::daemon
