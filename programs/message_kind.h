// Which message types are requests, from messages/types.d/zor.json.
#ifndef PROGRAMS_MESSAGE_KIND_H
#define PROGRAMS_MESSAGE_KIND_H

#include <cstdint>

namespace zor::daemon {

enum class MessageKind { kUnknown, kRequest, kNoRequest };

// Of a type that is not in the file: what the other source says; kUnknown without one.
MessageKind KindOf(uint32_t type);

// For programs that read the type files of vendors. It is asked only when a type is not ours.
using KindSource = MessageKind (*)(uint32_t type);
void SetKindSource(KindSource source);

}  // namespace zor::daemon

#endif
