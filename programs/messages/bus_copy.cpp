#include "programs/messages/bus_copy.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>

#include "programs/format_time.h"
#include "programs/messages/body.h"
#include "programs/messages/message_types.h"
#include "programs/messages/text.h"

namespace zor::messages {
namespace {

using Json = nlohmann::ordered_json;

constexpr uint64_t kMicrosInSecond = 1'000'000;

std::string Micros(uint64_t timeUs) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), ".%06u", static_cast<unsigned>(timeUs % kMicrosInSecond));
  return text.data();
}

std::string UtcTimestamp(uint64_t timeUs) {
  const auto seconds = static_cast<std::time_t>(timeUs / kMicrosInSecond);
  return daemon::FormatTime(seconds, "%Y-%m-%dT%H:%M:%S", ::gmtime_r) + Micros(timeUs) + "Z";
}

// Whether the daemon that receives requests of this type sent it: then it replies to a request that was not captured.
bool IsFromReceiverOfRequests(const BusCopy &copy) {
  const types::Type *type = FindType(copy.type());
  if (type == nullptr || type->to == "any" || copy.destination().empty()) return false;
  return type->to == "server" ? copy.source().empty() : copy.source() == type->to;
}

}  // namespace

std::string_view BusCopy::source() const {
  return FieldText(head.source, sizeof head.source);
}

std::string_view BusCopy::destination() const {
  return FieldText(head.destination, sizeof head.destination);
}

std::string_view BusCopy::receiver() const {
  const std::string_view receiver = FieldText(copy.receiver, sizeof copy.receiver);
  return receiver.empty() ? destination() : receiver;
}

std::optional<BusCopy> ParseCopy(std::string_view bytes) {
  BusCopy copy{};
  constexpr size_t kHeads = sizeof copy.copy + sizeof copy.head;
  if (bytes.size() < kHeads) return std::nullopt;
  std::memcpy(&copy.copy, bytes.data(), sizeof copy.copy);
  std::memcpy(&copy.head, bytes.data() + sizeof copy.copy, sizeof copy.head);
  copy.body = bytes.substr(kHeads, copy.head.bodyLength);
  return copy;
}

bool Conversations::IsReply(const BusCopy &copy) {
  const uint64_t number = uint64_t{copy.type()} << 32 | copy.head.sequence;
  if (copy.head.sequence == 0) return IsFromReceiverOfRequests(copy);
  if (requests_.erase({std::string(copy.receiver()), number}) > 0) return true;
  if (IsFromReceiverOfRequests(copy)) return true;
  if (requests_.size() == kMaxRequests) requests_.clear();  // these get no reply
  requests_.emplace(copy.source(), number);
  return false;
}

Json CopyBody(const BusCopy &copy, bool isReply) {
  if (copy.inFile()) return {{"file", FieldText(copy.body.data(), copy.body.size())}};
  const types::Type *type = FindType(copy.type());
  if (type == nullptr) return DecodeUnknown(copy.body);
  return Decode(isReply ? type->replyShape() : type->requestShape(), copy.head.data, copy.body);
}

Json CopyJson(const BusCopy &copy, bool isReply) {
  return {{"time", UtcTimestamp(copy.copy.timeUs)},
          {"missed", copy.copy.missed},
          {"delivered", copy.delivered()},
          {"receiver", copy.receiver()},
          {"type", copy.type()},
          {"name", TypeText(copy.type())},
          {"sequence", copy.head.sequence},
          {"source", copy.source()},
          {"destination", copy.destination()},
          {"data", copy.head.data},
          {"body_length", copy.head.bodyLength},
          {"cut", copy.body.size() < copy.head.bodyLength},
          {"body", CopyBody(copy, isReply)}};
}

}  // namespace zor::messages
