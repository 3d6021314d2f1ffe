#include "msgsvr/control.h"

#include <algorithm>
#include <cstring>

#include "msgsvr/control_list.h"
#include "msgsvr/registration.h"
#include "programs/json.h"
#include "programs/limits.h"

namespace zor::msgsvr {
namespace {

// The name that the body consists of; nothing if it is malformed.
std::optional<AppName> NameIn(std::span<const std::byte> body) {
  char field[ZOR_MSG_NAME_SIZE];
  if (body.size() != sizeof field) return std::nullopt;
  std::memcpy(field, body.data(), sizeof field);
  return AppName::FromField(field);
}

uint32_t ResultOf(TraceOverrides::Result result) {
  if (result == TraceOverrides::Result::kMalformed) return ZOR_CONTROL_MALFORMED;
  return result == TraceOverrides::Result::kDone ? ZOR_CONTROL_OK : ZOR_CONTROL_FAILED;
}

}  // namespace

const Control::Entry Control::kEntries[] = {
    {ZOR_MSG_CONTROL_LIST, true, &Control::List},
    {ZOR_MSG_CONTROL_MONITOR, true, &Control::Monitor},
    {ZOR_MSG_CONTROL_TRACE_GET, true, &Control::TraceGet},
    {ZOR_MSG_CONTROL_TRACE_SET, true, &Control::TraceSet},
    {ZOR_MSG_CONTROL_TRACE_CLEAR, true, &Control::TraceClear},
    {ZOR_MSG_CONTROL_RESTART, true, &Control::Restart},
    {ZOR_MSG_CONTROL_ACCESS_RELOAD, true, &Control::AccessReload},
    {ZOR_MSG_CONTROL_ACCESS_REFUSED, true, &Control::AccessRefused},
    {ZOR_MSG_CONTROL_RECORDER, true, &Control::Recorder},
    {ZOR_MSG_CONTROL_GAPS, false, &Control::Gaps},
};

void Control::Handle(Client &from, const Frame &frame) {
  delivery_.CopyRequest(frame);
  const ControlReply reply = Perform(from, frame);
  if (!reply.later) Send(from, frame, reply);
}

Control::ControlReply Control::Perform(Client &from, const Frame &frame) {
  std::optional<std::vector<std::byte>> content;
  if (frame.bodyInFile()) {
    content = files_.Read(limits::msgsvr::kControlInFile);
    bus_.files.Remove(frame.bytes);
    if (!content) return {ZOR_CONTROL_FAILED, {}};
  }
  const auto *entry = std::find_if(std::begin(kEntries), std::end(kEntries),
                                   [&](const Entry &candidate) { return candidate.type == frame.type(); });
  const bool known = entry != std::end(kEntries);
  if ((!known || entry->forOperators) && !permission_.MayControl(from, frame.type())) return {ZOR_CONTROL_REFUSED, {}};
  if (!known) return {ZOR_CONTROL_UNKNOWN, {}};
  return (this->*entry->handle)(from, frame, content ? Body(*content) : frame.body());
}

void Control::Send(Client &to, const Frame &request, const ControlReply &reply) {
  if (reply.body.size() > ZOR_MSG_INLINE_BODY_MAX) return SendInFile(to, request, reply);
  delivery_.Reply(to, request, reply.result, std::as_bytes(std::span(reply.body)));
}

void Control::SendInFile(Client &to, const Frame &request, const ControlReply &reply) {
  const auto body = bus_.files.Create(std::as_bytes(std::span(reply.body)), to.peer.uid);
  if (!body) return delivery_.Reply(to, request, ZOR_CONTROL_FAILED);
  bool sent = false;
  const bool hasMemory = bus_.Try([&] {
    const uint32_t type = request.type() | ZOR_MSG_BODY_IN_FILE;
    sent = delivery_.Send(to, BuildFrame(type, request.head.sequence, to.name, reply.result, *body));
  });
  if (!sent) bus_.files.RemoveBody(*body);
  if (!hasMemory) delivery_.Reply(to, request, ZOR_CONTROL_FAILED);
}

Control::ControlReply Control::List(Client &from, const Frame &, Body body) {
  if (!body.empty()) return {ZOR_CONTROL_MALFORMED, {}};
  std::string text = ListText(bus_, from);
  if (text.empty()) return {ZOR_CONTROL_FAILED, {}};
  return {ZOR_CONTROL_OK, std::move(text)};
}

Control::ControlReply Control::Monitor(Client &from, const Frame &, Body body) {
  bus_.Changed(from);
  if (body.empty()) {
    // Copies made in this turn would otherwise stay in the queue.
    delivery_.FlushCopies();
    const uint32_t missed = bus_.monitors.Remove(from);
    return {ZOR_CONTROL_OK, {reinterpret_cast<const char *>(&missed), sizeof missed}};
  }
  ZOR_CONTROL_FILTER filter;
  if (body.size() != sizeof filter) return {ZOR_CONTROL_MALFORMED, {}};
  std::memcpy(&filter, body.data(), sizeof filter);
  return {bus_.monitors.Set(from, filter) ? ZOR_CONTROL_OK : ZOR_CONTROL_MALFORMED, {}};
}

Control::ControlReply Control::TraceGet(Client &, const Frame &, Body body) {
  const auto name = NameIn(body);
  if (!name || !name->IsGrantable()) return {ZOR_CONTROL_MALFORMED, {}};
  const TraceSettings trace = TraceSettingsOf(bus_.settings, bus_.traceOverrides, *name);
  const daemon::Json json = TraceToJson({std::string(name->text()), trace.members});
  cJSON_AddStringToObject(json.get(), "source", std::string(trace.source).c_str());
  std::string text = daemon::JsonText(json.get());
  if (text.empty()) return {ZOR_CONTROL_FAILED, {}};
  return {ZOR_CONTROL_OK, std::move(text)};
}

Control::ControlReply Control::TraceSet(Client &, const Frame &, Body body) {
  return {ResultOf(bus_.traceOverrides.Set(TextOf(body))), {}};
}

Control::ControlReply Control::TraceClear(Client &, const Frame &, Body body) {
  const auto name = body.empty() ? std::optional(AppName()) : NameIn(body);
  if (!name || (!name->empty() && !name->IsGrantable())) return {ZOR_CONTROL_MALFORMED, {}};
  return {ResultOf(bus_.traceOverrides.Clear(*name)), {}};
}

Control::ControlReply Control::Restart(Client &from, const Frame &frame, Body body) {
  if (!body.empty()) return {ZOR_CONTROL_MALFORMED, {}};
  if (bus_.restartFor) return {ZOR_CONTROL_UNCHANGED, "it is being replaced already"};
  bus_.restartFor = {from.id, frame.type(), frame.head.sequence};
  return {ZOR_CONTROL_OK, {}, true};
}

Control::ControlReply Control::AccessReload(Client &from, const Frame &, Body body) {
  if (!body.empty()) return {ZOR_CONTROL_MALFORMED, {}};
  access::Reloaded reloaded = access::ReloadRules(bus_.guard, from.Label().c_str(), bus_.log);
  return {reloaded.done ? ZOR_CONTROL_OK : ZOR_CONTROL_UNCHANGED, std::move(reloaded.text)};
}

Control::ControlReply Control::AccessRefused(Client &, const Frame &, Body body) {
  if (!body.empty()) return {ZOR_CONTROL_MALFORMED, {}};
  return {ZOR_CONTROL_OK, bus_.guard.refusals().Text(limits::msgsvr::kRefusalList)};
}

Control::ControlReply Control::Recorder(Client &, const Frame &, Body body) {
  if (!body.empty()) return {ZOR_CONTROL_MALFORMED, {}};
  return {ZOR_CONTROL_OK, bus_.recorder.Content()};
}

Control::ControlReply Control::Gaps(Client &from, const Frame &frame, Body body) {
  if (!body.empty() || frame.head.data > 1) return {ZOR_CONTROL_MALFORMED, {}};
  from.gap.Want(frame.head.data == 1);
  bus_.Changed(from);
  return {ZOR_CONTROL_OK, {}};
}

}  // namespace zor::msgsvr
