// A ring of objects that know their neighbours: each leaves it by itself when it is destroyed.
#ifndef ZOR_CPP_LINK_HPP
#define ZOR_CPP_LINK_HPP

namespace zor {
inline namespace face {
namespace detail {

class Link {
 public:
  Link() noexcept = default;
  Link(const Link &) = delete;
  Link &operator=(const Link &) = delete;
  ~Link() { Unlink(); }

  bool alone() const noexcept { return next_ == this; }
  Link &next() const noexcept { return *next_; }
  void Unlink() noexcept {
    previous_->next_ = next_;
    next_->previous_ = previous_;
    previous_ = next_ = this;
  }
  /// Puts one that is alone in front of this one.
  void InsertBefore(Link &other) noexcept {
    other.previous_ = previous_;
    other.next_ = this;
    previous_->next_ = &other;
    previous_ = &other;
  }

 private:
  Link *previous_ = this;
  Link *next_ = this;
};

}  // namespace detail
}  // namespace face
}  // namespace zor

#endif
