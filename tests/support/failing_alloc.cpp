#include "support/failing_alloc.h"

#include <cstddef>
#include <cstring>

namespace {

constinit thread_local unsigned g_passing = 0;
constinit thread_local unsigned g_failing = 0;
constinit thread_local bool g_failed = false;

bool Refuse() {
  if (g_failing == 0) return false;
  if (g_passing > 0) {
    --g_passing;
    return false;
  }
  --g_failing;
  g_failed = true;
  return true;
}

}  // namespace

extern "C" {

// What is behind the definitions below: the sanitizer's functions where there is one, or else the C library's. They are
// named, not looked up, because the sanitizer allocates before anything can be looked up.
// NOLINTBEGIN(bugprone-reserved-identifier): not our names
__attribute__((weak)) void *__interceptor_malloc(std::size_t size);
__attribute__((weak)) void *__interceptor_realloc(void *block, std::size_t size);
void *__libc_malloc(std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier)

__attribute__((visibility("default"))) void *malloc(std::size_t size) noexcept {
  if (Refuse()) return nullptr;
  return __interceptor_malloc != nullptr ? __interceptor_malloc(size) : __libc_malloc(size);
}

__attribute__((visibility("default"))) void *realloc(void *block, std::size_t size) noexcept {
  if (Refuse()) return nullptr;
  return __interceptor_realloc != nullptr ? __interceptor_realloc(block, size) : __libc_realloc(block, size);
}

// Both are replaced by sanitizers, whose own ones do not come here.
__attribute__((visibility("default"))) char *strndup(const char *text, std::size_t max) noexcept {
  const std::size_t length = ::strnlen(text, max);
  auto *copy = static_cast<char *>(malloc(length + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, text, length);
  copy[length] = '\0';
  return copy;
}

__attribute__((visibility("default"))) char *strdup(const char *text) noexcept {
  return strndup(text, std::strlen(text));
}

}  // extern "C"

namespace zor::test {

FailingAllocations::FailingAllocations(unsigned passing, unsigned failing) {
  g_failed = false;
  g_passing = passing;
  g_failing = failing;
}

FailingAllocations::~FailingAllocations() {
  g_failing = 0;
}

bool FailingAllocations::Failed() const {
  return g_failed;
}

}  // namespace zor::test
