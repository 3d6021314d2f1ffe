// Bytes on their way from one socket to the other: never more than its room.
#ifndef ZORTUNNEL_BYTE_QUEUE_H
#define ZORTUNNEL_BYTE_QUEUE_H

#include <cstddef>
#include <cstring>
#include <memory>
#include <span>

namespace zor::tunnel {

class ByteQueue {
 public:
  static constexpr std::size_t kRoom = 65536;

  // Before it is used. Throws std::bad_alloc.
  void Allocate() { bytes_ = std::make_unique_for_overwrite<std::byte[]>(kRoom); }

  bool empty() const { return begin_ == end_; }
  std::span<const std::byte> content() const { return {bytes_.get() + begin_, end_ - begin_}; }
  // Where further bytes go; empty if there is no room.
  std::span<std::byte> Room() {
    if (bytes_ == nullptr) return {};
    if (empty() || begin_ >= kRoom / 2) {
      std::memmove(bytes_.get(), bytes_.get() + begin_, end_ - begin_);
      end_ -= begin_;
      begin_ = 0;
    }
    return {bytes_.get() + end_, kRoom - end_};
  }
  void Add(std::size_t count) { end_ += count; }
  void Remove(std::size_t count) { begin_ += count; }
  void Clear() { begin_ = end_ = 0; }

 private:
  std::unique_ptr<std::byte[]> bytes_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace zor::tunnel

#endif
