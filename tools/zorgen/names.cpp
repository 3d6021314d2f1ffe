#include "zorgen/names.h"

#include <algorithm>

namespace zor::zorgen {

std::string Scope::Take(std::string name) {
  while (reserved_->contains(name) || !taken_.insert(name).second) name += '_';
  return name;
}

const std::set<std::string_view> &ReservedInC() {
  static const std::set<std::string_view> kWords = {
      "alignas", "alignof", "and", "and_eq", "asm", "auto", "bitand", "bitor", "bool", "break", "case", "catch", "char",
      "char16_t", "char32_t", "char8_t", "class", "co_await", "co_return", "co_yield", "compl", "concept", "const",
      "const_cast", "consteval", "constexpr", "constinit", "continue", "decltype", "default", "delete", "do", "double",
      "dynamic_cast", "else", "enum", "explicit", "export", "extern", "false", "float", "for", "friend", "goto", "if",
      "inline", "int", "long", "mutable", "namespace", "new", "noexcept", "not", "not_eq", "nullptr", "operator", "or",
      "or_eq", "private", "protected", "public", "register", "reinterpret_cast", "requires", "restrict", "return",
      "short", "signed", "sizeof", "static", "static_assert", "static_cast", "struct", "switch", "template", "this",
      "thread_local", "throw", "true", "try", "typedef", "typeid", "typename", "typeof", "union", "unsigned", "using",
      "virtual", "void", "volatile", "wchar_t", "while", "xor", "xor_eq",
      // Macros of compilers and of the headers that generated code includes.
      "EOF", "NULL", "assert", "errno", "linux", "offsetof", "stderr", "stdin", "stdout", "unix",
      // What generated code uses or declares itself.
      "append_to", "body_", "data_", "data_word", "decode", "modules", "out_", "reader_", "std", "to_", "unknown",
      "zor"};
  return kWords;
}

const std::set<std::string_view> &ReservedInPython() {
  static const std::set<std::string_view> kWords = {
      "False", "None", "True", "and", "as", "assert", "async", "await", "break", "case", "class", "continue", "def",
      "del", "elif", "else", "except", "finally", "for", "from", "global", "if", "import", "in", "is", "lambda",
      "match", "nonlocal", "not", "or", "pass", "raise", "return", "try", "type", "while", "with", "yield",
      // What generated code uses or declares itself.
      "MODULES", "annotations", "bool", "bytes", "classmethod", "decode", "encode", "float", "int", "str", "unknown"};
  return kWords;
}

std::string Identifier(std::string_view text) {
  std::string name(text);
  const auto isPart = [](char each) {
    return (each >= 'a' && each <= 'z') || (each >= 'A' && each <= 'Z') || (each >= '0' && each <= '9');
  };
  std::replace_if(
      name.begin(), name.end(), [&](char each) { return !isPart(each); }, '_');
  if (name.empty() || (name.front() >= '0' && name.front() <= '9')) name.insert(0, "n");
  return name;
}

std::string Upper(std::string_view text) {
  std::string upper(text);
  for (char &each : upper) {
    if (each >= 'a' && each <= 'z') each = static_cast<char>(each - 'a' + 'A');
  }
  return upper;
}

}  // namespace zor::zorgen
