// The descriptor passes that follow a select.
#ifndef SDK_LOOP_IO_IO_PASS_H
#define SDK_LOOP_IO_IO_PASS_H

#include <sys/select.h>
#include <zor/uv_io.h>

#include <cstdint>

#include "sdk/loop/core/survey.h"

namespace zor {

// Whether the number is an open descriptor; if not, errno says why.
bool IsOpenDescriptor(std::int32_t fd) noexcept;

// Made right after a successful select. Each pass calls the watchers of one ready set in list order, and sweeps.
class DescriptorPasses {
 public:
  DescriptorPasses(UvLoop &loop, const Survey &survey) noexcept;

  void Run(std::uint32_t event, const fd_set &ready) noexcept;

 private:
  void Visit(UvIO &watcher, std::uint32_t event, bool ready) noexcept;
  void Call(UvIO &watcher, std::uint32_t event) noexcept;

  // Nothing was added or deleted since the survey, and it found nothing deleted: there is nothing to sweep.
  bool SurveyHolds() const noexcept;

  UvLoop &loop_;
  const Survey survey_;
  // Select has proved every descriptor that it reports; only a callback can have closed one behind the loop's back
  // since.
  bool proved_ = true;
  // A bad descriptor that is not ready leads to nothing but a trace line, so it is looked for only when someone reads
  // the trace.
  const bool watchesAll_;
};

}  // namespace zor

#endif
