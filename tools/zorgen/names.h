// Identifiers of the generated code. The reader of type files gives only letters, digits and underscores, a letter
// first; what a language or the generated code itself has taken gets an underscore behind it.
#ifndef ZORGEN_NAMES_H
#define ZORGEN_NAMES_H

#include <set>
#include <string>
#include <string_view>

namespace zor::zorgen {

// The names of one scope, such as a file or a record. Names are taken in the order of the file, so that what a newer
// version appends changes no name of an older one.
class Scope {
 public:
  explicit Scope(const std::set<std::string_view> &reserved) : reserved_(&reserved) {}

  // The name, with as many underscores behind it as it takes.
  std::string Take(std::string name);

 private:
  const std::set<std::string_view> *reserved_;
  std::set<std::string> taken_;
};

// Headers in C are valid in C++, so both leave out the keywords of either and common macros.
const std::set<std::string_view> &ReservedInC();
const std::set<std::string_view> &ReservedInPython();

// A text of any characters as an identifier's part.
std::string Identifier(std::string_view text);

std::string Upper(std::string_view text);

}  // namespace zor::zorgen

#endif
