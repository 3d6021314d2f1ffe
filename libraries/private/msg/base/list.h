// A typed view of the platform's linked lists. Items are C records whose first member is the link.
#ifndef BASE_LIST_H
#define BASE_LIST_H

#include <zor/platform/list.h>

#include <cstdint>
#include <cstring>

namespace zor {

// The link of an item, read as the list primitives write it.
template <class T>
T *NextOf(const T *item) noexcept {
  T *next;
  // NOLINTNEXTLINE(bugprone-sizeof-expression): it is the link that is read, not the item.
  std::memcpy(&next, static_cast<const void *>(item), sizeof next);
  return next;
}

// Walks a list in order. The link is read before the body of the loop runs, so the body may unlink or free its item.
template <class T>
class ListView {
 public:
  class Iterator {
   public:
    explicit Iterator(T *item) noexcept : item_(item), next_(item == nullptr ? nullptr : NextOf(item)) {}
    T *operator*() const noexcept { return item_; }
    Iterator &operator++() noexcept { return *this = Iterator(next_); }
    bool operator!=(const Iterator &other) const noexcept { return item_ != other.item_; }

   private:
    T *item_;
    T *next_;
  };

  explicit ListView(T *head) noexcept : head_(head) {}
  Iterator begin() const noexcept { return Iterator(head_); }
  Iterator end() const noexcept { return Iterator(nullptr); }

 private:
  T *head_;
};

template <class T>
void Append(T *&head, T *item) noexcept {
  ZOR_UTIL_ListAppend(&head, item);
}

// Unlinks without freeing; false when the item is not on the list.
template <class T>
bool Unlink(T *&head, T *item) noexcept {
  return ZOR_UTIL_ListDeleteItemEx(&head, item) == 0;
}

// The first item that satisfies the predicate, else null.
template <class T, class Predicate>
T *Find(T *head, Predicate &&matches) noexcept {
  for (T *item : ListView<T>(head)) {
    if (matches(*item)) return item;
  }
  return nullptr;
}

}  // namespace zor

#endif
