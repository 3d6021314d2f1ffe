#include <gtest/gtest.h>
#include <zor/platform/list.h>

#include <cstdlib>
#include <vector>

namespace {

struct Item {
  Item *next;
  int value;
};

std::vector<int> destroyed;

void NoteDestroyed(void *item) {
  destroyed.push_back(static_cast<Item *>(item)->value);
}

uint32_t HasValue(const void *item, const void *key) {
  return static_cast<const Item *>(item)->value == *static_cast<const int *>(key) ? 1 : 0;
}

class Lists : public testing::Test {
 protected:
  ~Lists() override { ZOR_UTIL_ListDeleteAll(&head_, nullptr); }

  Item *Add(int value) {
    auto *item = static_cast<Item *>(std::malloc(sizeof(Item)));
    item->next = item;  // whatever stands there is overwritten
    item->value = value;
    EXPECT_EQ(ZOR_UTIL_ListAppend(&head_, item), item);
    return item;
  }
  std::vector<int> Values() const {
    std::vector<int> values;
    for (const Item *item = head_; item != nullptr; item = item->next) values.push_back(item->value);
    return values;
  }

  Item *head_ = nullptr;
};

using Numbers = std::vector<int>;

TEST_F(Lists, DeletingReleasesTheItemAndClosesTheGap) {
  Item *first = Add(1);
  Item *middle = Add(2);
  Item *last = Add(3);
  EXPECT_EQ(ZOR_UTIL_ListDeleteItem(&head_, middle, NoteDestroyed), 0u);
  EXPECT_EQ(Values(), (Numbers{1, 3}));
  EXPECT_EQ(ZOR_UTIL_ListGetCount(&head_), 2u);
  EXPECT_EQ(ZOR_UTIL_ListDeleteItem(&head_, last, nullptr), 0u);
  EXPECT_EQ(ZOR_UTIL_ListDeleteItem(&head_, first, NoteDestroyed), 0u);
  EXPECT_EQ(head_, nullptr);
  EXPECT_EQ(destroyed, (Numbers{2, 1}));
}

TEST_F(Lists, AnItemIsReleasedOnlyWhenItIsOnTheListAndToBeReleased) {
  Add(1);
  Item stranger = {nullptr, 9};
  EXPECT_NE(ZOR_UTIL_ListDeleteItem(&head_, &stranger, NoteDestroyed), 0u);
  EXPECT_NE(ZOR_UTIL_ListDeleteItemEx(&head_, &stranger), 0u);
  EXPECT_EQ(Values(), Numbers{1});
  Item *unlinked = head_;
  EXPECT_EQ(ZOR_UTIL_ListDeleteItemEx(&head_, unlinked), 0u);
  EXPECT_EQ(head_, nullptr);
  EXPECT_TRUE(destroyed.empty());
  std::free(unlinked);
}

TEST_F(Lists, FindTheFirstMatchAndAreEmptiedInOrder) {
  Item *wanted = Add(2);
  for (int value : {2, 3}) Add(value);
  for (int key : {2, 5}) EXPECT_EQ(ZOR_UTIL_ListFindItem(&head_, HasValue, &key), key == 2 ? wanted : nullptr);
  ZOR_UTIL_ListDeleteAll(&head_, NoteDestroyed);
  EXPECT_EQ(destroyed, (Numbers{2, 2, 3}));
  EXPECT_EQ(head_, nullptr);
}

}  // namespace
