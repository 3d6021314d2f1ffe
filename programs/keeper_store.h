// The descriptors that a keeper stores for its server, each under a name: a table of fixed size.
#ifndef PROGRAMS_KEEPER_STORE_H
#define PROGRAMS_KEEPER_STORE_H

#include <array>
#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

#include "common/unique_fd.h"

namespace zor::daemon {

class KeeperStore {
 public:
  struct Entry {
    std::string_view name() const { return {text.data(), length}; }

    UniqueFd fd;
    std::array<char, 39> text;
    unsigned char length;
  };

  explicit KeeperStore(size_t size) : size_(size) { entries_.reserve(size); }

  // Drops a duplicate of what it holds under the same name. False when the table is full or the name is too long.
  bool Add(std::string_view name, UniqueFd fd);
  // Closes all of that name.
  void Remove(std::string_view name);

  // The oldest first.
  std::span<Entry> entries() { return entries_; }

 private:
  bool Holds(std::string_view name, int fd) const;

  std::vector<Entry> entries_;  // never grows beyond what is reserved
  size_t size_;
};

}  // namespace zor::daemon

#endif
