#include "records.h"

#include <zor/config_wire.h>
#include <zor/dmmsg.h>
#include <zor/kiva_wire.h>
#include <zor/log_wire.h>
#include <zor/msg.h>
#include <zor/status.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "thermo.hpp"

namespace zor::test {
namespace {

constexpr std::uint32_t kSubType = 0x0203;
constexpr std::uint32_t kKind = 0x01020304;
constexpr std::uint32_t kReboot = 0x1E080001;  // an item of the log

using Management = std::unique_ptr<ZOR_DMMSG_HEAD, decltype(&ZOR_DMMSG_Free)>;

struct Item {
  std::uint32_t kind;
  std::string name, value;
};

template <typename Number>
void Reverse(Number &number) {
  auto *const bytes = reinterpret_cast<char *>(&number);
  std::reverse(bytes, bytes + sizeof number);
}

void ReverseWords(std::string &body, std::size_t at, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i, at += 4) std::reverse(body.data() + at, body.data() + at + 4);
}

std::uint32_t WordAt(const std::string &body, std::size_t at) {
  std::uint32_t word = 0;
  std::memcpy(&word, body.data() + at, sizeof word);
  return word;
}

// The head's six words and the three before each name and value. The lengths are this machine's before or afterwards.
std::string Reversed(std::string body, bool isOurs) {
  ReverseWords(body, 0, ZOR_DMMSG_HEAD_SIZE / 4);
  for (std::size_t at = ZOR_DMMSG_HEAD_SIZE; at < body.size();) {
    const std::size_t item = at;
    if (!isOurs) ReverseWords(body, item, 3);
    at += ZOR_DMMSG_ITEM_HEAD_SIZE + WordAt(body, item + 4) + WordAt(body, item + 8);
    if (isOurs) ReverseWords(body, item, 3);
  }
  return body;
}

Management AsMessage(const std::string &body) {
  void *const block = ZOR_MSG_GetMsgBlock(static_cast<std::uint32_t>(body.size()));
  ZOR_MSG_SetMsgProfile(block, "sender", ZOR_MSG_DM, static_cast<std::uint32_t>(body.size()));
  std::memcpy(block, body.data(), body.size());
  return {static_cast<ZOR_DMMSG_HEAD *>(block), ZOR_DMMSG_Free};
}

Management MakeManagement(const char *to, std::uint32_t subType, const std::vector<Item> &items) {
  ZOR_DMMSG_HEAD *message = nullptr;
  if (ZOR_DMMSG_Builder(&message, to, subType) != ZOR_OK) std::abort();
  for (const auto &[kind, name, value] : items) {
    const auto length = static_cast<std::uint32_t>(value.size());
    if (ZOR_DMMSG_AppendItem(&message, kind, name.c_str(), value.data(), length) != ZOR_OK) std::abort();
  }
  return {message, ZOR_DMMSG_Free};
}

std::vector<Item> ItemsIn(const ZOR_DMMSG_HEAD *message) {
  std::vector<Item> items;
  ZOR_DMMSG_ITEM item = {};
  const void *iterator = nullptr;
  while (ZOR_DMMSG_GetItem(message, &item, &iterator) == ZOR_OK) {
    items.push_back({item.kind, std::string(item.name == nullptr ? "" : item.name),
                     std::string(static_cast<const char *>(item.value), item.valueLength)});
  }
  return items;
}

// With all numbers set; the other fields are as the type has them by default.
template <class Message>
Message Filled() {
  Message message;
  message.u8 = 7;
  message.u16 = 0x0102;
  message.u32 = 0x01020304;
  message.u64 = 0x0102030405060708;
  message.i8 = -7;
  message.i16 = -0x0102;
  message.i32 = -0x01020304;
  message.i64 = -0x0102030405060708;
  message.class_ = 1.5;
  return message;
}

template <class Message>
void Raise(Message &message) {
  ++message.u8, ++message.u16, ++message.u32, ++message.u64;
  ++message.i8, ++message.i16, ++message.i32, ++message.i64;
  message.class_ += 1;
}

void Reverse(thermo::EveryMessage &message) {
  Reverse(message.u16), Reverse(message.u32), Reverse(message.u64);
  Reverse(message.i16), Reverse(message.i32), Reverse(message.i64);
  Reverse(message.class_);
}

template <class Record>
std::string BytesOf(const Record &record) {
  return {reinterpret_cast<const char *>(&record), sizeof record};
}

template <class Message>
std::string Encoded(const Message &message) {
  std::string body;
  message.append_to(body);
  return body;
}

template <class Message>
Message Decoded(const std::string &body) {
  Message message;
  if (!Message::decode(body, 0, message)) std::abort();
  return message;
}

template <class Message>
std::string AnswerTo() {
  auto raised = Filled<Message>();
  Raise(raised);
  return Encoded(raised);
}

}  // namespace

