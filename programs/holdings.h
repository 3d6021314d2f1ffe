// What the clients in a state hold, before a server takes them over: one whose shares are smaller would cut them off.
#ifndef PROGRAMS_HOLDINGS_H
#define PROGRAMS_HOLDINGS_H

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <string>

namespace zor::daemon {

class Holdings {
 public:
  // A message that a client of that user has not read.
  void AddMessage(uid_t user, size_t size);
  // Input of one that has not been routed.
  void AddInput(uid_t user, size_t size) { bytesOf_[user] += size; }

  // Which of the settings user_bytes and memory_bytes is too small; empty if none is.
  std::string ProblemWith(size_t userBytes, size_t memoryBytes) const;

 private:
  std::map<uid_t, size_t> bytesOf_;
};

}  // namespace zor::daemon

#endif
