// The display of a message on the bus as a line.
#ifndef ZORCTL_COPY_LINE_H
#define ZORCTL_COPY_LINE_H

#include <string>

#include "programs/messages/bus_copy.h"

namespace zor::ctl {

// The titles of the columns of CopyLine.
std::string CopyTitles();
// One line without its end, escaped: padded columns, then the body.
std::string CopyLine(const messages::BusCopy &copy, bool isReply);

}  // namespace zor::ctl

#endif
