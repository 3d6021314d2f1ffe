// The display of a message on the bus as a line. Copies come by the hundred thousand in a second, so
// what is frequent is written without a detour.
#ifndef ZORCTL_COPY_LINE_H
#define ZORCTL_COPY_LINE_H

#include <string>

#include "programs/messages/bus_copy.h"

namespace zor::ctl {

// The titles of the columns of CopyLine.
std::string CopyTitles();
// One line without its end, escaped: padded columns, then the body.
std::string CopyLine(const messages::BusCopy &copy, bool isReply);
// One line of JSON with its end, the members in the order of their names.
std::string CopyJsonLine(const messages::BusCopy &copy, bool isReply);

}  // namespace zor::ctl

#endif
