// Child processes of the loop.
#ifndef ZOR_CPP_CHILD_HPP
#define ZOR_CPP_CHILD_HPP

#include <zor/uv_process.h>
#include <zor/cpp/core.hpp>

#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zor {
inline namespace face {

/// How a child ended.
struct ExitStatus {
  int code = 0;
  /// The signal that ended it; 0 if it exited by itself.
  int signal = 0;
  bool ok() const noexcept { return code == 0 && signal == 0; }
};

/// A program to run, looked up on PATH, and what is to be done with it. For example
/// `bus.execute({{"ip", "link"}, [](zor::ExitStatus) {}})`.
struct Command {
  /// The program and its arguments.
  std::vector<std::string> arguments;
  Function<void(ExitStatus)> on_exit = {};
  /// Gets its standard output in pieces. Without it, the child has this process's.
  Function<void(std::string_view)> on_output = {};
  /// The same for its standard error.
  Function<void(std::string_view)> on_errors = {};
  /// "NAME=value" each; replaces the environment unless empty.
  std::vector<std::string> environment = {};
  /// The working directory unless empty.
  std::string directory = {};
};

namespace detail {

struct ChildEntry final : Entry {
  Command command;
  UvProcess *process = nullptr;

  /// ZOR_E_BUSY from a callback of a synchronous spawn: the end of a child of this loop would not be noticed.
  std::uint32_t Start(UvLoop *loop) {
    if (loop != ZOR_UV_LoopGetDefault()) return ZOR_E_BUSY;
    const std::vector<const char *> arguments = Pointers(command.arguments);
    const std::vector<const char *> environment = Pointers(command.environment);
    if (command.arguments.empty()) return ZOR_E_ARGUMENT;
    UvProcessOptions options = {};
    options.file = arguments.front();
    options.args = arguments.data();
    if (!command.environment.empty()) options.env = environment.data();
    if (!command.directory.empty()) options.cwd = command.directory.c_str();
    options.data = this;
    options.exitCallback = OnExit;
    options.outputCallback = OnOutput;
    if (command.on_output) options.flags |= UV_PROCESS_STDOUT;
    if (command.on_errors) options.flags |= UV_PROCESS_STDERR;
    return ZOR_UV_ProcessSpawn(loop, &process, &options);
  }
  // The child goes on; nobody listens to it.
  void Release() override {
    if (process != nullptr) std::exchange(process, nullptr)->header.data = nullptr;
  }

 private:
  static std::vector<const char *> Pointers(const std::vector<std::string> &texts) {
    std::vector<const char *> pointers;
    for (const std::string &text : texts) pointers.push_back(text.c_str());
    pointers.push_back(nullptr);
    return pointers;
  }

  static void OnExit(UvProcess *process, std::int32_t, std::int32_t exitCode, std::int32_t termSignal) {
    auto *const entry = static_cast<ChildEntry *>(process->header.data);
    if (entry == nullptr || !entry->live()) return;
    const auto keep = entry->shared_from_this();
    Core &core = *entry->core();
    entry->End();
    if (entry->command.on_exit) core.RunCallback([&] { entry->command.on_exit({exitCode, termSignal}); });
  }

  // Once at least for each call, and to the end of file once the child has ended: the loop calls again for the rest.
  static void OnOutput(UvProcess *process, UvIO *stream, std::uint32_t streamId) {
    char piece[4096];
    ssize_t count;
    do {
      count = ::read(stream->fd, piece, sizeof piece);
    } while (count < 0 && errno == EINTR);
    if (count == 0 || (count < 0 && errno != EAGAIN)) return ZOR_UV_ProcessDeleteRedirectIO(process, stream);
    auto *const entry = static_cast<ChildEntry *>(process->header.data);
    if (count < 0 || entry == nullptr || !entry->live()) return;
    const auto keep = entry->shared_from_this();
    const auto &listener = streamId == UV_PROCESS_STDOUT ? entry->command.on_output : entry->command.on_errors;
    entry->core()->RunCallback([&] { listener({piece, static_cast<std::size_t>(count)}); });
  }
};

}  // namespace detail

/// A child that was started. Dropping it ends nothing.
class Child {
 public:
  Child() noexcept = default;
  explicit Child(const std::shared_ptr<detail::ChildEntry> &entry) noexcept : entry_(entry) {}

  /// Whether it has not ended yet.
  bool running() const noexcept { return pid() > 0; }
  /// -1 once it has ended.
  int pid() const noexcept {
    const auto entry = entry_.lock();
    return entry == nullptr || entry->process == nullptr ? -1 : entry->process->pid;
  }
  void kill(int signal) const {
    const auto entry = entry_.lock();
    if (entry != nullptr && entry->process != nullptr) ZOR_UV_ProcessKill(entry->process, signal);
  }

 private:
  std::weak_ptr<detail::ChildEntry> entry_;
};

}  // namespace face
}  // namespace zor

#endif
