#include <gtest/gtest.h>
#include <zor/nvpair.h>

#include "support/capture.h"

TEST(NameValuePairs, MayTakeTheirOwnValueAndBeDeletedByTheirOwnName) {
  ZOR_NVPAIR *list = nullptr;
  ZOR_NVPAIR *first = ZOR_UTIL_NVPairSet(&list, "a", "1");
  EXPECT_EQ(ZOR_UTIL_NVPairSet(&list, "a", ZOR_UTIL_NVPairGetValue(list, "a")), first);
  EXPECT_STREQ(ZOR_UTIL_NVPairGetValue(list, "a"), "1");
  ZOR_UTIL_NVPairDelByName(&list, list->name);
  EXPECT_EQ(list, nullptr);
}

TEST(NameValuePairs, KeepTheirPlacesAndAreNeverPrinted) {
  ZOR_NVPAIR *list = nullptr;
  ZOR_NVPAIR *first = ZOR_UTIL_NVPairSet(&list, "Pass", "secret");
  ZOR_NVPAIR *second = ZOR_UTIL_NVPairSet(&list, "pass", "");
  EXPECT_TRUE(list == first && first->next == second && second->next == nullptr);
  EXPECT_EQ(ZOR_UTIL_NVPairSet(&list, "Pass", "other"), first);
  EXPECT_STREQ(ZOR_UTIL_NVPairGetValue(list, "Pass"), "other");
  zor::test::Capture out;
  ZOR_UTIL_NVPairPrint(list);
  EXPECT_EQ(out.Text(), "Print NVPair for [" + testing::PrintToString(static_cast<void *>(list)) + "] now ...\n");
  ZOR_UTIL_NVPairDelAll(&list);
  EXPECT_EQ(list, nullptr);
}
