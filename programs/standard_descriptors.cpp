#include "programs/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

namespace zor::daemon {

void FillStandardDescriptors() {
  int fd;
  do {
    fd = ::open("/dev/null", O_RDWR);
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) ::close(fd);
}

}  // namespace zor::daemon
