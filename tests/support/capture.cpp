#include "support/capture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

namespace zor::test {

Capture::Capture(int fd)
    : fd_(fd), saved_((std::fflush(nullptr), ::dup(fd))), file_(::memfd_create("capture", MFD_CLOEXEC)) {
  ::fcntl(file_, F_SETFL, O_APPEND);  // children write at the same time
  ::dup2(file_, fd_);
}

Capture::~Capture() {
  std::fflush(nullptr);
  ::dup2(saved_, fd_);
  ::close(saved_);
  ::close(file_);
}

std::string Capture::Text() {
  std::fflush(nullptr);
  std::string text;
  char piece[4096];
  for (ssize_t count; (count = ::pread(file_, piece, sizeof piece, static_cast<off_t>(text.size()))) > 0;) {
    text.append(piece, static_cast<size_t>(count));
  }
  return text;
}

}  // namespace zor::test
