// Path patterns: "?" is any one character, "*" any run within one path element, "**" any run; either run may be empty.
// A pattern list holds patterns separated by "|".
//
// Patterns come from other processes, and backtracking takes exponential time on some of them. So the matcher keeps the
// set of all positions in the path that the pattern read so far can reach, one bit per position, and moves the whole
// set with each token. The time is bounded by the lengths of pattern and path, and nothing is allocated: the caller
// provides the room.
#ifndef COMMON_PATH_PATTERN_H
#define COMMON_PATH_PATTERN_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace zor {

// A path, prepared to be matched with any number of patterns.
class PathMatcher {
 public:
  // The words of room that a path of that length needs.
  static constexpr std::size_t RoomFor(std::size_t length) noexcept {
    return (kFirstRow + std::min(length, kCharacters)) * WordsFor(length);
  }

  // The room must outlive the matcher, the path need not.
  PathMatcher(std::string_view path, std::span<std::uint64_t> room) noexcept
      : end_(path.size()), words_(WordsFor(path.size())), room_(room.data()) {
    std::fill_n(room_, kFirstRow * words_, 0);
    for (std::size_t position = 0; position < end_; ++position) {
      SetBit(kAnyRow, position);
      if (path[position] != '/') SetBit(kElementRow, position);
      SetBit(RowOf(path[position]), position);
    }
  }
  PathMatcher(const PathMatcher &) = delete;
  PathMatcher &operator=(const PathMatcher &) = delete;

  // Whether the pattern matches the whole path.
  bool Matches(std::string_view pattern) noexcept {
    std::fill_n(Row(kReachedRow), words_, 0);
    SetBit(kReachedRow, 0);
    for (bool reachable = true; reachable && !pattern.empty(); pattern.remove_prefix(1)) {
      if (pattern.starts_with("**")) {
        PassRun(kAnyRow);
        pattern.remove_prefix(1);
      } else if (pattern.front() == '*') {
        PassRun(kElementRow);
      } else {
        reachable = PassOne(pattern.front() == '?' ? kAnyRow : rows_[Index(pattern.front())]);
      }
    }
    return pattern.empty() && (Row(kReachedRow)[end_ / kBits] >> (end_ % kBits) & 1) != 0;
  }

  // Whether one of the list's patterns does.
  bool MatchesOneOf(std::string_view patternList) noexcept {
    for (;;) {
      const std::size_t bar = patternList.find('|');
      if (Matches(patternList.substr(0, bar))) return true;
      if (bar == std::string_view::npos) return false;
      patternList.remove_prefix(bar + 1);
    }
  }

 private:
  static constexpr std::size_t kBits = 64;
  static constexpr std::size_t kCharacters = 256;
  // Sets of positions, one row of words each: those reached; where any character is; where any but a slash is;
  // none, for characters that the path lacks. A row for each character of the path follows.
  static constexpr std::size_t kReachedRow = 0, kAnyRow = 1, kElementRow = 2, kNoneRow = 3, kFirstRow = 4;

  // The end is a position too.
  static constexpr std::size_t WordsFor(std::size_t length) noexcept { return length / kBits + 1; }
  static std::size_t Index(char character) noexcept { return static_cast<unsigned char>(character); }

  std::uint64_t *Row(std::size_t row) const noexcept { return room_ + row * words_; }
  void SetBit(std::size_t row, std::size_t position) const noexcept {
    Row(row)[position / kBits] |= std::uint64_t{1} << (position % kBits);
  }

  // The row of a character of the path, which is made when it is first seen.
  std::size_t RowOf(char character) noexcept {
    std::uint16_t &row = rows_[Index(character)];
    if (row == kNoneRow) {
      row = nextRow_++;
      std::fill_n(Row(row), words_, 0);
    }
    return row;
  }

  // From each position of the row to the next one. False if no position is reachable then.
  bool PassOne(std::size_t row) const noexcept {
    std::uint64_t *reached = Row(kReachedRow);
    const std::uint64_t *passable = Row(row);
    std::uint64_t carry = 0, any = 0;
    for (std::size_t word = 0; word < words_; ++word) {
      const std::uint64_t passed = reached[word] & passable[word];
      reached[word] = passed << 1 | carry;
      carry = passed >> (kBits - 1);
      any |= reached[word];
    }
    return any != 0;
  }

  // From each position to all that follow it within a run of the row. Adding the lowest bit reached to a run of ones
  // carries to the run's end: the bits that change are those in between.
  void PassRun(std::size_t row) const noexcept {
    std::uint64_t *reached = Row(kReachedRow);
    const std::uint64_t *passable = Row(row);
    std::uint64_t carry = 0;
    for (std::size_t word = 0; word < words_; ++word) {
      const std::uint64_t half = passable[word] + carry;
      const std::uint64_t sum = half + (reached[word] & passable[word]);
      carry = half < carry || sum < half ? 1 : 0;
      reached[word] |= sum ^ passable[word];
    }
  }

  std::size_t end_;
  std::size_t words_;
  std::uint64_t *room_;
  std::uint16_t nextRow_ = kFirstRow;
  std::array<std::uint16_t, kCharacters> rows_ = [] {
    std::array<std::uint16_t, kCharacters> rows;
    rows.fill(kNoneRow);
    return rows;
  }();
};

}  // namespace zor

#endif
