#include "zorctl/options.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdlib>
#include <string>
#include <utility>

namespace zor::ctl {

Option &Option::Required() {
  option_->required();
  return *this;
}

Option &Option::Type(const char *name) {
  option_->type_name(name);
  return *this;
}

Option &Option::Group(const char *heading) {
  option_->group(heading);
  return *this;
}

Option &Option::ShowDefault() {
  option_->capture_default_str();
  return *this;
}

Option &Option::OneOf(std::vector<std::string> values) {
  option_->check(CLI::IsMember(std::move(values)));
  return *this;
}

Option &Option::Between(double least, double most) {
  option_->check(CLI::Range(least, most));
  option_->check([](const std::string &text) {  // which is in every range
    return std::isnan(std::strtod(text.c_str(), nullptr)) ? "not a number: " + text : "";
  });
  return *this;
}

Option &Option::Check(std::function<std::string(std::string &)> check) {
  option_->transform(CLI::Validator(std::move(check), ""));
  return *this;
}

Option &Option::Separated(char delimiter) {
  option_->delimiter(delimiter);
  return *this;
}

Option &Option::Repeatable() {
  option_->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  return *this;
}

Option &Option::Needs(const Option &other) {
  option_->needs(other.option_);
  return *this;
}

Option &Option::Excludes(const Option &other) {
  option_->excludes(other.option_);
  return *this;
}

bool Option::given() const {
  return option_->count() > 0;
}

Option Options::Add(const char *name, std::string &value, const std::string &help) {
  return Option(app_.add_option(name, value, help));
}

Option Options::Add(const char *name, std::optional<std::string> &value, const std::string &help) {
  return Option(app_.add_option(name, value, help));
}

Option Options::Add(const char *name, std::vector<std::string> &values, const std::string &help) {
  return Option(app_.add_option(name, values, help));
}

Option Options::Add(const char *name, double &value, const std::string &help) {
  return Option(app_.add_option(name, value, help));
}

Option Options::Add(const char *name, std::uint32_t &value, const std::string &help) {
  return Option(app_.add_option(name, value, help));
}

Option Options::AddFlag(const char *name, bool &value, const std::string &help) {
  return Option(app_.add_flag(name, value, help));
}

}  // namespace zor::ctl
