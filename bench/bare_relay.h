// The least work that carries a 40-byte header and a body from a client through a forwarding process to a server and
// back over Unix stream sockets: blocking reads and writes that look at nothing but the length.
#ifndef BENCH_BARE_RELAY_H
#define BENCH_BARE_RELAY_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "harness.h"

namespace zor::bench {

class BareRelay {
 public:
  // Bodies above inlineMax go through a new file each way, in the given directory.
  BareRelay(std::size_t bodyLength, std::size_t inlineMax, const std::string &directory);

  void Call();

 private:
  int client_ = -1;
  std::vector<char> frame_;
  std::size_t bodyLength_;
  std::size_t inlineMax_;
  std::string directory_;
  std::unique_ptr<Process> relay_;
  std::unique_ptr<Process> server_;
};

// One way: the client writes frames, the relay reads and writes frame by frame, the server reads them.
class BareStream {
 public:
  explicit BareStream(std::size_t bodyLength);

  // Sends count frames and waits until the server has read them all.
  void Send(std::size_t count);

 private:
  int client_ = -1;
  int done_ = -1;
  std::vector<char> frame_;
  std::unique_ptr<Process> relay_;
  std::unique_ptr<Process> server_;
};

}  // namespace zor::bench

#endif
