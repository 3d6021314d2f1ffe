#include <gtest/gtest.h>
#include <zor/platform/list.h>

#include <cstdlib>
#include <string>

namespace {

struct Item {
  Item *next;
  char name;
};

std::string destroyed;

void NoteDestroyed(void *item) {
  destroyed += static_cast<Item *>(item)->name;
}

uint32_t HasName(const void *item, const void *key) {
  return static_cast<const Item *>(item)->name == *static_cast<const char *>(key) ? 1 : 0;
}

Item *NewItem(char name) {
  auto *item = static_cast<Item *>(std::malloc(sizeof(Item)));
  *item = {item, name};  // whatever stands in the link is overwritten
  return item;
}

TEST(Lists, ReleaseWhatIsDeletedAndNothingElse) {
  Item *head = nullptr;
  for (const char name : {'a', 'b', 'b', 'c', 'd', 'e'}) ZOR_UTIL_ListAppend(&head, NewItem(name));
  Item *const first = head;
  for (const char key : {'b', 'x'}) {
    EXPECT_EQ(ZOR_UTIL_ListFindItem(&head, HasName, &key), key == 'b' ? first->next : nullptr);
  }
  EXPECT_EQ(ZOR_UTIL_ListDeleteItem(&head, head->next, NoteDestroyed), 0u);
  EXPECT_EQ(ZOR_UTIL_ListDeleteItemEx(&head, first), 0u);
  EXPECT_NE(ZOR_UTIL_ListDeleteItem(&head, first, NoteDestroyed), 0u) << "not on the list any more";
  std::free(first);
  EXPECT_EQ(destroyed, "b");
  EXPECT_EQ(ZOR_UTIL_ListGetCount(&head), 4u);
  ZOR_UTIL_ListDeleteAll(&head, NoteDestroyed);
  EXPECT_EQ(destroyed, "bbcde");
  EXPECT_EQ(head, nullptr);
}

}  // namespace
