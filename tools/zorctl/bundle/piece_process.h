// Makes a piece of a bundle in a process of its own, so that one which crashes, hangs or never ends costs only itself.
#ifndef ZORCTL_BUNDLE_PIECE_PROCESS_H
#define ZORCTL_BUNDLE_PIECE_PROCESS_H

#include <cstddef>
#include <functional>
#include <string>

#include "zorctl/deadline.h"

namespace zor::ctl {

struct PieceResult {
  std::string text;     // what it printed; its last part if that was too long
  size_t cutBytes = 0;  // missing at the beginning
  bool failed = false;  // it is incomplete or missing
  std::string problem;  // why it has failed; otherwise what it had to say besides
};

// Calls make in a child, whose output is collected until it ends or the deadline is over. A Failure is its problem. It
// takes no longer either when `stop` becomes readable.
PieceResult RunPiece(const std::function<void()> &make, const Deadline &deadline, size_t mostBytes, int stop = -1);

}  // namespace zor::ctl

#endif
