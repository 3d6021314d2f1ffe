// What converts: the kernel's conversion device where it exists, else the C library. Both measure and convert alike.
#ifndef SDK_ICONVCONVERT_CONVERT_ENGINE_H
#define SDK_ICONVCONVERT_CONVERT_ENGINE_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace zor {

struct Conversion {
  std::uint64_t length;  // bytes of output
  bool incomplete;       // some of the input could not be converted and was left out
};

// Measures the conversion; with an output of size bytes also does it. None when a set is not known, the output is too
// small or the engine fails.
std::optional<Conversion> Convert(const char *sourceSet, const char *targetSet, std::string_view input, char *output,
                                  std::uint32_t size) noexcept;

inline std::optional<Conversion> MeasureConversion(const char *sourceSet, const char *targetSet,
                                                   std::string_view input) noexcept {
  return Convert(sourceSet, targetSet, input, nullptr, 0);
}

}  // namespace zor

#endif
