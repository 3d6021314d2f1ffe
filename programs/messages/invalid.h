// What is wrong with a value, a name or a text that someone gave, and what that person can do about it.
#ifndef PROGRAMS_MESSAGES_INVALID_H
#define PROGRAMS_MESSAGES_INVALID_H

#include <stdexcept>
#include <string>
#include <utility>

namespace zor::messages {

class Invalid : public std::runtime_error {
 public:
  Invalid(const std::string &what, std::string whatToDo) : std::runtime_error(what), advice(std::move(whatToDo)) {}

  std::string advice;
};

// The name is well-formed, but nothing has it.
class UnknownName : public Invalid {
 public:
  using Invalid::Invalid;
};

}  // namespace zor::messages

#endif
