// Message types by their numbers and names: ours, and those of installed type files, which are read only when a number
// or a name is not ours.
#ifndef PROGRAMS_MESSAGES_MESSAGE_TYPES_H
#define PROGRAMS_MESSAGES_MESSAGE_TYPES_H

#include <cstdint>
#include <string>
#include <string_view>

#include "programs/types/type.h"

namespace zor::messages {

// How messages of the number look; null for an unknown type. All events of one range have one form.
const types::Type *FindType(uint32_t type);

// The name as ParseType takes it: of ours without "ZOR_MSG_" or "ZOR_", of others with their namespace, of a vendor's
// events that of their module. A number if it has no name.
std::string TypeText(uint32_t type);
// The same for a described type.
std::string TypeText(const types::Type &type);

// A number, or a name in any case: of ours also without "ZOR_MSG_" or "ZOR_", of others also without the namespace if
// that is not ambiguous; or a vendor's module. UnknownName for anything else.
uint32_t ParseType(std::string_view text);

// From now on daemon::KindOf knows the types of installed files too, so that who waits for a reply is certain.
void UseInstalledKinds();

}  // namespace zor::messages

#endif
