#include "zorctl/output.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <system_error>

#include "common/unique_fd.h"
#include "programs/standard_descriptors.h"
#include "zorctl/exit_code.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

constexpr size_t kFlushAt = size_t{64} * 1024;
constexpr char kClearLine[] = "\r\x1b[K";

int outputFd = STDOUT_FILENO;
std::string pending;

size_t ColumnsOf(int fd) {
  winsize size = {};
  constexpr size_t kUsual = 80;
  if (::ioctl(fd, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kUsual;
  return size.ws_col;
}

}  // namespace

void TakeOutput() {
  std::signal(SIGPIPE, SIG_IGN);  // write reports it
  daemon::FillStandardDescriptors();
  const UniqueFd nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
  const int own = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (!nowhere.valid() || own < 0 || ::dup2(nowhere.get(), STDOUT_FILENO) < 0) {
    throw std::system_error(errno, std::generic_category(), "standard output");
  }
  outputFd = own;
}

void Print(std::string_view text) {
  pending.append(text);
  if (pending.size() >= kFlushAt) Flush();
}

void Flush() {
  std::string_view left = pending;
  while (!left.empty()) {
    const ssize_t count = ::write(outputFd, left.data(), left.size());
    if (count >= 0) {
      left.remove_prefix(static_cast<size_t>(count));
    } else if (errno != EINTR) {
      const int error = errno;
      pending.clear();
      if (error == EPIPE) throw OutputClosed();
      throw Failure(kExitFailure, std::string("cannot write the output: ") + std::strerror(error),
                    "check its destination");
    }
  }
  pending.clear();
}

std::string JsonLine(const nlohmann::json &value) {
  return EscapeJson(value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)) + "\n";
}

std::string JsonLine(const nlohmann::ordered_json &value) {
  return EscapeJson(value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace)) + "\n";
}

void PrintJson(const nlohmann::json &value) {
  Print(JsonLine(value));
}

void LeadOutputTo(int fd) {
  outputFd = fd;
}

int OutputDescriptor() {
  return outputFd;
}

bool OutputIsTerminal() {
  return ::isatty(outputFd) == 1;
}

size_t OutputWidth() {
  return OutputIsTerminal() ? ColumnsOf(outputFd) : std::string::npos;
}

bool WantsColour() {
  const char *refused = std::getenv("NO_COLOR");
  const char *terminal = std::getenv("TERM");
  return (refused == nullptr || *refused == '\0') && terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
}

std::string Bold(std::string_view text) {
  if (!OutputIsTerminal() || !WantsColour()) return std::string(text);
  return std::string("\x1b[1m").append(text).append("\x1b[0m");
}

void ShowProgress(std::string_view text) {
  const size_t columns = ProgressWidth();
  if (columns == 0) return;
  std::fputs(kClearLine, stderr);
  std::fputs(Cut(text, columns).c_str(), stderr);
}

size_t ProgressWidth() {
  return ::isatty(STDERR_FILENO) == 1 ? ColumnsOf(STDERR_FILENO) - 1 : 0;
}

}  // namespace zor::ctl
