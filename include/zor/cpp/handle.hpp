// What a registration returns: a way to end it. It stays when that is dropped; a Scoped ends it with its owner.
#ifndef ZOR_CPP_HANDLE_HPP
#define ZOR_CPP_HANDLE_HPP

#include <zor/cpp/link.hpp>

#include <memory>
#include <utility>

namespace zor {
inline namespace face {

namespace detail {

class Core;

/// Something registered with the bus, which owns it. A callback that runs holds a share too, so that it may end itself.
class Entry : public std::enable_shared_from_this<Entry>, public Link {
 public:
  Entry() = default;
  Entry(const Entry &) = delete;
  Entry &operator=(const Entry &) = delete;
  virtual ~Entry() = default;

  bool live() const noexcept { return core_ != nullptr; }
  Core *core() const noexcept { return core_; }
  /// Joins the ring of what the bus owns.
  void Begin(Core &core, Link &ring) {
    core_ = &core;
    self_ = shared_from_this();
    ring.InsertBefore(*this);
  }
  /// May be repeated, and called while the callback runs.
  void End() {
    const auto keep = std::move(self_);
    Unlink();
    if (Core *core = std::exchange(core_, nullptr)) Leave(*core);
  }
  /// The bus goes: nothing must be taken from its tables any more.
  void Abandon() {
    const auto keep = std::move(self_);
    Unlink();
    core_ = nullptr;
    Release();
  }

 protected:
  /// Takes the entry out of the bus's tables, if it is in one.
  virtual void Leave(Core &) { Release(); }
  /// Gives back to the loop what belongs to it.
  virtual void Release() {}

 private:
  Core *core_ = nullptr;
  std::shared_ptr<Entry> self_;  // while the bus owns it
};

}  // namespace detail

/// Refers to a handler, a subscription, a timer or a watched descriptor. Copies refer to the same; dropping one ends
/// nothing. Outlives the bus without harm.
class Handle {
 public:
  Handle() noexcept = default;
  explicit Handle(std::weak_ptr<detail::Entry> entry) noexcept : entry_(std::move(entry)) {}

  /// Ends it: its callback is not called any more. May be called from that callback, and again.
  void stop() {
    if (const auto entry = entry_.lock()) entry->End();
    entry_.reset();
  }
  /// Whether it is still registered; a timer that was to fire once is not after that.
  bool active() const noexcept {
    const auto entry = entry_.lock();
    return entry != nullptr && entry->live();
  }

 private:
  std::weak_ptr<detail::Entry> entry_;
};

/// Ends a registration with its owner: "Scoped lan = bus.events(...)".
class Scoped {
 public:
  Scoped() noexcept = default;
  Scoped(Handle handle) noexcept : handle_(std::move(handle)) {}
  Scoped(Scoped &&other) noexcept : handle_(other.release()) {}
  Scoped &operator=(Scoped &&other) {
    Handle next = other.release();
    handle_.stop();
    handle_ = std::move(next);
    return *this;
  }
  ~Scoped() { handle_.stop(); }

  void stop() { handle_.stop(); }
  bool active() const noexcept { return handle_.active(); }
  /// Lets it stay after this owner.
  Handle release() noexcept { return std::exchange(handle_, Handle()); }

 private:
  Handle handle_;
};

}  // namespace face
}  // namespace zor

#endif
