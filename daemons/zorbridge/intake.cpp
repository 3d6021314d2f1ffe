#include "zorbridge/intake.h"

#include <zor/control_wire.h>
#include <zor/event.h>
#include <zor/log_wire.h>
#include <zor/msg.h>
#include <zor/uv_io.h>

#include <cstring>
#include <utility>

#include "programs/bus_request.h"
#include "programs/fleet_wire.h"
#include "programs/messages/event.h"
#include "zorbridge/event_text.h"
#include "zorbridge/log_text.h"
#include "zorbridge/time_text.h"

namespace zor::bridge {
namespace {

// Bus handlers have no data pointer.
Intake *registered = nullptr;

Keeping KeepingOf(const BridgeSettings &settings, std::uint32_t type) {
  const auto found = settings.events.find(type);
  return found == settings.events.end() ? settings.otherEvents : found->second;
}

template <class Record>
bool Read(std::string_view &body, Record &record) {
  if (body.size() < sizeof record) return false;
  std::memcpy(&record, body.data(), sizeof record);
  body.remove_prefix(sizeof record);
  return true;
}

}  // namespace

Intake::Intake(const BridgeSettings &settings, Uplink &uplink, OnMissed onMissed)
    : settings_(settings), uplink_(uplink), onMissed_(std::move(onMissed)) {
  registered = this;
}

Intake::~Intake() {
  registered = nullptr;
}

void Intake::Join() {
  if (settings_.otherEvents != Keeping::kOff) {
    ZOR_EVT_SubscribeAllEvent();
  } else {
    for (const auto &[type, keeping] : settings_.events) {
      if (keeping != Keeping::kOff) ZOR_MSG_SendSimpleMsg(nullptr, ZOR_MSG_SUBSCRIBE_EVENT, type);
    }
  }
  TakeMessages();
}

void Intake::Rejoin() {
  TakeMessages();
}

void Intake::TakeMessages() {
  ZOR_MSG_RegisterMsgProc(OnMessage);
  // The library does not dispatch messages of some megabytes.
  if (g_stMsgCtx.watcher != nullptr) g_stMsgCtx.watcher->defaultHandler = OnAnyLength;
  ZOR_MSG_SendSimpleMsg(nullptr, ZOR_MSG_CONTROL_GAPS, 1);
}

void Intake::OnAnyLength(ZOR_MSG_HEAD *message) {
  if (message->bodyLength > ZOR_MSG_DISPATCH_BODY_MAX && messages::IsEvent(message->type)) {
    OnMessage(message, message->bodyLength);
  } else {
    ZOR_MSG_MsgFilterProc(message, 0);
  }
}

void Intake::OnMessage(ZOR_MSG_HEAD *message, std::uint32_t) {
  if (registered != nullptr) registered->Take(*message);
}

void Intake::Take(ZOR_MSG_HEAD &message) {
  const bool isFromServer = message.source[0] == '\0';
  if (messages::IsEvent(message.type)) {
    TakeEvent(message);
  } else if (message.type == ZOR_LOG_MSG_COPY) {
    TakeLog(message);
  } else if (message.type == ZOR_MSG_SEND_FAILED_NOTICE && isFromServer) {
    daemon::TakeUndelivered(message);
  } else if (message.type == ZOR_MSG_CONTROL_GAP && isFromServer) {
    TakeGap(daemon::BodyOf(message));
  } else {
    ZOR_MSG_DefaultMsgProc(&message);
  }
}

void Intake::TakeEvent(const ZOR_MSG_HEAD &message) {
  const Keeping keeping = KeepingOf(settings_, message.type);
  if (keeping == Keeping::kOff) return;
  EventRecord event = TextOfEvent(message.type, message.data, daemon::BodyOf(message));
  uplink_.Record(keeping, std::move(event.topic), event.group, event.members);
}

void Intake::TakeLog(const ZOR_MSG_HEAD &message) {
  // Whoever may send on the bus may send this; only the log daemon has its name.
  if (settings_.log == Keeping::kOff || std::strncmp(message.source, ZOR_LOG_DAEMON_NAME, sizeof message.source) != 0) {
    return;
  }
  const auto copy = ParseLogCopy(daemon::BodyOf(message));
  if (!copy || (copy->typeLevel & settings_.logLevels) == 0 ||
      (copy->typeLevel >> ZOR_LOG_TYPE_SHIFT & settings_.logTypes) == 0) {
    return;
  }
  uplink_.Record(settings_.log, std::string(fleet::topic::kLog), fleet::topic::kLog, TextOfLog(*copy));
}

void Intake::TakeGap(std::string_view body) {
  ZOR_CONTROL_GAP gap;
  if (!Read(body, gap)) return;
  onMissed_(gap.events);
  std::string by;
  ZOR_CONTROL_GAP_TYPE each;
  for (std::uint32_t count = 0; count < gap.types && Read(body, each); ++count) {
    by += (by.empty() ? "\"" : ",\"") + ("event/" + EventModule(each.type)) + "\":" + std::to_string(each.events);
  }
  const auto since = static_cast<std::int64_t>(gap.sinceUs / 1000);
  uplink_.Record(Keeping::kKeep, std::string(fleet::topic::kGap), fleet::topic::kGap,
                 "\"lost\":" + std::to_string(gap.events) + ",\"from\":\"" + TimeText(since) + "\",\"to\":\"" +
                     TimeText(UnixMs()) + "\",\"by\":{" + by + "}");
}

}  // namespace zor::bridge
