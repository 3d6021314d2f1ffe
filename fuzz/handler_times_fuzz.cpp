// Handler times that another process offers: what is taken is sound, and can be measured.
#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>

#include "fuzz.h"
#include "programs/handler_times.h"

using namespace zor;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  lag::Page page = {};
  if (size != 0) std::memcpy(&page, data, std::min(size, sizeof page));
  const auto bytes = std::as_bytes(std::span(&page, 1));
  const auto pid = static_cast<pid_t>(page.pid);
  fuzz::Require(daemon::CheckHandlerTimes(bytes, pid + 1) == nullptr, "another process's is refused");
  fuzz::Require(daemon::CheckHandlerTimes(bytes.first(bytes.size() - 1), pid) == nullptr, "a part is refused");
  const auto sound = daemon::CheckHandlerTimes(bytes, pid);
  if (sound == nullptr) return 0;
  for (const lag::Callback &callback : std::span(sound->callbacks).first(sound->callbackCount)) {
    fuzz::Require(std::string_view(callback.name.data()).size() < callback.name.size(), "a name ends");
    fuzz::Require(lag::kKindNames[callback.kind] != nullptr, "a kind is known");
  }
  for (const lag::Times &times : sound->times) {
    const std::span<const std::uint32_t, lag::kBuckets> buckets = times.buckets;
    fuzz::Require(lag::PercentileOf(buckets, 50) <= lag::PercentileOf(buckets, 99), "percentiles are in order");
  }
  return 0;
}
