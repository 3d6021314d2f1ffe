// Standard input, output and error.
#ifndef PROGRAMS_STANDARD_DESCRIPTORS_H
#define PROGRAMS_STANDARD_DESCRIPTORS_H

namespace zor::daemon {

// Opens /dev/null on each that the caller had closed: a file or socket opened there later would receive every line
// printed.
void FillStandardDescriptors();

}  // namespace zor::daemon

#endif
