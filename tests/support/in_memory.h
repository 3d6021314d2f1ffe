// Integers as they are in memory, in files and on the bus: in the byte order of the machine that runs the test.
#ifndef TESTS_SUPPORT_IN_MEMORY_H
#define TESTS_SUPPORT_IN_MEMORY_H

#include <string>

namespace zor::test {

template <class... Integers>
std::string InMemory(Integers... values) {
  std::string bytes;
  (bytes.append(reinterpret_cast<const char *>(&values), sizeof values), ...);
  return bytes;
}

}  // namespace zor::test

#endif