std::string AnswerManagement(std::string request, bool isReversed) {
  if (isReversed) {
    const Management foreign = AsMessage(request);
    if (ZOR_DMMSG_ReplyRetCode(foreign.get(), 0) != ZOR_E_DM_ARGUMENT) std::abort();
    request = Reversed(std::move(request), false);
  }
  const Management asked = AsMessage(request);
  std::vector<Item> items = ItemsIn(asked.get());
  for (Item &item : items) ++item.kind;
  const Management reply = MakeManagement("asker", ZOR_DMMSG_GetSubType(asked.get()) + 1, items);
  reply->capacity -= reply->free;
  reply->free = 0;
  const std::string body(reinterpret_cast<const char *>(reply.get()), reply->capacity);
  return isReversed ? Reversed(body, true) : body;
}

bool IsManagementAnswered(const char *peer, std::uint32_t timeoutMs) {
  const std::string name = "one", value = "\x01\x02\x03";
  const Management request = MakeManagement(peer, kSubType, {{kKind, name, value}, {2, "", ""}, {3, "", value}});
  ZOR_MSG_GetMsgHead(request.get())->data = kByteOrder;
  ZOR_DMMSG_HEAD *received = nullptr;
  if (ZOR_DMMSG_SyncSend(request.get(), &received, timeoutMs) != ZOR_OK) return false;
  const Management reply(received, ZOR_DMMSG_Free);
  const std::vector<Item> items = ItemsIn(reply.get());
  return ZOR_DMMSG_GetSubType(reply.get()) == kSubType + 1 && items.size() == 3 && items[0].kind == kKind + 1 &&
         items[0].name == name && items[0].value == value && items[1].kind == 3 && items[1].name.empty() &&
         items[1].value.empty() && items[2].kind == 4 && items[2].name.empty() && items[2].value == value;
}

std::string AnswerRecord(const std::string &request, bool isReversed) {
  auto record = Decoded<thermo::EveryMessage>(request);
  if (isReversed) Reverse(record);
  if (Encoded(record) != MakeRecord()) std::abort();
  Raise(record);
  if (isReversed) Reverse(record);
  return Encoded(record);
}

std::string MakeRecord() {
  return Encoded(Filled<thermo::EveryMessage>());
}

bool IsRecordAnswered(const std::string &reply) {
  return reply == AnswerTo<thermo::EveryMessage>();
}

std::string MakeLogRecord(const std::string &user, bool isReversed) {
  ZOR_LOG_RECORD record = {};
  record.index = kReboot;
  record.parameterCount = 1;
  record.usedLength = sizeof record.parameters;
  user.copy(record.parameters, sizeof record.parameters - 1);
  if (isReversed) Reverse(record.index), Reverse(record.parameterCount), Reverse(record.usedLength);
  return BytesOf(record);
}

std::string MakeRestoration(std::uint32_t user, bool isReversed) {
  ZOR_CFG_RESTORE body = {ZOR_CFG_RESTORE_SAVED, user};
  if (isReversed) Reverse(body.mode), Reverse(body.user);
  return BytesOf(body);
}

std::string MakeDevice(const std::string &mac, std::uint32_t state, std::uint32_t loaded, bool isReversed) {
  kiva_info_status status = {};
  status.state = state;
  status.dlSize = loaded;
  std::string body = BytesOf(status);
  if (isReversed) ReverseWords(body, 0, body.size() / 4);
  const std::string noText(1, '\0');
  return body + mac + noText + noText + noText;
}

std::string AnswerJson(const std::string &request) {
  auto record = Decoded<thermo::EveryJsonMessage>(request);
  Raise(record);
  return Encoded(record);
}

std::string MakeJson() {
  return Encoded(Filled<thermo::EveryJsonMessage>());
}

bool IsJsonAnswered(const std::string &reply) {
  return reply == AnswerTo<thermo::EveryJsonMessage>();
}

}  // namespace zor::test
