// Finds processes by name in "/proc". That is the kernel's, not the device's, so it is the same for a system that runs
// inside a directory.
#include <dirent.h>
#include <zor/limits.h>
#include <zor/zorutil.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "base/alloc.h"
#include "base/file_ptr.h"

namespace zor {
namespace {

constexpr std::size_t kCommandLineSize = 240;
constexpr int kNameLineMax = 125;

struct DirectoryCloser {
  void operator()(DIR *directory) const noexcept { ::closedir(directory); }
};

// The processes in the order in which the kernel lists them.
class ProcessScan {
 public:
  ProcessScan() noexcept : directory_(::opendir("/proc")) {
    if (directory_ == nullptr) std::printf("cms:Cannot open /proc");
  }
  bool valid() const noexcept { return directory_ != nullptr; }

  // The process id as text, null at the end.
  const char *Next() noexcept {
    const dirent *entry;
    do {
      entry = ::readdir(directory_.get());
    } while (entry != nullptr && (entry->d_name[0] < '0' || entry->d_name[0] > '9'));
    return entry == nullptr ? nullptr : entry->d_name;
  }

 private:
  std::unique_ptr<DIR, DirectoryCloser> directory_;
};

// Reads at most maxLength characters of the first line of a process's file; false when the process is gone or has none.
bool ReadFirstLine(const char *process, const char *file, char *line, int maxLength) {
  char path[128];
  const int length = std::snprintf(path, sizeof path, "/proc/%s/%s", process, file);
  if (length < 0 || static_cast<std::size_t>(length) >= sizeof path) return false;
  const FilePtr stream(std::fopen(path, "re"));
  return stream != nullptr && std::fgets(line, maxLength + 1, stream.get()) != nullptr;
}

// Puts NUL-separated arguments together in place. The buffer ends with two NULs at least, which end the text.
void JoinArguments(char (&text)[kCommandLineSize]) {
  char *out = text;
  for (const char *in = text; in[0] != '\0' || in[1] != '\0'; ++in) {
    if (*in != '\0') *out++ = *in;
  }
  *out = '\0';
}

class PidList {
 public:
  bool IsEmpty() const noexcept { return count_ == 0; }
  // False when there is no memory; the list is gone then.
  bool Add(std::int32_t pid) noexcept {
    const std::uint64_t oldSize = count_ * sizeof pid;
    pids_ = GuardedRegrow(std::move(pids_), oldSize, oldSize + 2 * sizeof pid);
    if (pids_ == nullptr) return false;
    pids_.get()[count_++] = pid;
    return true;
  }
  // The ids with a 0 behind them.
  std::int32_t *Release() noexcept { return pids_.release(); }

 private:
  MallocPtr<std::int32_t> pids_;
  std::size_t count_ = 0;
};

std::int32_t *NoneFound(const char *name) {
  if (std::strcmp(name, "init") != 0) {
    auto none = GuardedNew<std::int32_t>();
    if (none != nullptr) *none = -1;
    return none.release();
  }
  PidList init;
  init.Add(1);
  return init.Release();
}

}  // namespace
}  // namespace zor

int32_t *ZOR_UTIL_FindPidByName(const char *name) {
  if (name == nullptr) return nullptr;
  zor::ProcessScan processes;
  if (!processes.valid()) return nullptr;
  zor::PidList found;
  while (const char *process = processes.Next()) {
    char commandLine[zor::kCommandLineSize] = {};
    if (!zor::ReadFirstLine(process, "cmdline", commandLine, ZOR_PROCESS_COMMAND_LINE_MAX)) continue;
    zor::JoinArguments(commandLine);
    if (std::strstr(commandLine, name) == nullptr) continue;
    if (!found.Add(static_cast<int32_t>(std::strtol(process, nullptr, 0)))) return nullptr;
  }
  return found.IsEmpty() ? zor::NoneFound(name) : found.Release();
}

int32_t ZOR_UTIL_GetPid(const char *name) {
  if (name == nullptr || std::strlen(name) > ZOR_PROCESS_NAME_MAX) return 0;
  char searched[ZOR_PROCESS_NAME_MAX + 1];
  char *out = searched;
  for (const char *in = name; *in != '\0'; ++in) {
    if (*in != ' ') *out++ = *in;
  }
  *out = '\0';
  const zor::MallocPtr<int32_t> pids(ZOR_UTIL_FindPidByName(searched));
  return pids == nullptr ? 0 : *pids;
}

int32_t ZOR_UTIL_FindKernelPidByName(const char *name) {
  if (name == nullptr) return -1;
  zor::ProcessScan processes;
  if (!processes.valid()) return -1;
  while (const char *process = processes.Next()) {
    char line[zor::kNameLineMax + 1];
    const bool read = zor::ReadFirstLine(process, "status", line, zor::kNameLineMax);
    if (read && std::strstr(line, name) != nullptr) return std::atoi(process);
  }
  return -1;
}
