#include "msgsvr/descriptor_shares.h"

#include <sys/resource.h>

#include "msgsvr/unread.h"
#include "programs/limits.h"

namespace zor::msgsvr {
namespace {

// Bytes that the kernel accounts for what carries one descriptor, at least.
constexpr size_t kLeastInSocket = 512;

// Half of what the kernel allows, since other processes of the server's user have some in flight too.
size_t MostInFlight() {
  rlimit limit = {};
  return ::getrlimit(RLIMIT_NOFILE, &limit) == 0 ? static_cast<size_t>(limit.rlim_cur / 2) : 0;
}

}  // namespace

const char *DescriptorShares::Refusal(const Client &from, Client &to) {
  if (to.deliveries.descriptors() >= limits::kUnreadDescriptors) ForgetRead(to);
  if (to.deliveries.descriptors() >= limits::kUnreadDescriptors) return "too many unread";
  if (MaySend(from)) return nullptr;
  for (Client &client : bus_.clients) {
    if (!client.ended && client.deliveries.descriptors() > 0) ForgetRead(client);
  }
  return MaySend(from) ? nullptr : "too many that its sender or the sender's user has sent are unread";
}

// Something is always left for other users.
bool DescriptorShares::MaySend(const Client &from) const {
  const size_t most = MostInFlight();
  const Unread unread = Count(from);
  return unread.fromSender < limits::msgsvr::kSentDescriptors && unread.all < most &&
         unread.fromUser < most - unread.all;
}

DescriptorShares::Unread DescriptorShares::Count(const Client &from) const {
  Unread unread;
  for (const Client &receiver : bus_.clients) {
    if (receiver.ended || receiver.deliveries.descriptors() == 0) continue;
    unread.all += receiver.deliveries.descriptors();
    for (const Client &sender : bus_.clients) {
      if (sender.peer.uid != from.peer.uid) continue;
      const size_t count = receiver.deliveries.DescriptorsFrom(sender.id);
      unread.fromUser += count;
      if (&sender == &from) unread.fromSender += count;
    }
  }
  return unread;
}

void DescriptorShares::ForgetRead(Client &to) {
  const std::optional<int> unread = UnreadBytesOf(to.socket.get());
  if (!unread) return;
  if (*unread == 0 && to.output.empty()) return bus_.ForgetAllRead(to);
  to.deliveries.KeepDescriptors(static_cast<size_t>(*unread) / kLeastInSocket + to.output.descriptorCount());
}

}  // namespace zor::msgsvr
