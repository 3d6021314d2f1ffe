#include "sdk/msgapi/standing.h"

#include <zor/event.h>
#include <zor/mlog.h>
#include <zor/msg_bus.h>
#include <zor/status.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "base/alloc.h"
#include "base/list.h"
#include "base/text.h"
#include "message/context.h"
#include "message/header.h"

namespace zor {
namespace {

// The body follows the message, ready to be sent.
struct Standing {
  Standing *next;
  ZOR_MSG_HEAD message;
};

Standing *standing = nullptr;

std::string_view BodyView(const ZOR_MSG_HEAD &header, const void *body) {
  return {static_cast<const char *>(body), header.bodyLength};
}

std::string_view BodyView(const Standing &entry) {
  return BodyView(entry.message, BodyOf(&entry.message));
}

// As the server reads it: a message type or its offset from the first one. Offset 0 means all events.
std::uint32_t EventOffset(const ZOR_MSG_HEAD &header) {
  return header.data >= ZOR_MSG_EVENT_FIRST ? header.data - ZOR_MSG_EVENT_FIRST : header.data;
}

// The daemon that a message is about, empty for this process: its name may be another one on the next connection.
struct Subject {
  explicit Subject(std::string_view body) {
    std::memcpy(name, body.data(), std::min(body.size(), sizeof name - 1));
    if (view() == NameView(g_stMsgCtx.appName)) SetName(name, nullptr);
  }
  std::string_view view() const { return NameView(name); }

  NameField name = {};
};

void Add(const ZOR_MSG_HEAD &header, std::string_view body) {
  MallocPtr<Standing> entry(static_cast<Standing *>(GuardedCalloc(sizeof(Standing) + body.size())));
  if (entry == nullptr) {
    mlog_print("msg", ZOR_MLOG_FATAL, "No memory to repeat msg type:[0x%x] data:[%d] on another connection.\n",
               header.type, header.data);
    return;
  }
  entry->message.type = header.type & ZOR_MSG_TYPE_MASK;
  entry->message.data = header.data;
  entry->message.bodyLength = static_cast<std::uint32_t>(body.size());
  if (!body.empty()) std::memcpy(BodyOf(&entry->message), body.data(), body.size());
  Append(standing, entry.release());
}

bool IsSubscription(const Standing &entry, const Subject &subject) {
  return entry.message.type == ZOR_MSG_SUBSCRIBE_EVENT && Subject(BodyView(entry)).view() == subject.view();
}

template <class Predicate>
void RemoveIf(Predicate &&matches) {
  for (Standing *entry : ListView<Standing>(standing)) {
    if (!matches(*entry)) continue;
    Unlink(standing, entry);
    const MallocPtr<Standing> owner(entry);
  }
}

void Subscribe(const ZOR_MSG_HEAD &header, std::string_view body) {
  const Subject subject(body);
  const auto same = [&](const Standing &entry) {
    return IsSubscription(entry, subject) && EventOffset(entry.message) == EventOffset(header);
  };
  if (Find(standing, same) != nullptr) return;
  Add(header, subject.view().empty() ? std::string_view() : std::string_view(subject.name, sizeof subject.name));
}

void Unsubscribe(const ZOR_MSG_HEAD &header, std::string_view body) {
  const Subject subject(body);
  const std::uint32_t event = EventOffset(header);
  RemoveIf([&](const Standing &entry) {
    return IsSubscription(entry, subject) && (event == 0 || EventOffset(entry.message) == event);
  });
}

// Subscriptions for a daemon end when it is stopped for good.
void StopForGood(const ZOR_MSG_HEAD &, std::string_view body) {
  const Subject subject(body);
  if (subject.view().empty()) return;
  RemoveIf([&](const Standing &entry) { return IsSubscription(entry, subject); });
}

void Announce(const ZOR_MSG_HEAD &header, std::string_view body) {
  const auto same = [&](const Standing &entry) {
    return entry.message.type == ZOR_MSG_RESTFUL_REGISTER && BodyView(entry) == body;
  };
  if (Find(standing, same) == nullptr) Add(header, body);
}

constexpr struct {
  std::uint32_t type;
  void (*note)(const ZOR_MSG_HEAD &header, std::string_view body);
} kNotes[] = {
    {ZOR_MSG_SUBSCRIBE_EVENT, Subscribe},
    {ZOR_MSG_UNSUBSCRIBE_EVENT, Unsubscribe},
    {ZOR_MSG_SAFE_EXIT, StopForGood},
    {ZOR_MSG_RESTFUL_REGISTER, Announce},
};

}  // namespace

void NoteSent(const ZOR_MSG_HEAD &header, const void *body) noexcept {
  if (header.destination[0] != '\0') return;
  for (const auto &[type, note] : kNotes) {
    if (type == (header.type & ZOR_MSG_TYPE_MASK)) return note(header, BodyView(header, body));
  }
}

std::uint32_t RepeatStanding(int fd) noexcept {
  for (Standing *entry : ListView<Standing>(standing)) {
    CopyName(entry->message.source, g_stMsgCtx.appName);
    const std::uint32_t status = ZOR_MSG_SendEx(fd, &entry->message);
    if (status != ZOR_OK) return status;
  }
  return ZOR_OK;
}

void ForgetStanding() noexcept {
  ZOR_UTIL_ListDeleteAll(&standing, nullptr);
}

}  // namespace zor
