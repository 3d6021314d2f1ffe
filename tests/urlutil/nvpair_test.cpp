#include <gtest/gtest.h>
#include <zor/nvpair.h>

TEST(NameValuePairs, MayTakeTheirOwnValueAndBeDeletedByTheirOwnName) {
  ZOR_NVPAIR *list = nullptr;
  ZOR_NVPAIR *first = ZOR_UTIL_NVPairSet(&list, "a", "1");
  EXPECT_EQ(ZOR_UTIL_NVPairSet(&list, "a", ZOR_UTIL_NVPairGetValue(list, "a")), first);
  EXPECT_STREQ(ZOR_UTIL_NVPairGetValue(list, "a"), "1");
  ZOR_UTIL_NVPairDelByName(&list, list->name);
  EXPECT_EQ(list, nullptr);
}
