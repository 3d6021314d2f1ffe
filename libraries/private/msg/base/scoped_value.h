// Gives a variable another value for the length of a scope.
#ifndef BASE_SCOPED_VALUE_H
#define BASE_SCOPED_VALUE_H

#include <utility>

namespace zor {

template <class T>
class ScopedValue {
 public:
  ScopedValue(T &variable, T value) noexcept : variable_(variable), saved_(std::exchange(variable, value)) {}
  ScopedValue(const ScopedValue &) = delete;
  ScopedValue &operator=(const ScopedValue &) = delete;
  ~ScopedValue() { variable_ = saved_; }

 private:
  T &variable_;
  T saved_;
};

}  // namespace zor

#endif
