// A private system with servers in it, and what can be seen of them from outside.
#ifndef BENCH_HOSTILE_SYSTEM_H
#define BENCH_HOSTILE_SYSTEM_H

#include <sys/types.h>

#include <cstddef>
#include <deque>
#include <string>

namespace zor::hostile {

class System {
 public:
  // With these rules of access; empty: none.
  explicit System(const std::string &rules);
  ~System();
  System(const System &) = delete;
  System &operator=(const System &) = delete;

  // Returns when it listens, if it has a socket.
  void Start(const std::string &program, const std::string &socket);
  // All of them, in the opposite order. False, with the reason on standard error, when one has not ended well or has
  // left a report of a sanitizer.
  bool Stop();
  bool AreAlive();
  // On standard error.
  void PrintLogs() const;

  // Of the server that was started last.
  std::size_t OpenDescriptors() const;
  std::size_t MemoryKiB() const;

  const std::string &root() const { return root_; }

 private:
  struct Server {
    std::string name;
    pid_t pid;
    std::string log;
  };
  bool Judge(const Server &server, int status) const;

  std::string root_;
  std::deque<Server> servers_;
};

}  // namespace zor::hostile

#endif
