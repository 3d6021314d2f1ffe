// For a program that links the fault library instead of being started with it: arms the fault itself.
#ifndef TESTS_FAULTS_FAULT_LIBRARY_H
#define TESTS_FAULTS_FAULT_LIBRARY_H

namespace zor::test {

// From now on the nth call of a kind fails (see fault_library.cpp); 0: none.
void ArmFault(const char *call, long nth, int error);
// Whether that call has been made.
bool FaultHappened();
// Blocks that were allocated and are not freed.
long LiveBlocks();

}  // namespace zor::test

#endif
