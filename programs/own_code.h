// The code of the program and its libraries in memory.
#ifndef PROGRAMS_OWN_CODE_H
#define PROGRAMS_OWN_CODE_H

namespace zor::daemon {

// Unmaps the pages of code and constants that have been used so far: a server that has started never needs most of them
// again. What it does need is mapped again, from the system's cache of the files.
void ReleaseStartCode();

}  // namespace zor::daemon

#endif
