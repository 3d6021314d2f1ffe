#include <gtest/gtest.h>
#include <zor/nvpair.h>

#include <cstdio>

#include "support/capture.h"

namespace {

TEST(NameValuePairs, AReplacedPairKeepsItsPlaceAndMayTakeItsOwnValue) {
  ZOR_NVPAIR *list = nullptr;
  ZOR_NVPAIR *first = ZOR_UTIL_NVPairSet(&list, "a", "1");
  EXPECT_EQ(list, first);
  EXPECT_EQ(ZOR_UTIL_NVPairSet(&list, "A", "2"), first->next) << "names are compared exactly";
  EXPECT_EQ(ZOR_UTIL_NVPairSet(&list, "a", "3"), first);
  EXPECT_EQ(ZOR_UTIL_NVPairSet(&list, "a", ZOR_UTIL_NVPairGetValue(list, "a")), first);
  EXPECT_STREQ(ZOR_UTIL_NVPairGetValue(list, "a"), "3");
  EXPECT_EQ(ZOR_UTIL_NVPairSet(&list, "b", nullptr), nullptr);
  EXPECT_EQ(ZOR_UTIL_NVPairGetValue(list, "b"), nullptr);

  zor::test::Capture out;
  char expected[64];
  std::snprintf(expected, sizeof expected, "Print NVPair for [%p] now ...\n", static_cast<void *>(list));
  ZOR_UTIL_NVPairPrint(list);
  EXPECT_EQ(out.Text(), expected);

  ZOR_UTIL_NVPairDelByName(&list, "b");
  ZOR_UTIL_NVPairDelByName(&list, list->name);
  ASSERT_NE(list, nullptr);
  EXPECT_STREQ(list->name, "A");
  ZOR_UTIL_NVPairDelAll(&list);
  EXPECT_EQ(list, nullptr);
}

}  // namespace
