// The copies that the server sends to a monitor, read in large blocks. The library reads a message with two system
// calls and a block of memory, which takes longer than the server needs to make a copy. While a stream reads, nothing
// else may receive on the bus.
#ifndef ZORCTL_COPY_STREAM_H
#define ZORCTL_COPY_STREAM_H

#include <zor/msg_wire.h>

#include <deque>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "zorctl/bus.h"

namespace zor::ctl {

class CopyStream {
 public:
  // Sees a message of the server; false ends the reading.
  using Visit = std::function<bool(const ZOR_MSG_HEAD &head, std::string_view body)>;

  // What the bus has set aside comes first.
  explicit CopyStream(Bus &bus);

  // Waits for messages and visits all that have arrived. Nothing at the deadline, or when the user stops the verb.
  void Read(const Deadline &deadline, const Visit &visit);

 private:
  bool VisitEarlier(const Visit &visit);
  bool VisitComplete(const Visit &visit);
  void Fill();

  Bus &bus_;
  std::deque<Message> earlier_;
  std::vector<char> buffer_;
  size_t begin_ = 0, end_ = 0;  // of what is unread in it
};

}  // namespace zor::ctl

#endif
