#include "trace/output.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/limits.h>
#include <zor/paths.h>
#include <zor/trace.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>

#include "base/fixed_path.h"
#include "common/socket_address.h"
#include "common/unique_fd.h"

namespace {

constexpr std::array<const char *, 2> kOutputNames = {"stdout", "file"};

struct Output {
  std::FILE *stream;  // null when none has been chosen, or the trace file could not be opened
  std::uint64_t fileMaxKiB;
  bool isSocket;
};

constinit Output output = {nullptr, ZOR_TRACE_FILE_KIB, false};

// A stream over a socket owns it: closing the stream closes the socket.
void ReplaceStream(std::FILE *stream, bool isSocket) {
  if (output.stream != nullptr && output.stream != stdout) std::fclose(output.stream);
  output.stream = stream;
  output.isSocket = isSocket;
}

std::FILE *OpenTraceFile() {
  const zor::FixedPath directory(ZOR_PATH_TRACE_DIR);
  if (::access(directory.c_str(), F_OK) != 0 && ::mkdir(directory.c_str(), 0600) != 0) {
    std::printf("mkdir for %s faield \r\n", ZOR_PATH_TRACE_DIR);
  }
  return std::fopen(zor::FixedPath(ZOR_PATH_TRACE_FILE).c_str(), "abe");
}

// "10.0.0.1:5000"; a port that no socket can have is refused like an address that does not parse.
std::optional<sockaddr_in> ParseAddress(char *text) {
  char *colon = std::strchr(text, ':');
  if (colon == nullptr) return std::nullopt;
  *colon = '\0';
  const long port = std::strtol(colon + 1, nullptr, 10);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<in_port_t>(port));
  if (port < 1 || port > UINT16_MAX || ::inet_pton(AF_INET, text, &address.sin_addr) != 1) return std::nullopt;
  return address;
}

// The stream is buffered and flushed at the end of each line, so a line is one datagram unless it exceeds the buffer.
std::FILE *OpenUdp(const sockaddr_in &address) {
  zor::UniqueFd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP));
  if (!fd.valid() || !zor::Connect(fd.get(), address)) return nullptr;
  std::FILE *stream = ::fdopen(fd.get(), "wb");
  if (stream != nullptr) fd.release();
  return stream;
}

bool TraceFileIsFull() {
  struct stat status = {};
  if (::stat(zor::FixedPath(ZOR_PATH_TRACE_FILE).c_str(), &status) != 0) return true;
  return static_cast<std::uint64_t>(status.st_size) >> 10 >= output.fileMaxKiB;
}

// The trace file's size is checked for a socket too, which cannot be truncated: nothing happens then.
void EmptyFullTraceFile(std::FILE *stream) {
  if (!TraceFileIsFull() || ::ftruncate(::fileno(stream), 0) != 0) return;
}

}  // namespace

namespace zor {

std::FILE *TraceStream() noexcept {
  if (output.stream == nullptr) output.stream = stdout;
  return output.stream;
}

bool TraceGoesToSocket() noexcept {
  return output.isSocket;
}

bool FinishTraceLine(std::FILE *stream) noexcept {
  const bool flushed = std::fflush(stream) == 0;
  if (stream != stdout) EmptyFullTraceFile(stream);
  return flushed;
}

}  // namespace zor

void ZOR_TRACE_SetOutput(uint32_t index) {
  ReplaceStream(nullptr, false);
  output.stream = index != 0 ? OpenTraceFile() : stdout;
}

uint32_t ZOR_TRACE_GetOutput(void) {
  return zor::TraceStream() == stdout ? 0 : 1;
}

int32_t ZOR_TRACE_GetOutputByString(const char *name) {
  if (name == nullptr) return -1;
  const auto found = std::find_if(kOutputNames.begin(), kOutputNames.end(),
                                  [name](const char *known) { return std::strcmp(known, name) == 0; });
  return found == kOutputNames.end() ? -1 : static_cast<int32_t>(std::distance(kOutputNames.begin(), found));
}

void ZOR_TRACE_SetOutputByString(const char *text) {
  if (text == nullptr) return;
  char copy[ZOR_TRACE_OUTPUT_SIZE] = {};
  std::memcpy(copy, text, strnlen(text, sizeof copy - 1));
  const int32_t index = ZOR_TRACE_GetOutputByString(copy);
  if (index >= 0) return ZOR_TRACE_SetOutput(static_cast<uint32_t>(index));
  const std::optional<sockaddr_in> address = ParseAddress(copy);
  std::FILE *stream = address.has_value() ? OpenUdp(*address) : nullptr;
  if (stream != nullptr) ReplaceStream(stream, true);
}

void ZOR_TRACE_SetFileMaxSize(uint64_t sizeKiB) {
  if (sizeKiB > ZOR_TRACE_FILE_KIB) output.fileMaxKiB = sizeKiB;
}

uint64_t ZOR_TRACE_GetFileMaxSize(void) {
  return output.fileMaxKiB;
}
