#include "app/kivaapi/list_file.h"

#include <sys/stat.h>
#include <unistd.h>
#include <zor/platform/file.h>

#include <utility>

namespace zor {
// A platform whose reader takes no empty file must not turn an empty list into a failure.
std::uint32_t FileBytes::Read(const char *fixedPath) noexcept {
  const FixedPath path(fixedPath);
  struct stat status = {};
  if (::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0) return ZOR_FILE_OK;
  void *block = nullptr;
  const std::uint32_t result = ZOR_UTIL_ReadFileToBuf(path.c_str(), &block, &length_);
  block_.reset(static_cast<char *>(block));
  return result;
}

ReplacementFile::ReplacementFile(const char *fixedPath, mode_t mode) noexcept
    : target_(fixedPath), replacement_(target_.c_str()) {
  if (!target_.valid()) return;
  UniqueFd fd = replacement_.Create(mode);
  if (!fd.valid()) return;
  stream_ = ::fdopen(fd.get(), "wb");
  if (stream_ != nullptr) static_cast<void>(fd.release());  // the stream's now
}

ReplacementFile::~ReplacementFile() {
  if (stream_ != nullptr) std::fclose(stream_);
}

bool ReplacementFile::Close() noexcept {
  const bool written = std::fflush(stream_) == 0 && std::ferror(stream_) == 0;
  return std::fclose(std::exchange(stream_, nullptr)) == 0 && written;
}

bool ReplacementFile::Commit() noexcept {
  return stream_ != nullptr && Close() && replacement_.Commit();
}

}  // namespace zor
