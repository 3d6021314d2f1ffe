// Who is registered for which type.
#ifndef ZOR_CPP_TABLE_HPP
#define ZOR_CPP_TABLE_HPP

#include <zor/cpp/handle.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace zor {
inline namespace face {
namespace detail {

/// All kinds of entries are kept in arrays of one type, which the compiler reads once.
using Entries = std::vector<std::shared_ptr<Entry>>;

inline void EraseFrom(Entries &entries, const Entry &entry) {
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (entries[i].get() == &entry)
      return static_cast<void>(entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(i)));
  }
}

/// A daemon handles some dozen types: a sorted array is as fast as a hash table, and much smaller.
class TypeTable {
 public:
  struct Row {
    std::uint32_t type;
    Entries entries;
  };
  /// Null when there is none. Valid until the table changes.
  const Entries *Find(std::uint32_t type) const noexcept {
    const std::size_t place = PlaceOf(type);
    return place < rows_.size() && rows_[place].type == type ? &rows_[place].entries : nullptr;
  }
  void Add(std::uint32_t type, std::shared_ptr<Entry> entry) {
    const std::size_t place = PlaceOf(type);
    if (place == rows_.size() || rows_[place].type != type) {
      rows_.insert(rows_.begin() + static_cast<std::ptrdiff_t>(place), Row{type, {}});
    }
    rows_[place].entries.push_back(std::move(entry));
  }
  void Remove(std::uint32_t type, const Entry &entry) {
    const std::size_t place = PlaceOf(type);
    if (place == rows_.size() || rows_[place].type != type) return;
    EraseFrom(rows_[place].entries, entry);
    if (rows_[place].entries.empty()) rows_.erase(rows_.begin() + static_cast<std::ptrdiff_t>(place));
  }
  void Clear() { rows_.clear(); }
  const std::vector<Row> &rows() const noexcept { return rows_; }

 private:
  std::size_t PlaceOf(std::uint32_t type) const noexcept {
    std::size_t low = 0, high = rows_.size();
    while (low < high) {
      const std::size_t middle = (low + high) / 2;
      if (rows_[middle].type < type) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    return low;
  }

  std::vector<Row> rows_;
};

}  // namespace detail
}  // namespace face
}  // namespace zor

#endif
