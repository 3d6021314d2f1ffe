// The directory of body files, and who may do what in it; see body_files.h.
#ifndef MSGSVR_MESSAGE_DIRECTORY_H
#define MSGSVR_MESSAGE_DIRECTORY_H

#include "programs/problem_log.h"

namespace zor::msgsvr {

// Makes it, unless it is there. A server that gives files to their receivers sees to it that nobody else can remove or
// replace them, or read their names. False if there is no directory; what else is wrong with it is logged.
bool MakeMessageDirectory(daemon::ProblemLog &log);

}  // namespace zor::msgsvr

#endif
