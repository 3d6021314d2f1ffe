// Publications that the broker has not acknowledged, and bytes that the socket has not taken.
#ifndef ZORBRIDGE_UNDER_WAY_H
#define ZORBRIDGE_UNDER_WAY_H

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

namespace zor::bridge {

class UnderWay {
 public:
  using Clock = std::chrono::steady_clock;

  UnderWay(uint32_t mostCount, std::size_t mostBytes) : mostCount_(mostCount), mostBytes_(mostBytes) {}

  // A single one may be of any size: it would never have room otherwise.
  bool HasRoomFor(int qos, std::size_t bytes) const {
    return (qos == 0 || sent_.size() < mostCount_) && (bytes_ + unsent_ == 0 || bytes_ + unsent_ + bytes <= mostBytes_);
  }
  void AddUnsent(std::size_t bytes) { unsent_ += bytes; }
  void AllSent() { unsent_ = 0; }

  void Add(int id, uint64_t token, std::size_t bytes) {
    sent_.push_back({id, token, bytes, Clock::now()});
    bytes_ += bytes;
  }
  // Its token. None: it is not one of ours.
  std::optional<uint64_t> Take(int id) {
    const auto at = std::find_if(sent_.begin(), sent_.end(), [id](const Sent &each) { return each.id == id; });
    if (at == sent_.end()) return std::nullopt;
    const uint64_t token = at->token;
    bytes_ -= at->bytes;
    sent_.erase(at);
    return token;
  }
  // When the oldest one was sent.
  std::optional<Clock::time_point> oldest() const {
    if (sent_.empty()) return std::nullopt;
    return sent_.front().time;
  }
  void Clear() {
    sent_.clear();
    bytes_ = unsent_ = 0;
  }

 private:
  struct Sent {
    int id;
    uint64_t token;
    std::size_t bytes;
    Clock::time_point time;
  };

  uint32_t mostCount_;
  std::size_t mostBytes_;
  std::deque<Sent> sent_;  // in the order of sending, which is nearly that of the acknowledgements
  std::size_t bytes_ = 0;
  std::size_t unsent_ = 0;  // with QoS 0; since the socket last took everything
};

}  // namespace zor::bridge

#endif
