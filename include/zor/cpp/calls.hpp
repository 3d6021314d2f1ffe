// Calls that wait for their reply, and what was received while one of them blocked.
#ifndef ZOR_CPP_CALLS_HPP
#define ZOR_CPP_CALLS_HPP

#include <zor/cpp/function.hpp>
#include <zor/cpp/message.hpp>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace zor {
inline namespace face {
namespace detail {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;
using ReplyCallback = Function<void(Result<Reply>)>;

/// What the loop and the socket take: 0 for no limit.
inline std::uint32_t ToWait(Milliseconds timeout) noexcept {
  constexpr std::int64_t kLongest = 0x7fffffff;
  const std::int64_t ms = timeout.count();
  return static_cast<std::uint32_t>(ms < 0 ? 0 : ms > kLongest ? kLongest : ms);
}

/// A request that was sent, and how its reply is recognised.
struct Awaited {
  Awaited(std::string_view to, std::uint32_t requestType) : type(requestType & ZOR_MSG_TYPE_MASK) {
    ZOR_MSG_HEAD numbered;
    ZOR_MSG_SimpleBuilder(&numbered, nullptr, type, 0);
    sequence = numbered.sequence;
    to = CutName(to);
    std::memcpy(destination, to.data(), to.size());
  }
  std::uint32_t type;
  std::uint32_t sequence = 0;
  char destination[ZOR_MSG_NAME_SIZE] = {};

  bool IsReply(const ZOR_MSG_HEAD &head) const noexcept {
    return head.sequence == sequence && (head.type & ZOR_MSG_TYPE_MASK) == type &&
           NameOf(head.source) == NameOf(destination);
  }
  /// The server's notice that no client has the name.
  bool IsNotice(const ZOR_MSG_HEAD &head) const noexcept {
    return (head.type & ZOR_MSG_TYPE_MASK) == ZOR_MSG_SEND_FAILED_NOTICE && head.source[0] == '\0' &&
           head.sequence == sequence && (head.data & ZOR_MSG_TYPE_MASK) == type;
  }
};

/// The calls that the loop completes, and those that were given up, whose replies may yet come.
class Calls {
 public:
  void Add(const Awaited &awaited, Clock::time_point deadline, ReplyCallback callback) {
    pending_.push_back({awaited, deadline, std::move(callback)});
  }
  /// The number of the call that this message is a reply or a notice to.
  std::optional<std::uint32_t> Match(const ZOR_MSG_HEAD &head,
                                     bool (Awaited::*matches)(const ZOR_MSG_HEAD &) const noexcept) const noexcept {
    for (const Pending &call : pending_) {
      if ((call.awaited.*matches)(head)) return call.awaited.sequence;
    }
    return std::nullopt;
  }
  /// The callback of a call, which ends with this; an empty one when it has ended.
  ReplyCallback Take(std::uint32_t sequence) {
    for (Pending &call : pending_) {
      if (call.awaited.sequence != sequence) continue;
      ReplyCallback callback = std::move(call.callback);
      if (&call != &pending_.back()) call = std::move(pending_.back());
      pending_.pop_back();
      return callback;
    }
    return {};
  }
  /// Those whose time is up, now late, and the earliest deadline of the others.
  std::vector<std::uint32_t> Expired(Clock::time_point now, Clock::time_point &next) {
    std::vector<std::uint32_t> expired;
    next = Clock::time_point::max();
    for (const Pending &call : pending_) {
      if (call.deadline <= now) {
        expired.push_back(call.awaited.sequence);
        GiveUp(call.awaited);
      } else if (call.deadline < next) {
        next = call.deadline;
      }
    }
    return expired;
  }
  std::vector<std::uint32_t> All() const {
    std::vector<std::uint32_t> sequences;
    for (const Pending &call : pending_) sequences.push_back(call.awaited.sequence);
    return sequences;
  }
  void Cancel(std::uint32_t sequence) {
    for (const Pending &call : pending_) {
      if (call.awaited.sequence == sequence) GiveUp(call.awaited);
    }
    Take(sequence);
  }

  /// Remembers a call whose reply is to be dropped.
  void GiveUp(const Awaited &awaited) {
    if (late_.size() == kLateMax) late_.erase(late_.begin());
    late_.push_back({awaited, {}, {}});
  }
  /// Whether it is such a reply. True once.
  bool TakeLate(const ZOR_MSG_HEAD &head) {
    for (std::size_t i = 0; i < late_.size(); ++i) {
      if (!late_[i].awaited.IsReply(head)) continue;
      late_.erase(late_.begin() + static_cast<std::ptrdiff_t>(i));
      return true;
    }
    return false;
  }
  /// No reply comes through a connection that has ended.
  void ForgetLate() noexcept { late_.clear(); }

 private:
  static constexpr std::size_t kLateMax = 256;
  struct Pending {
    Awaited awaited;
    Clock::time_point deadline;
    ReplyCallback callback;
  };
  std::vector<Pending> pending_;
  std::vector<Pending> late_;  // without callbacks
};

/// Messages that are dispatched later, first come, first served.
class Backlog {
 public:
  struct Waiting {
    Block message;
    bool isOwnRequest;  // from this process to itself: never a reply
  };
  bool empty() const noexcept { return first_ == waiting_.size(); }
  void Put(Block message, bool isOwnRequest) { waiting_.push_back({std::move(message), isOwnRequest}); }
  Waiting Next() {
    Waiting next = std::move(waiting_[first_]);
    if (++first_ == waiting_.size()) Clear();
    return next;
  }
  void Clear() noexcept {
    waiting_.clear();
    first_ = 0;
  }

 private:
  std::vector<Waiting> waiting_;
  std::size_t first_ = 0;
};

}  // namespace detail
}  // namespace face
}  // namespace zor

#endif
