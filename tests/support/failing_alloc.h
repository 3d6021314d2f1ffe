// Allocations that fail on demand, in the library as in the test. Only executables that link zor_failing_alloc have it.
#ifndef TESTS_SUPPORT_FAILING_ALLOC_H
#define TESTS_SUPPORT_FAILING_ALLOC_H

namespace zor::test {

// While it lives, `passing` allocations of this thread succeed and the next `failing` ones do not. Expectations belong
// behind it: they may allocate.
class FailingAllocations {
 public:
  FailingAllocations(unsigned passing, unsigned failing);
  FailingAllocations(const FailingAllocations &) = delete;
  FailingAllocations &operator=(const FailingAllocations &) = delete;
  ~FailingAllocations();

  // Whether any allocation has failed so far.
  bool Failed() const;
};

}  // namespace zor::test

#endif
