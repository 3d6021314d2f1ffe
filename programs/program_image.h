// The program that a server runs, and where its successor will be.
//
// That is the path by which the server was started, so that a link in it, such as /opt/zor/current, may be replaced to
// lead to another version; otherwise the file itself. Whoever can lead that path elsewhere decides what runs with the
// server's rights. So it counts only when the kernel knows it as the path that was executed, it leads to the program at
// the start, and only root and the server's user can change any part of it; and never when the program got rights that
// whoever started it does not have.
#ifndef PROGRAMS_PROGRAM_IMAGE_H
#define PROGRAMS_PROGRAM_IMAGE_H

#include <string>

namespace zor::daemon {

// Make it at the start of main, while the file is still that of the process.
struct ProgramImage {
  explicit ProgramImage(char **commandLine);

  std::string path;  // absolute; empty if unknown
  char **arguments;
};

}  // namespace zor::daemon

#endif
