// How journals are called in the descriptor store, and how they tell servers apart.
#ifndef PROGRAMS_JOURNAL_NAMES_H
#define PROGRAMS_JOURNAL_NAMES_H

#include <charconv>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace zor::daemon::journal {

inline constexpr const char *kNamePrefix = "journal-";

inline std::string NameOf(uint64_t generation) {
  return kNamePrefix + std::to_string(generation);
}

// The number after the prefix; nothing if that is not all of the name.
inline std::optional<uint64_t> NumberIn(std::string_view name, std::string_view prefix) {
  if (!name.starts_with(prefix)) return std::nullopt;
  name.remove_prefix(prefix.size());
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  if (error != std::errc() || end != name.data() + name.size()) return std::nullopt;
  return number;
}

// The first eight characters of a program's name.
inline uint64_t ProgramTag(std::string_view program) {
  uint64_t tag = 0;
  std::memcpy(&tag, program.data(), program.size() < sizeof tag ? program.size() : sizeof tag);
  return tag;
}

}  // namespace zor::daemon::journal

#endif
