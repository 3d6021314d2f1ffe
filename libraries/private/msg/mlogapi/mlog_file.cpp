// The circular log file: a text header of 63 characters, then data up to 2 MiB. At the end, writing resumes at the
// first data byte; what the previous round left behind the write offset stays, and readers find the end in the header,
// which every write brings up to date.
#include <zor/mlog.h>
#include <zor/platform/bounded.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "base/alloc.h"
#include "base/file_ptr.h"

namespace zor {
namespace {

constexpr long kDataStart = ZOR_MLOG_FILE_HEADER_SIZE;
constexpr std::uint32_t kBlockMax = ZOR_MLOG_FILE_MAX - 64;

// The numbers of the lines in the messages of this file, which log readers match.
constexpr int kOpenedLine = 284;
constexpr int kWrapSeekLine = 172;
constexpr int kDataSeekLine = 188;
constexpr int kHeaderSeekLine = 199;
constexpr int kWrittenLine = 204;

// The header and a NUL. From overturn 1000 on it no longer fits, is cut, and starts anew when the file is opened again.
struct Header {
  char text[ZOR_MLOG_FILE_HEADER_SIZE + 1] = {};
};

Header FormatHeader(const ZOR_MLOG_FILE &file) {
  Header header;
  snprintf_s(header.text, sizeof header.text, ZOR_MLOG_FILE_HEADER_SIZE, "[%8s=%03ld][%6s=%010ld][%12s=%03ld^%010ld]\n",
             "overturn", file.overturn, "offset", file.offset, "uploadoffset", file.overturn, file.uploadOffset);
  return header;
}

bool ParseHeader(const Header &header, ZOR_MLOG_FILE &file) {
  char words[3][13];
  // The overturn count is there twice; the second one counts.
  return sscanf_s(header.text, "[%8s=%03ld][%6s=%010ld][%12s=%03ld^%010ld]\n", words[0], &file.overturn, words[1],
                  &file.offset, words[2], &file.overturn, &file.uploadOffset) == 7;
}

// Gives a new file its header, which must happen in append mode: "r+" makes no file, "w+" would empty an old one.
void InitialiseIfEmpty(const char *path) {
  const FilePtr stream(std::fopen(path, "a+e"));
  if (stream == nullptr || std::fseek(stream.get(), 0, SEEK_END) != 0 || std::ftell(stream.get()) != 0) return;
  const Header header = FormatHeader({nullptr, 0, kDataStart, 0});
  std::fwrite(header.text, 1, sizeof header.text, stream.get());
}

// Takes over where the last writer stopped. A header that makes no sense starts the file anew.
void ReadHeader(ZOR_MLOG_FILE &file) {
  Header header;
  bool usable = false;
  if (std::fread(header.text, 1, ZOR_MLOG_FILE_HEADER_SIZE, file.stream) != ZOR_MLOG_FILE_HEADER_SIZE) {
    std::printf("read log file failure");
  } else {
    usable = ParseHeader(header, file);
    if (!usable) std::printf("mlog_file_header_read:sscanf_s failed!");
  }
  if (!usable) file = {file.stream, 0, kDataStart, 0};
  if (file.offset < kDataStart || file.offset > ZOR_MLOG_FILE_MAX) file.offset = kDataStart;
  std::printf("[%s:%d] overturn = %ld,offset = %ld\n", "mlog_file_header_read", kOpenedLine, file.overturn,
              file.offset);
}

bool Seek(ZOR_MLOG_FILE &file, long offset, int line) {
  if (std::fseek(file.stream, offset, SEEK_SET) == 0) return true;
  std::printf("[func %s:line %d] fseek failed\n", "mlog_file_write", line);
  return false;
}

bool Write(ZOR_MLOG_FILE &file, const void *data, std::size_t length) {
  return std::fwrite(data, 1, length, file.stream) == length;
}

bool WriteHere(ZOR_MLOG_FILE &file, const void *data, std::uint32_t length) {
  if (!Seek(file, file.offset, kDataSeekLine) || !Write(file, data, length)) return false;
  file.offset += static_cast<long>(length);
  return true;
}

bool WriteAfterWrap(ZOR_MLOG_FILE &file, const void *data, std::uint32_t length) {
  if (!Seek(file, kDataStart, kWrapSeekLine)) return false;
  if (length > kBlockMax) return true;  // would not fit an empty file: dropped
  if (!Write(file, data, length)) return false;
  file.offset = kDataStart + static_cast<long>(length);
  ++file.overturn;
  return true;
}

// 63 bytes, without the NUL of a new file: the byte behind the header is data by now.
bool WriteHeader(ZOR_MLOG_FILE &file) {
  if (!Seek(file, 0, kHeaderSeekLine)) return false;
  return Write(file, FormatHeader(file).text, ZOR_MLOG_FILE_HEADER_SIZE);
}

}  // namespace
}  // namespace zor

ZOR_MLOG_FILE *mlog_file_constructor(const char *path) {
  if (path == nullptr) return nullptr;
  zor::MallocPtr<ZOR_MLOG_FILE> file = zor::GuardedNew<ZOR_MLOG_FILE>();
  if (file == nullptr) return nullptr;
  zor::InitialiseIfEmpty(path);
  file->stream = std::fopen(path, "r+e");
  if (file->stream == nullptr) return nullptr;
  zor::ReadHeader(*file);
  return file.release();
}

void mlog_file_destructor(ZOR_MLOG_FILE *file) {
  if (file == nullptr) return;
  if (file->stream != nullptr) std::fclose(file->stream);
  std::free(file);
}

int32_t mlog_file_write(ZOR_MLOG_FILE *file, const void *data, uint32_t length) {
  if (file == nullptr || file->stream == nullptr || data == nullptr) return -1;
  const bool fits = std::int64_t{file->offset} + std::int64_t{length} <= ZOR_MLOG_FILE_MAX;
  const bool written = fits ? zor::WriteHere(*file, data, length) : zor::WriteAfterWrap(*file, data, length);
  if (!written || !zor::WriteHeader(*file)) return -1;
  std::printf("[func %s:line %d]overturn = %ld,offset = %ld\n", "mlog_file_write", zor::kWrittenLine, file->overturn,
              file->offset);
  return 0;
}

int32_t mlog_file_open(const char *path) {
  return path == nullptr ? -1 : ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
}

void mlog_file_close(int32_t fd) {
  if (fd >= 0) ::close(fd);
}
