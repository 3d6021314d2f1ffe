#include "cms/seal_process.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <new>

#include "cms/crypto.h"

namespace zor::cms {
namespace {

// Clients wait that long for a reply.
constexpr rlim_t kMostSeconds = 15;

// Where the process leaves its result, cleared at the end.
class SharedBytes {
 public:
  explicit SharedBytes(size_t size) : size_(std::max<size_t>(size, 1)) {
    void *block = ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (block != MAP_FAILED) bytes_ = static_cast<std::byte *>(block);
  }
  SharedBytes(const SharedBytes &) = delete;
  SharedBytes &operator=(const SharedBytes &) = delete;
  ~SharedBytes() {
    if (!valid()) return;
    ::explicit_bzero(bytes_, size_);
    ::munmap(bytes_, size_);
  }
  bool valid() const { return bytes_ != nullptr; }
  std::byte *begin() const { return bytes_; }

 private:
  size_t size_;
  std::byte *bytes_ = nullptr;
};

[[noreturn]] void RunAndExit(const std::function<Unsealed()> &work) {
  const rlimit limit = {kMostSeconds, kMostSeconds};
  ::setrlimit(RLIMIT_CPU, &limit);
  // It has the daemon's connections, which must not outlive the daemon.
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  Unsealed result = Unsealed::kNoMemory;
  try {
    result = work();
  } catch (const std::bad_alloc &) {
    // That is what the result says.
  }
  ::_exit(static_cast<int>(result));
}

Unsealed RunApart(const std::function<Unsealed()> &work) {
  const pid_t child = ::fork();
  if (child == 0) RunAndExit(work);
  int status = 0;
  pid_t ended = -1;
  do {
    if (child > 0) ended = ::waitpid(child, &status, 0);
  } while (child > 0 && ended < 0 && errno == EINTR);
  return ended > 0 && WIFEXITED(status) ? static_cast<Unsealed>(WEXITSTATUS(status)) : Unsealed::kNoMemory;
}

}  // namespace

Unsealed SealApart(const SealHead &head, std::span<const std::byte> content, std::span<const std::byte> passphrase,
                   std::vector<std::byte> *file) {
  const size_t size = kSealHeadSize + content.size() + kSealTagSize;
  const SharedBytes shared(size);
  const auto work = [&] {
    if (!LoadCrypto()) return Unsealed::kNoCrypto;
    const auto sealed = Seal(head, content, passphrase);
    if (!sealed) return Unsealed::kNoMemory;
    std::copy(sealed->begin(), sealed->end(), shared.begin());
    return Unsealed::kGood;
  };
  const Unsealed result = shared.valid() ? RunApart(work) : Unsealed::kNoMemory;
  if (result == Unsealed::kGood) file->assign(shared.begin(), shared.begin() + size);
  return result;
}

Unsealed UnsealApart(std::span<const std::byte> file, std::span<const std::byte> passphrase, Secret *content) {
  const std::optional<SealHead> head = ReadSealHead(file);
  if (!head) return Unsealed::kUnknown;
  const SharedBytes shared(head->contentLength);
  const auto work = [&] {
    Secret decrypted;
    const Unsealed result = Unseal(file, passphrase, &decrypted);
    if (result == Unsealed::kGood) std::copy(decrypted.begin(), decrypted.end(), shared.begin());
    return result;
  };
  const Unsealed result = shared.valid() ? RunApart(work) : Unsealed::kNoMemory;
  if (result == Unsealed::kGood) content->assign(shared.begin(), shared.begin() + head->contentLength);
  return result;
}

}  // namespace zor::cms
