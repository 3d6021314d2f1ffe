#include "programs/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include "common/unique_fd.h"

namespace zor::daemon {

void FillStandardDescriptors() {
  UniqueFd fd;
  do {
    fd.release();
    fd.reset(::open("/dev/null", O_RDWR));
  } while (fd.valid() && fd.get() <= STDERR_FILENO);
}

}  // namespace zor::daemon
