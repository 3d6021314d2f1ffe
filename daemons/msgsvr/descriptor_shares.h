// How many descriptors may be unread. The kernel limits those that one user has in flight, and all that the server has
// passed on count as its own. So each unread one is charged to its receiver, its sender and the sender's user, and one
// client that does not read them, or sends them to many that do not, leaves room for those of others.
#ifndef MSGSVR_DESCRIPTOR_SHARES_H
#define MSGSVR_DESCRIPTOR_SHARES_H

#include "msgsvr/bus.h"

namespace zor::msgsvr {

class DescriptorShares {
 public:
  explicit DescriptorShares(Bus &bus) : bus_(bus) {}

  // Why one more from that sender may not be passed to that receiver; null if it may.
  const char *Refusal(const Client &from, Client &to);

 private:
  struct Unread {
    size_t all = 0;
    size_t fromSender = 0;
    size_t fromUser = 0;
  };
  Unread Count(const Client &from) const;
  bool MaySend(const Client &from) const;
  void ForgetRead(Client &to);

  Bus &bus_;
};

}  // namespace zor::msgsvr

#endif
