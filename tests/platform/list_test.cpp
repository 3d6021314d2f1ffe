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

TEST_F(Lists, KeepTheOrderInWhichItemsWereAppended) {
  for (int value : {1, 2, 3}) Add(value);
  EXPECT_EQ(Values(), (Numbers{1, 2, 3}));
  EXPECT_EQ(ZOR_UTIL_ListGetCount(&head_), 3u);
}

TEST_F(Lists, DeletingReleasesTheItemAndClosesTheGap) {
  Item *first = Add(1);
  Item *middle = Add(2);
  Item *last = Add(3);
  EXPECT_EQ(ZOR_UTIL_ListDeleteItem(&head_, middle, NoteDestroyed), 0u);
  EXPECT_EQ(Values(), (Numbers{1, 3}));
  EXPECT_EQ(ZOR_UTIL_ListDeleteItem(&head_, last, nullptr), 0u);
  EXPECT_EQ(ZOR_UTIL_ListDeleteItem(&head_, first, NoteDestroyed), 0u);
  EXPECT_EQ(head_, nullptr);
  EXPECT_EQ(destroyed, (Numbers{2, 1}));
}

TEST_F(Lists, UnlinkingLeavesTheItemToItsOwner) {
  Item *first = Add(1);
  Add(2);
  EXPECT_EQ(ZOR_UTIL_ListDeleteItemEx(&head_, first), 0u);
  EXPECT_EQ(Values(), Numbers{2});
  EXPECT_EQ(first->value, 1);
  std::free(first);
}

TEST_F(Lists, AnItemThatIsNotOnTheListIsLeftAlone) {
  Add(1);
  Item stranger = {nullptr, 9};
  EXPECT_NE(ZOR_UTIL_ListDeleteItem(&head_, &stranger, NoteDestroyed), 0u);
  EXPECT_NE(ZOR_UTIL_ListDeleteItemEx(&head_, &stranger), 0u);
  EXPECT_TRUE(destroyed.empty());
  EXPECT_EQ(Values(), Numbers{1});
}

TEST_F(Lists, EmptyingReleasesInOrder) {
  for (int value : {1, 2, 3}) Add(value);
  ZOR_UTIL_ListDeleteAll(&head_, NoteDestroyed);
  EXPECT_EQ(destroyed, (Numbers{1, 2, 3}));
  EXPECT_EQ(head_, nullptr);
}

TEST_F(Lists, FindTheFirstMatch) {
  Add(1);
  Item *wanted = Add(2);
  Add(2);
  for (int key : {2, 5}) EXPECT_EQ(ZOR_UTIL_ListFindItem(&head_, HasValue, &key), key == 2 ? wanted : nullptr);
}

TEST_F(Lists, NullArgumentsChangeNothing) {
  Item item = {nullptr, 1};
  EXPECT_EQ(ZOR_UTIL_ListAppend(nullptr, &item), nullptr);
  EXPECT_EQ(ZOR_UTIL_ListAppend(&head_, nullptr), nullptr);
  EXPECT_NE(ZOR_UTIL_ListDeleteItem(nullptr, &item, nullptr), 0u);
  EXPECT_NE(ZOR_UTIL_ListDeleteItem(&head_, nullptr, nullptr), 0u);
  EXPECT_EQ(ZOR_UTIL_ListFindItem(nullptr, HasValue, &item), nullptr);
  EXPECT_EQ(ZOR_UTIL_ListFindItem(&head_, nullptr, &item), nullptr);
  EXPECT_EQ(ZOR_UTIL_ListGetCount(nullptr), 0u);
  ZOR_UTIL_ListDeleteAll(nullptr, NoteDestroyed);
}

}  // namespace
