// Handler times as a process keeps them: in memory that may be a file, which other processes read while it is written.
// Only plain numbers and texts, no pointers: readers may be of another version, and must not learn addresses.
//
// The owner makes the sequence odd, writes, and makes it even again. A reader takes a copy and keeps it when the
// sequence was the same even number before and after.
#ifndef COMMON_LAG_PAGE_H
#define COMMON_LAG_PAGE_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>

namespace zor::lag {

inline constexpr std::uint64_t kMagic = 0x31676f6c72646e68;  // "hndrlog1"
// What is measured: turns of the loop, and the kinds of callbacks.
inline constexpr auto kKindNames = std::to_array<const char *>(
    {"turn", "timer", "idle", "descriptor", "procedure", "handler", "reply", "notification", "child"});
inline constexpr std::size_t kKinds = kKindNames.size();
inline constexpr std::size_t kCallbacks = 32;
inline constexpr std::size_t kNameSize = 64;
inline constexpr std::size_t kSourceSize = 12;

// Buckets of a logarithmic scale, each octave cut into eight equal parts: bucket 0 holds times of 0 us, bucket 7 those
// of 7 us, bucket 8 those of 8 us, bucket 16 those of 16 and 17 us, the last one those up to 2^32 - 1 us.
inline constexpr std::uint32_t kPartBits = 3;
inline constexpr std::uint32_t kParts = 1U << kPartBits;
inline constexpr std::size_t kBuckets = std::size_t{32 - kPartBits + 1} * kParts;

constexpr std::size_t BucketOf(std::uint32_t us) noexcept {
  if (us < kParts) return us;
  const auto octave = static_cast<std::uint32_t>(std::bit_width(us)) - 1 - kPartBits;
  return octave * kParts + (us >> octave);
}

// The longest time that the bucket holds.
constexpr std::uint32_t LongestIn(std::size_t bucket) noexcept {
  if (bucket < kParts) return static_cast<std::uint32_t>(bucket);
  const std::size_t octave = bucket / kParts - 1;
  const std::uint64_t first = std::uint64_t{kParts + bucket % kParts} << octave;
  return static_cast<std::uint32_t>(first + (std::uint64_t{1} << octave) - 1);
}
static_assert(BucketOf(std::numeric_limits<std::uint32_t>::max()) == kBuckets - 1);
static_assert(LongestIn(kBuckets - 1) == std::numeric_limits<std::uint32_t>::max());

// The time that this share of all, in percent, does not exceed; 0 when nothing was counted.
template <class Count>
std::uint32_t PercentileOf(std::span<const Count, kBuckets> buckets, std::uint32_t percent) noexcept {
  std::uint64_t all = 0;
  for (const Count count : buckets) all += count;
  const std::uint64_t wanted = all / 100 * percent + (all % 100 * percent + 99) / 100;
  std::uint64_t seen = 0;
  for (std::size_t bucket = 0; bucket < kBuckets; ++bucket) {
    seen += buckets[bucket];
    if (seen >= wanted && wanted != 0) return LongestIn(bucket);
  }
  return 0;
}

struct Times {
  std::uint64_t count;
  std::uint64_t slowCount;
  std::uint64_t totalNs;
  std::uint32_t longestUs;
  std::uint32_t unused;
  // When one is full all are halved: then they still show how the times are spread.
  std::array<std::uint32_t, kBuckets> buckets;
};
static_assert(sizeof(Times) == 992);

struct Callback {
  std::uint64_t count;
  std::uint64_t slowCount;
  std::uint64_t totalNs;
  std::uint32_t longestUs;
  std::uint32_t kind;
  std::uint32_t type;
  std::array<char, kSourceSize> source;  // ends within
  std::array<char, kNameSize> name;      // the same
};
static_assert(sizeof(Callback) == 112);

struct Page {
  std::uint64_t magic;
  std::uint32_t bytes;  // of all of this
  std::uint32_t sequence;
  std::uint64_t startedMs;  // since the machine started, sleep included
  std::uint32_t pid;
  std::uint32_t thresholdUs;
  std::uint32_t callbackCount;
  std::uint32_t unused;
  std::array<Times, kKinds> times;
  std::array<Callback, kCallbacks> callbacks;  // in any order
};
static_assert(offsetof(Page, times) == 40 && sizeof(Page) == 40 + kKinds * 992 + kCallbacks * 112);

}  // namespace zor::lag

#endif
