// What has been given up at one place of the stream.
#ifndef ZORBRIDGE_GAP_H
#define ZORBRIDGE_GAP_H

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zor::bridge {

class Gap {
 public:
  bool open() const { return lost_ > 0; }
  // Takes no exception: without memory for its name, a group counts as "other".
  void Count(std::string_view group, std::uint64_t records, std::int64_t fromMs, std::int64_t toMs) noexcept;
  // The members of the record that tells it.
  std::string Members() const;
  void Clear() { *this = Gap(); }

 private:
  void CountGroup(std::string_view group, std::uint64_t records);

  std::uint64_t lost_ = 0;
  std::uint64_t other_ = 0;
  std::int64_t fromMs_ = 0;
  std::int64_t toMs_ = 0;
  std::vector<std::pair<std::string, std::uint64_t>> groups_;
};

}  // namespace zor::bridge

#endif
