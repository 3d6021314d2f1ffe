// Arguments of the form NAME VALUE NAME VALUE.
#ifndef BENCH_FLEET_ARGUMENTS_H
#define BENCH_FLEET_ARGUMENTS_H

#include <cstdlib>
#include <cstring>
#include <string>

namespace zor::fleet {

class Arguments {
 public:
  Arguments(int count, char **values) : count_(count), values_(values) {}

  std::string Text(const char *name, const char *otherwise) const {
    for (int i = 1; i + 1 < count_; i += 2) {
      if (std::strcmp(values_[i], name) == 0) return values_[i + 1];
    }
    return otherwise;
  }
  double Number(const char *name, double otherwise) const {
    const std::string text = Text(name, "");
    return text.empty() ? otherwise : std::strtod(text.c_str(), nullptr);
  }
  int Count(const char *name, int otherwise) const { return static_cast<int>(Number(name, otherwise)); }

 private:
  int count_;
  char **values_;
};

}  // namespace zor::fleet

#endif
