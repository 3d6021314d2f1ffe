// Looks names up without blocking the loop: in a child, which writes the addresses to a pipe and ends.
//
// The C library's lookup blocks for as long as name servers stay silent, and can do so only in a process of its own.
// The child also keeps the lookup's modules and memory out of a daemon that needs them once in a while.
#ifndef ZORBRIDGE_RESOLVER_H
#define ZORBRIDGE_RESOLVER_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "programs/loop_watch.h"

namespace zor::bridge {

class Resolver {
 public:
  static constexpr std::size_t kMostAddresses = 8;
  // The addresses, in the order in which they should be tried; none: the problem says why. May look up again.
  using Done = void (*)(void *self, std::vector<std::string> addresses, const std::string &problem);

  Resolver(Done done, void *self) : done_(done), self_(self) {}
  Resolver(const Resolver &) = delete;
  Resolver &operator=(const Resolver &) = delete;
  ~Resolver() { Cancel(); }

  // False, with errno. It takes as long as it takes: the caller cancels it when it has waited enough.
  bool Start(const std::string &host);
  void Cancel();

 private:
  static void OnReadable(void *self, uint32_t event);
  void Finish();

  Done done_;
  void *self_;
  pid_t child_ = -1;
  std::string text_;
  daemon::LoopWatch pipe_;
};

}  // namespace zor::bridge

#endif
