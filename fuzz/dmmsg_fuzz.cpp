// Device-management messages and the events they carry: the input is a body.
#include <zor/dmmsg.h>
#include <zor/event.h>
#include <zor/status.h>

#include <cstring>

#include "fuzz.h"
#include "message/context.h"
#include "message/header.h"
#include "sdk/dmmsg/body.h"

namespace {

using zor::fuzz::Require;

constexpr uint32_t kItemEvent = 0x2da65;
constexpr char kName[] = "name";

// Reads all items: where they end, and the last one.
const void *Walk(const ZOR_DMMSG_HEAD *dm, ZOR_DMMSG_ITEM &item) {
  const auto *start = reinterpret_cast<const char *>(dm);
  const auto *end = start + zor::BusHeaderOf(*dm).bodyLength + ZOR_DMMSG_ITEM_HEAD_SIZE;
  const void *at = start + ZOR_DMMSG_HEAD_SIZE;
  for (const void *next = nullptr; ZOR_DMMSG_GetItem(dm, &item, &next) == ZOR_OK; at = next) {
    const auto *value = static_cast<const char *>(item.value);
    Require(next > at && next <= end, "a walk goes forward and stays inside");
    Require(item.name == nullptr || item.name + item.nameLength <= end, "a name is inside");
    Require(value == nullptr || (value > start && value + item.valueLength <= end), "a value is inside");
  }
  return at;
}

// A message with the body, without a destination.
zor::MessagePtr MessageOf(const uint8_t *data, size_t size) {
  zor::MessagePtr block = zor::NewMessageBlock(size);
  *block = {kItemEvent, 0, {}, {}, 0, static_cast<uint32_t>(size)};
  std::copy(data, data + size, static_cast<uint8_t *>(zor::BodyOf(block.get())));
  return block;
}

void CheckEvent(const ZOR_MSG_HEAD &event) {
  char *text = nullptr;
  uint32_t length = 0;
  const uint32_t status = ZOR_EVT_GetEventContent(&event, &text, &length);
  const zor::MallocPtr<char> owner(text);
  Require((status == ZOR_OK) == (text != nullptr), "an event has a text, or fails");
  Require(text == nullptr || length == std::strlen(text), "the length is the text's");
}

// Takes ownership of the message, which may move as it grows.
void CheckAppend(zor::MessagePtr message) {
  auto *dm = static_cast<ZOR_DMMSG_HEAD *>(ZOR_MSG_GetMsgByHead(message.get()));
  ZOR_DMMSG_ITEM item = {};
  const auto used = zor::UsedLength(dm);
  const bool isWhole = used && Walk(dm, item) == reinterpret_cast<const char *>(dm) + *used;
  const uint32_t status = ZOR_DMMSG_AppendItem(&dm, 7, kName, kName, sizeof kName);
  Require((status == ZOR_E_DM_ARGUMENT) == !used, "what is no message of this kind takes no item");
  if (!used) return;
  static_cast<void>(message.release());
  message.reset(ZOR_MSG_GetMsgHead(dm));
  Require((status == ZOR_OK) == (message != nullptr), "a message that cannot grow is gone");
  if (message == nullptr) return;
  Walk(dm, item);
  if (!isWhole) return;  // data after the last item hides the new one
  Require(item.name != nullptr && std::strcmp(item.name, kName) == 0, "an item that was appended is the last");
  Require(std::strcmp(static_cast<const char *>(item.value), kName) == 0, "with its value");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  zor::MessagePtr message = MessageOf(data, size);
  CheckEvent(*message);
  CheckAppend(std::move(message));
  return 0;
}
