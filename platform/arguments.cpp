// The arguments of a command line live in one block with the array that points at them: the texts never grow longer
// than the line they come from, and one release frees all.
#include <zor/platform/process.h>

#include <cstdlib>
#include <cstring>

#include "common/malloc_ptr.h"

namespace {

constexpr char kBlanks[] = " \t\n";

bool IsBlank(char c) {
  return c != '\0' && std::strchr(kBlanks, c) != nullptr;
}

// Reads a command line and writes the characters that stand for themselves. Each step returns false for a line that
// ends too early.
class Splitter {
 public:
  Splitter(const char *line, char *out) : at_(line), out_(out) {}

  // Whether another argument begins.
  bool Next() {
    while (IsBlank(*at_) || IsContinuation()) at_ += *at_ == '\\' ? 2 : 1;
    return *at_ != '\0';
  }

  // Copies one argument and its NUL.
  bool Argument(char **argument) {
    *argument = out_;
    while (*at_ != '\0' && !IsBlank(*at_)) {
      if (!Piece(*at_++)) return false;
    }
    Put('\0');
    return true;
  }

 private:
  bool IsContinuation() const { return at_[0] == '\\' && at_[1] == '\n'; }
  void Put(char c) { *out_++ = c; }

  bool Piece(char first) {
    switch (first) {
      case '\'':
        return SingleQuoted();
      case '"':
        return DoubleQuoted();
      case '\\':
        return Escaped();
      default:
        Put(first);
        return true;
    }
  }

  bool SingleQuoted() {
    const char *end = std::strchr(at_, '\'');
    if (end == nullptr) return false;
    while (at_ != end) Put(*at_++);
    ++at_;
    return true;
  }

  bool DoubleQuoted() {
    while (*at_ != '\0') {
      const char c = *at_++;
      if (c == '"') return true;
      if (c == '\\' && *at_ != '\0' && std::strchr("$`\"\\\n", *at_) != nullptr) {
        Escaped();
      } else {
        Put(c);
      }
    }
    return false;
  }

  bool Escaped() {
    const char c = *at_;
    if (c == '\0') return false;
    ++at_;
    if (c != '\n') Put(c);
    return true;
  }

  const char *at_;
  char *out_;
};

}  // namespace

char **ZOR_UTIL_ParseArgs(const char *commandLine, uint32_t *count) {
  if (count != nullptr) *count = 0;
  if (commandLine == nullptr) return nullptr;
  const size_t length = std::strlen(commandLine);
  // Every argument but the last is followed by a blank, so there are at most this many.
  const size_t most = length / 2 + 1;
  zor::MallocPtr<char *> arguments(static_cast<char **>(std::calloc(1, (most + 1) * sizeof(char *) + length + 1)));
  if (arguments == nullptr) return nullptr;
  Splitter splitter(commandLine, reinterpret_cast<char *>(arguments.get() + most + 1));
  uint32_t found = 0;
  while (splitter.Next()) {
    if (!splitter.Argument(&arguments.get()[found++])) return nullptr;
  }
  if (count != nullptr) *count = found;
  return arguments.release();
}

void ZOR_UTIL_FreeArgs(char **arguments) {
  std::free(arguments);
}
