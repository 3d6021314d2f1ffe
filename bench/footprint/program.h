// A program under measurement: how long it takes until it serves, and what memory it then has.
#ifndef BENCH_FOOTPRINT_PROGRAM_H
#define BENCH_FOOTPRINT_PROGRAM_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace zor::bench {

struct Program {
  std::string name;
  std::vector<std::string> command;
  std::string ready;  // part of the line that it prints when it serves
};

// In KiB.
struct Footprint {
  long privateClean = 0;
  long privateDirty = 0;
  long shared = 0;
  long proportional = 0;
  std::size_t libraries = 0;  // shared objects that are mapped, the dynamic loader included
};

// A process of the program, from its start until it has said that it is ready; the destructor ends it.
class Running {
 public:
  explicit Running(const Program &program);
  Running(Running &&other) noexcept;
  Running(const Running &) = delete;
  Running &operator=(const Running &) = delete;
  ~Running();
  double startMs() const { return startMs_; }
  Footprint footprint() const;
  // The shared objects that it has mapped, by name.
  std::vector<std::string> libraries() const;

 private:
  pid_t pid_ = -1;
  int output_ = -1;
  double startMs_ = 0;
};

}  // namespace zor::bench

#endif
