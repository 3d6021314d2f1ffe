// Which message types are requests, from messages/types.d/zor.json.
#ifndef PROGRAMS_MESSAGE_KIND_H
#define PROGRAMS_MESSAGE_KIND_H

#include <cstdint>

namespace zor::daemon {

enum class MessageKind { kUnknown, kRequest, kNoRequest };

MessageKind KindOf(uint32_t type);

}  // namespace zor::daemon

#endif
