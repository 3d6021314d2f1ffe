// What is on the bus, as JSON. docs/protocol.md describes its members.
#ifndef MSGSVR_CONTROL_LIST_H
#define MSGSVR_CONTROL_LIST_H

#include <string>

#include "msgsvr/bus.h"

namespace zor::msgsvr {

// The server and its named clients, as `asker` is told; empty when memory is short, or the text
// is more than the library takes.
std::string ListText(const Bus &bus, const Client &asker);

}  // namespace zor::msgsvr

#endif
