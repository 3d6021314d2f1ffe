// What a verb takes from its command line. The parser's headers take longer to compile than any verb, so that verbs
// declare their words and options through these two classes.
#ifndef ZORCTL_OPTIONS_H
#define ZORCTL_OPTIONS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace zor::ctl {

// One that has been declared, or none.
class Option {
 public:
  Option() = default;
  explicit Option(CLI::Option *option) : option_(option) {}

  Option &Required();
  // What stands for its value in --help; an empty text for a word.
  Option &Type(const char *name);
  // The heading in --help; an empty text hides it.
  Option &Group(const char *heading);
  Option &ShowDefault();
  Option &OneOf(std::vector<std::string> values);
  Option &Between(double least, double most);
  // Returns why a value is refused, or an empty text; may rewrite it.
  Option &Check(std::function<std::string(std::string &)> check);
  // Its value is a list with this character between the elements.
  Option &Separated(char delimiter);
  // Each one adds one value.
  Option &Repeatable();
  Option &Needs(const Option &other);
  Option &Excludes(const Option &other);

  // On the command line.
  bool given() const;

 private:
  CLI::Option *option_ = nullptr;
};

class Options {
 public:
  // The parser must outlive it.
  explicit Options(CLI::App &app) : app_(app) {}

  // An option if the name begins with a dash, else a word. The value is set when the command line is parsed.
  Option Add(const char *name, std::string &value, const std::string &help);
  Option Add(const char *name, std::optional<std::string> &value, const std::string &help);
  Option Add(const char *name, std::vector<std::string> &values, const std::string &help);
  Option Add(const char *name, double &value, const std::string &help);
  Option Add(const char *name, std::uint32_t &value, const std::string &help);
  Option AddFlag(const char *name, bool &value, const std::string &help);

 private:
  CLI::App &app_;
};

}  // namespace zor::ctl

#endif
