#include "sdk/loop/lag/page_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/paths.h>
#include <zor/status.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "base/fixed_path.h"
#include "common/unique_fd.h"

namespace zor::lag {
namespace {

FixedPath PathOf(pid_t pid) {
  char path[sizeof ZOR_PATH_LAG_FORMAT + 10];
  std::snprintf(path, sizeof path, ZOR_PATH_LAG_FORMAT, static_cast<unsigned>(pid));
  return FixedPath(path);
}

// Never an existing file: it may be a link, or another user may have it open for writing.
UniqueFd NewFile(const char *path) {
  constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  constexpr mode_t kMode = S_IRUSR | S_IWUSR | S_IRGRP;
  UniqueFd file(::open(path, kFlags, kMode));
  if (file.valid() || errno != EEXIST) return file;
  ::unlink(path);  // of a process that was killed and had this ID
  return UniqueFd(::open(path, kFlags, kMode));
}

Page *Map(int fd) {
  const int flags = fd < 0 ? MAP_PRIVATE | MAP_ANONYMOUS : MAP_SHARED;
  void *const memory = ::mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, flags, fd, 0);
  return memory == MAP_FAILED ? nullptr : static_cast<Page *>(memory);
}

// The room is allocated now: to touch a page that the file system then has no room for would end the process. The mode
// is set past the umask.
std::uint32_t MapFile(const char *path, Page *&page) {
  const UniqueFd file = NewFile(path);
  if (!file.valid()) return ZOR_E_IO;
  if (::posix_fallocate(file.get(), 0, sizeof(Page)) == 0 && ::fchmod(file.get(), S_IRUSR | S_IWUSR | S_IRGRP) == 0) {
    page = Map(file.get());
    if (page != nullptr) return ZOR_OK;
  }
  ::unlink(path);
  return ZOR_E_IO;
}

std::uint64_t MillisecondsSinceBoot() {
  timespec now = {};
  ::clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000 + static_cast<std::uint64_t>(now.tv_nsec) / 1000000;
}

}  // namespace

std::uint32_t PageMemory::Make(bool offered) noexcept {
  Release();
  std::uint32_t status = ZOR_OK;
  if (offered) {
    status = MapFile(PathOf(::getpid()).c_str(), page_);
  } else {
    page_ = Map(-1);
    if (page_ == nullptr) status = ZOR_E_NO_MEMORY;
  }
  if (status != ZOR_OK) return status;
  offered_ = offered;
  page_->bytes = sizeof(Page);
  page_->pid = static_cast<std::uint32_t>(::getpid());
  page_->startedMs = MillisecondsSinceBoot();
  page_->magic = kMagic;
  return ZOR_OK;
}

void PageMemory::Release() noexcept {
  RemoveFile();
  Forget();
}

void PageMemory::RemoveFile() noexcept {
  if (offered_) ::unlink(PathOf(static_cast<pid_t>(page_->pid)).c_str());
  offered_ = false;
}

void PageMemory::Forget() noexcept {
  if (page_ != nullptr) ::munmap(page_, sizeof(Page));
  page_ = nullptr;
  offered_ = false;
}

}  // namespace zor::lag
