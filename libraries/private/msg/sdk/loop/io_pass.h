// The descriptor passes that follow a select.
#ifndef SDK_LOOP_IO_PASS_H
#define SDK_LOOP_IO_PASS_H

#include <sys/select.h>
#include <zor/uv_io.h>

#include <cstdint>
#include <optional>

namespace zor {

// True unless the kernel says that the number names no open descriptor; errno tells why.
bool IsOpenDescriptor(std::int32_t fd) noexcept;

// Made right after a successful select. Each pass calls the watchers of one ready set in list order, and sweeps.
class DescriptorPasses {
 public:
  explicit DescriptorPasses(UvLoop &loop) noexcept;

  void Run(std::uint32_t event, const fd_set &ready) noexcept;

 private:
  void Visit(UvIO &watcher, std::uint32_t event, bool ready) noexcept;
  void Call(UvIO &watcher, std::uint32_t event) noexcept;

  UvLoop &loop_;
  // Select has proved every descriptor that it reports; only a callback can have closed one behind the loop's back
  // since.
  bool proved_ = true;
  // A bad descriptor that is not ready leads to nothing but a trace line, so it is looked for only when someone reads
  // the trace.
  const bool watchesAll_;
  // The deletions that were there when the last complete pass began; all of them are swept.
  std::optional<std::uint64_t> swept_;
};

}  // namespace zor

#endif
