#include "programs/own_code.h"

#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace zor::daemon {

namespace {

// Where it fails the pages stay, which is no worse than before.
int Release(dl_phdr_info *object, size_t, void *) {
  const auto page = static_cast<uintptr_t>(::sysconf(_SC_PAGESIZE));
  const std::span segments(object->dlpi_phdr, object->dlpi_phnum);
  for (auto segment = segments.rbegin(); segment != segments.rend(); ++segment) {
    if (segment->p_type != PT_LOAD || (segment->p_flags & PF_W) != 0) continue;
    const bool hasTable = segment->p_offset == 0;
    const uintptr_t begin = (object->dlpi_addr + segment->p_vaddr) / page * page;
    const uintptr_t end = object->dlpi_addr + segment->p_vaddr + segment->p_memsz;
    ::madvise(reinterpret_cast<void *>(begin), end - begin, MADV_DONTNEED);
    if (hasTable) break;  // to look at it again would map it again; this segment is the lowest
  }
  return 0;
}

}  // namespace

void ReleaseStartCode() {
  ::dl_iterate_phdr(Release, nullptr);
}

}  // namespace zor::daemon
