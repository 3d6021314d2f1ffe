#include "programs/files.h"

#include "common/replacement.h"
#include "common/write_all.h"

namespace zor::daemon {

bool ReplaceFile(const std::string &path, std::span<const std::byte> content) {
  Replacement replacement(path.c_str());
  const UniqueFd file = replacement.Create(0600);
  if (!file.valid() || !WriteAll(file.get(), content) || !replacement.Commit()) return false;
  replacement.SyncDirectory();
  return true;
}

}  // namespace zor::daemon
