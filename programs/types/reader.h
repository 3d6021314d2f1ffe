// Reads type files. A file is refused as a whole when anything in it is wrong: half a description would mislead.
//
// Members that this version does not know are skipped, so that older tools read the files of newer vendors; only the
// lint reports them, since they are usually misspelt.
#ifndef PROGRAMS_TYPES_READER_H
#define PROGRAMS_TYPES_READER_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "programs/types/type.h"

namespace zor::types {

// What is beyond these bounds is refused.
inline constexpr size_t kMaxFileBytes = 1u << 20;
inline constexpr size_t kMaxTypes = 4096;  // of a file
inline constexpr size_t kMaxModules = 256;
inline constexpr size_t kMaxFields = 256;  // of a message
inline constexpr size_t kMaxTextBytes = 1024;

struct Problem {
  std::string path;
  std::string pointer;  // to the JSON value; empty for the whole file
  std::string what;

  // "FILE:POINTER: what".
  std::string Text() const;
};

enum class UnknownMembers { kSkip, kReport };

// No value if there are problems, all of which are added.
std::optional<TypeFile> ReadTypeFile(const std::string &path, UnknownMembers unknown, std::vector<Problem> &problems);

// The same for a file's content; the path is only for problems.
std::optional<TypeFile> ParseTypeFile(const std::string &path, std::string_view text, UnknownMembers unknown,
                                      std::vector<Problem> &problems);

}  // namespace zor::types

#endif
