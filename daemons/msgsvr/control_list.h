// The state of the bus as JSON. docs/protocol.md describes its members.
#ifndef MSGSVR_CONTROL_LIST_H
#define MSGSVR_CONTROL_LIST_H

#include <string>

#include "msgsvr/bus.h"

namespace zor::msgsvr {

// Describes the server and its named clients to `asker`. Empty if memory runs out or the text is longer than the
// library accepts.
std::string ListText(const Bus &bus, const Client &asker);

}  // namespace zor::msgsvr

#endif
