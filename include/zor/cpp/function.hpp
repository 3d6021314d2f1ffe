// A callable of any type, moved but never copied, so that a handler may own what it captures.
#ifndef ZOR_CPP_FUNCTION_HPP
#define ZOR_CPP_FUNCTION_HPP

#include <memory>
#include <type_traits>
#include <utility>

namespace zor {
inline namespace face {

template <typename Signature>
class Function;

/// Holds any callable of the signature, also one that cannot be copied. An empty one must not be called.
template <typename R, typename... A>
class Function<R(A...)> {
 public:
  Function() noexcept = default;
  Function(std::nullptr_t) noexcept {}
  template <typename F, typename D = std::decay_t<F>,
            std::enable_if_t<!std::is_same_v<D, Function> && std::is_invocable_r_v<R, D &, A...>, int> = 0>
  Function(F &&target) : target_(std::make_unique<Holder<D>>(std::forward<F>(target))) {}

  explicit operator bool() const noexcept { return target_ != nullptr; }
  R operator()(A... arguments) const { return target_->Call(std::forward<A>(arguments)...); }

 private:
  struct Base {
    Base() = default;
    Base(const Base &) = delete;
    Base &operator=(const Base &) = delete;
    virtual ~Base() = default;
    virtual R Call(A... arguments) = 0;
  };
  template <typename F>
  struct Holder final : Base {
    template <typename G>
    explicit Holder(G &&source) : target(std::forward<G>(source)) {}
    R Call(A... arguments) override {
      if constexpr (std::is_void_v<R>) {
        static_cast<void>(target(std::forward<A>(arguments)...));
      } else {
        return target(std::forward<A>(arguments)...);
      }
    }
    F target;
  };
  std::unique_ptr<Base> target_;
};

}  // namespace face
}  // namespace zor

#endif
