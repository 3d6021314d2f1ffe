#include "programs/descriptor_set.h"

#include <dirent.h>
#include <fcntl.h>

#include <charconv>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

namespace zor::daemon {

DescriptorSet DescriptorSet::OfProcess(int except) {
  DescriptorSet set;
  std::vector<int> numbers;
  {
    const std::unique_ptr<DIR, int (*)(DIR *)> folder(::opendir("/proc/self/fd"), ::closedir);
    while (const dirent *entry = folder == nullptr ? nullptr : ::readdir(folder.get())) {
      int number = -1;
      std::from_chars(entry->d_name, entry->d_name + std::strlen(entry->d_name), number);
      if (number > STDERR_FILENO && number != except && number != ::dirfd(folder.get())) numbers.push_back(number);
    }
  }
  for (const int number : numbers) set.Add(UniqueFd(number));
  return set;
}

int DescriptorSet::Add(UniqueFd fd) {
  const int number = fd.get();
  byNumber_[number] = std::move(fd);
  return number;
}

UniqueFd DescriptorSet::Take(int number) {
  auto entry = byNumber_.extract(number);
  return entry.empty() ? UniqueFd() : std::move(entry.mapped());
}

}  // namespace zor::daemon
