// What the fuzz targets share.
#ifndef FUZZ_FUZZ_H
#define FUZZ_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace zor::fuzz {

// Ends the program when an invariant does not hold.
inline void Require(bool holds, const char *invariant) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", invariant);
  std::abort();
}

}  // namespace zor::fuzz

#endif
