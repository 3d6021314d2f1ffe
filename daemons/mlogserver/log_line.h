// A line as it is in the log file.
//
// One datagram is one line, and what its sender wrote cannot look like anything else: a newline would begin a line that
// nobody sent, an escape sequence would steer the terminal of whoever reads the file. So control characters are
// escaped, and the part in front, which the kernel vouches for, is written by the server.
#ifndef MLOGSERVER_LOG_LINE_H
#define MLOGSERVER_LOG_LINE_H

#include <string>
#include <string_view>

#include "mlogserver/datagram.h"

namespace zor::mlogserver {

// The text with a newline at its end and none before it. Control characters become "\n", "\t" or, as others, "\x1b";
// those of Unicode beyond ASCII count when they are in UTF-8. A backslash stays as it is.
std::string LogLine(std::string_view text);

// "pid=4127 uid=1000", with "?" for what is unknown; "uid=1000" alone.
std::string NameOf(const Sender &sender);
std::string NameOf(uid_t user);

// The same line behind the sender in brackets.
std::string LogLine(const Sender &sender, std::string_view text);

// A text as mlog_print sends it, of the server's own: time, tag, level.
std::string OwnText(const char *format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace zor::mlogserver

#endif
