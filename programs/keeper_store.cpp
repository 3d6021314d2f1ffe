#include "programs/keeper_store.h"

#include <linux/kcmp.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace zor::daemon {

bool KeeperStore::Add(std::string_view name, UniqueFd fd) {
  if (Holds(name, fd.get())) return true;
  if (entries_.size() == size_ || name.size() > sizeof(Entry::text)) return false;
  Entry &entry = entries_.emplace_back();
  name.copy(entry.text.data(), entry.text.size());
  entry.length = static_cast<unsigned char>(name.size());
  entry.fd = std::move(fd);
  return true;
}

void KeeperStore::Remove(std::string_view name) {
  std::erase_if(entries_, [name](const Entry &entry) { return entry.name() == name; });
}

// A kernel that cannot compare descriptors leaves duplicates in the table, which are harmless.
bool KeeperStore::Holds(std::string_view name, int fd) const {
  const pid_t self = ::getpid();
  return std::any_of(entries_.begin(), entries_.end(), [&](const Entry &entry) {
    return entry.name() == name && ::syscall(SYS_kcmp, self, self, KCMP_FILE, entry.fd.get(), fd) == 0;
  });
}

}  // namespace zor::daemon
