// A record that waits for its acknowledgement.
#ifndef ZORBRIDGE_KEPT_RECORD_H
#define ZORBRIDGE_KEPT_RECORD_H

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace zor::bridge {

// Streams of a file are counted too; both counts are one key, by which records are in order.
constexpr int kNumberBits = 40;

constexpr std::int64_t KeyOf(std::int64_t streamId, std::uint64_t number) {
  return streamId << kNumberBits | static_cast<std::int64_t>(number);
}
constexpr std::int64_t StreamOf(std::int64_t key) {
  return key >> kNumberBits;
}
constexpr std::uint64_t NumberOf(std::int64_t key) {
  return static_cast<std::uint64_t>(key) & ((std::uint64_t{1} << kNumberBits) - 1);
}

// What a record takes up besides its texts, in memory or in the file.
constexpr std::uint64_t kRecordOverhead = 64;

struct KeptRecord {
  std::int64_t key = 0;
  std::int64_t timeMs = 0;
  std::chrono::steady_clock::time_point keptAt{};
  std::string text;  // one block for both: half of what keeping a record costs is its blocks
  std::uint32_t topicLength = 0;
  bool acknowledged = false;  // before an older one

  std::string_view topic() const { return std::string_view{text}.substr(0, topicLength); }
  std::string_view members() const { return std::string_view{text}.substr(topicLength); }
  std::uint64_t size() const { return text.size() + kRecordOverhead; }
};

}  // namespace zor::bridge

#endif
