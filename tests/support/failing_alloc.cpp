#include "support/failing_alloc.h"

#include <dlfcn.h>

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

// The next definition behind this one: the C library's, or the sanitizer's.
template <class Function>
Function *Next(const char *name) {
  void *found = ::dlsym(RTLD_NEXT, name);
  Function *function;
  std::memcpy(&function, &found, sizeof function);
  return function;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void *malloc(std::size_t size) noexcept {
  static auto *const next = Next<void *(std::size_t)>("malloc");
  return Refuse() ? nullptr : next(size);
}

__attribute__((visibility("default"))) void *realloc(void *block, std::size_t size) noexcept {
  static auto *const next = Next<void *(void *, std::size_t)>("realloc");
  return Refuse() ? nullptr : next(block, size);
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
