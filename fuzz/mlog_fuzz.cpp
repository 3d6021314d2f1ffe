// The circular log file: the input is an existing file.
#include <sys/mman.h>
#include <sys/stat.h>
#include <zor/mlog.h>

#include <memory>

#include "common/unique_fd.h"
#include "fuzz.h"

namespace {

using zor::fuzz::Require;
using LogFile = std::unique_ptr<ZOR_MLOG_FILE, decltype([](ZOR_MLOG_FILE *file) { mlog_file_destructor(file); })>;

LogFile Open(const std::string &path) {
  LogFile file(mlog_file_constructor(path.c_str()));
  Require(file != nullptr, "any file opens");
  Require(file->offset >= ZOR_MLOG_FILE_HEADER_SIZE && file->offset <= ZOR_MLOG_FILE_MAX,
          "writing resumes in the data");
  return file;
}

// The largest values that fit the header's fields.
bool FitsHeader(const ZOR_MLOG_FILE &file) {
  const int64_t uploadOffset = file.uploadOffset;
  return file.overturn >= -99 && file.overturn <= 999 && uploadOffset >= -999999999 && uploadOffset <= 9999999999;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const zor::UniqueFd memory(::memfd_create("log", MFD_CLOEXEC));
  Require(::write(memory.get(), data, size) == static_cast<ssize_t>(size), "the file is written");
  const std::string path = "/proc/self/fd/" + std::to_string(memory.get());
  LogFile file = Open(path);
  const std::string line(size % 256, 'x');
  Require(mlog_file_write(file.get(), line.data(), static_cast<uint32_t>(line.size())) == 0, "a line is written");
  const ZOR_MLOG_FILE written = *file;
  file.reset();
  struct stat status;
  Require(::fstat(memory.get(), &status) == 0, "the file is there");
  Require(status.st_size <= std::max(ZOR_MLOG_FILE_MAX, static_cast<long>(size)), "the file stays below its limit");
  file = Open(path);
  if (!FitsHeader(written)) return 0;
  Require(file->overturn == written.overturn && file->offset == written.offset, "the next writer resumes there");
  Require(file->uploadOffset == written.uploadOffset, "and keeps what was uploaded");
  return 0;
}
