// A connection to a stream server, which never waits without a limit.
#ifndef BENCH_HOSTILE_PEER_H
#define BENCH_HOSTILE_PEER_H

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "common/unique_fd.h"

namespace zor::hostile {

// Longer than a living server ever takes, however busy the machine is.
constexpr int kPatienceMs = 60000;

// Ends the program, because the server has failed, after a last action.
[[noreturn]] void Fail(const char *what);
void OnFailure(std::function<void()> lastAction);

// Bound when a path is given; connected to the path `to`. Invalid when the server does not listen.
UniqueFd DatagramSocket(const std::string &own, const std::string &to);

class Peer {
 public:
  Peer() = default;
  // Not open when the server does not listen.
  explicit Peer(const std::string &path);

  bool open() const { return socket_.valid(); }
  int fd() const { return socket_.get(); }
  void Close() { socket_.reset(); }

  // Discards what arrives while the server does not take it. False when the server has closed.
  bool Send(std::string_view bytes, std::span<const int> descriptors = {});
  // Discards what has arrived, with its descriptors.
  void Drain();
  // The next frame that satisfies the predicate; `sizeOf` is the size of the frame at the start, 0 when it is not known
  // yet. Empty when the server has closed or nothing arrives.
  std::string Await(std::size_t (*sizeOf)(std::string_view), const std::function<bool(std::string_view)> &matches);

 private:
  // False at the end of the stream.
  bool Receive(std::string *to);

  UniqueFd socket_;
  std::string received_;
};

}  // namespace zor::hostile

#endif
