// Measuring is switched on and off: by the daemon, or from outside.
#include <pthread.h>
#include <unistd.h>
#include <zor/status.h>
#include <zor/uv_lag.h>

#include <atomic>
#include <charconv>
#include <cstdlib>
#include <string_view>

#include "sdk/loop/lag/lag.h"
#include "sdk/loop/lag/meter.h"

namespace zor::lag {
namespace {

// A word: for some processors GCC takes a library to exchange anything smaller.
using Flag = std::atomic<std::uint32_t>;

constinit Meter theMeter;
// A thread measures. The others leave the meter alone.
constinit Flag taken = 0;

void OnForkedChild() {
  if (taken.load(std::memory_order_relaxed) == 0) return;
  theMeter.Forget();
  meter = nullptr;
  taken.store(0, std::memory_order_relaxed);
}

// At the end of the process the file goes; the figures stay, since callbacks may still run.
struct EndOfProcess {
  ~EndOfProcess() { theMeter.RemoveFile(); }
};

void PrepareForForkAndEnd() {
  static const EndOfProcess end;
  static_cast<void>(end);
  static const int registered = ::pthread_atfork(nullptr, nullptr, OnForkedChild);
  static_cast<void>(registered);
}

// Microseconds; 0 when the operator has set none.
std::uint32_t ThresholdFromEnvironment() {
  const char *text = ::secure_getenv("ZOR_LAG_US");
  if (text == nullptr) return 0;
  const std::string_view digits = text;
  std::uint32_t us = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), us);
  return error == std::errc() && end == digits.data() + digits.size() ? us : 0;
}

// A daemon that measures by itself has chosen its own options.
void StartAsInEnvironment() {
  if (meter != nullptr) return;
  ZOR_UV_LAG_OPTIONS options = {};
  options.thresholdUs = ThresholdFromEnvironment();
  if (options.thresholdUs == 0) return;
  options.flags = ZOR_UV_LAG_OFFER;
  if (ZOR_UV_LagStart(&options) != ZOR_E_IO) return;
  options.flags = 0;
  ZOR_UV_LagStart(&options);
}

}  // namespace

constinit thread_local Meter *meter = nullptr;

void OnRun() noexcept {
  static constinit Flag looked = 0;
  if (looked.load(std::memory_order_relaxed) == 0 && looked.exchange(1) == 0) StartAsInEnvironment();
  if (meter != nullptr) meter->OnRun();
}

void OnRunEnd() noexcept {
  if (meter != nullptr) meter->OnRunEnd();
}

}  // namespace zor::lag

uint32_t ZOR_UV_LagStart(const ZOR_UV_LAG_OPTIONS *options) {
  using namespace zor::lag;
  const ZOR_UV_LAG_OPTIONS wanted = options == nullptr ? ZOR_UV_LAG_OPTIONS{} : *options;
  if ((wanted.flags & ~ZOR_UV_LAG_OFFER) != 0) return ZOR_E_ARGUMENT;
  if (meter == nullptr && taken.exchange(1) != 0) return ZOR_E_BUSY;
  PrepareForForkAndEnd();
  const uint32_t status = theMeter.Start(wanted);
  meter = status == ZOR_OK ? &theMeter : nullptr;
  if (status != ZOR_OK) taken.store(0);
  return status;
}

void ZOR_UV_LagStop(void) {
  using namespace zor::lag;
  if (meter == nullptr) return;
  meter->Stop();
  meter = nullptr;
  taken.store(0);
}

uint32_t ZOR_UV_LagRead(ZOR_UV_LAG *figures) {
  if (figures == nullptr || zor::lag::meter == nullptr) return ZOR_E_ARGUMENT;
  zor::lag::meter->Read(*figures);
  return ZOR_OK;
}
