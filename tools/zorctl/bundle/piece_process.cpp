#include "zorctl/bundle/piece_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>

#include "common/unique_fd.h"
#include "zorctl/exit_code.h"
#include "zorctl/output.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

constexpr size_t kMostProblem = 4096;

struct Pipe {
  UniqueFd reader, writer;

  bool Open() {
    std::array<int, 2> ends{-1, -1};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) return false;
    reader.reset(ends[0]);
    writer.reset(ends[1]);
    return true;
  }
};

[[noreturn]] void RunChild(const std::function<void()> &make, int output, int errors) {
  ::setpgid(0, 0);
  ::dup2(errors, STDERR_FILENO);
  LeadOutputTo(output);
  std::string problem;
  try {
    make();
    Flush();
  } catch (const OutputClosed &) {
  } catch (const std::exception &failure) {
    problem = failure.what();
    try {
      Flush();
    } catch (...) {
    }
  }
  const bool told = ::write(STDERR_FILENO, problem.data(), problem.size()) >= 0;
  ::_exit(problem.empty() && told ? kExitOk : kExitFailure);
}

// Appends what can be read now, and keeps only the end of what is too long. False at the end of the stream.
bool ReadInto(int fd, std::string &text, size_t most, size_t &cut) {
  std::array<char, 65536> bytes;
  const ssize_t count = ::read(fd, bytes.data(), bytes.size());
  if (count < 0 && errno == EINTR) return true;
  if (count <= 0) return false;
  text.append(bytes.data(), static_cast<size_t>(count));
  if (text.size() > 2 * most) {
    cut += text.size() - most;
    text.erase(0, text.size() - most);
  }
  return true;
}

std::string OneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  text.erase(text.find_last_not_of(' ') + 1);
  return Escape(text);
}

}  // namespace

PieceResult RunPiece(const std::function<void()> &make, const Deadline &deadline, size_t mostBytes, int stop) {
  Flush();
  PieceResult result;
  Pipe output, errors;
  const pid_t child = output.Open() && errors.Open() ? ::fork() : -1;
  if (child == 0) RunChild(make, output.writer.get(), errors.writer.get());
  if (child < 0) {
    result.failed = true;
    result.problem = std::string("cannot start a process: ") + std::strerror(errno);
    return result;
  }
  ::setpgid(child, child);
  output.writer.reset();
  errors.writer.reset();
  size_t ignored = 0;
  while (!deadline.over() && (output.reader.valid() || errors.reader.valid())) {
    std::array<pollfd, 3> watched{
        {{output.reader.get(), POLLIN, 0}, {errors.reader.get(), POLLIN, 0}, {stop, POLLIN, 0}}};
    if (::poll(watched.data(), watched.size(), deadline.pollTimeout()) < 0 && errno != EINTR) break;
    if (watched[2].revents != 0) break;
    if (watched[0].revents != 0 && !ReadInto(output.reader.get(), result.text, mostBytes, result.cutBytes)) {
      output.reader.reset();
    }
    if (watched[1].revents != 0 && !ReadInto(errors.reader.get(), result.problem, kMostProblem, ignored)) {
      errors.reader.reset();
    }
  }
  const bool ended = !output.reader.valid() && !errors.reader.valid();
  int state = 0;
  if (!ended) ::kill(-child, SIGKILL);
  ::waitpid(child, &state, 0);
  if (ended) ::kill(-child, SIGKILL);  // what it left behind, if anything
  if (result.text.size() > mostBytes) {
    result.cutBytes += result.text.size() - mostBytes;
    result.text.erase(0, result.text.size() - mostBytes);
  }
  result.problem = OneLine(result.problem);
  result.failed = !ended || !WIFEXITED(state) || WEXITSTATUS(state) != 0;
  if (!ended) result.problem = "took too long";
  if (WIFSIGNALED(state) && ended) result.problem = std::string("crashed: ") + ::strsignal(WTERMSIG(state));
  return result;
}

}  // namespace zor::ctl
