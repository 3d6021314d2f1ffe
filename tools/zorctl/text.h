// Text for users: data from the bus is hostile, and terminals are narrow.
#ifndef ZORCTL_TEXT_H
#define ZORCTL_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

#include "programs/messages/text.h"

namespace zor::ctl {

using messages::Escape;
using messages::EscapeJson;
using messages::EscapeLines;
using messages::FieldText;
using messages::IsPrintable;
using messages::Join;

// How many columns escaped text takes on a terminal.
size_t Width(std::string_view text);

// The text, truncated to that many columns, with an ellipsis for the rest.
std::string Cut(std::string_view text, size_t columns);

// The text, padded with blanks to that many columns; longer ones stay as they are.
std::string PadRight(std::string_view text, size_t columns);
std::string PadLeft(std::string_view text, size_t columns);

}  // namespace zor::ctl

#endif
