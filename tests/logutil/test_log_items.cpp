#include <gtest/gtest.h>
#include <zor/log.h>

#include <string>

namespace {

// What a lookup gives, with "(null)" for null.
std::string Text(const char *text) {
  return text == nullptr ? "(null)" : text;
}

TEST(LogItems, LieInTableOrderUpToTheRowOfZerosAndHaveATextInEachLanguage) {
  const ZOR_LOG_ITEM *first = ZOR_UTIL_LogItemFindByIdx(0x1A000000);
  ASSERT_NE(first, nullptr);
  const ZOR_LOG_ITEM *row = first;
  for (; row->index != 0; ++row) {
    EXPECT_EQ(row->enabled, 1u);
    for (const uint32_t language : {0u, 1u}) EXPECT_NE(Text(ZOR_UTIL_LogItemGetFmtStr(row, language)), "(null)");
  }
  EXPECT_EQ(row - first, 304);
  EXPECT_EQ(row[-1].index, 0x1A08003Du);
  EXPECT_EQ(ZOR_UTIL_LogItemFindByIdx(0x0300000B)[1].index, 0x03000008u) << "the first of two";
  const struct {
    uint32_t index;
    uint32_t typeLevel;
    const char *english;
    const char *second;
  } cases[] = {
      {0x1A000000, 0x220, "User $0 upgrading beginning", "用户$0开始升级"},
      {0xAC000016, 0x220, "User $0 Modify $1 ACL rule", "用户 $0 修改 $1 访问控制规则"},
      {0x31080002, 0x208,
       "User $0 reads and consents to ($1) \"EULA\"  (Issue/Update date: $2) and \"PARVEX Privacy Notice\" "
       "(Issue/Update date: $3)",
       "用户$0阅读并同意($1)《最终用户许可协议》(发布/更新日期：$2)和《PARVEX隐私声明》(发布/更新日期：$3)"},
      {0x1A08003D, 0x808, "Emergency OTA upgrading($0) succeed.", "紧急OTA升级($0)成功"},
  };
  for (const auto &each : cases) {
    const ZOR_LOG_ITEM *item = ZOR_UTIL_LogItemFindByIdx(each.index);
    ASSERT_NE(item, nullptr) << each.english;
    EXPECT_EQ(item->typeLevel, each.typeLevel) << each.english;
    const ZOR_LOG_ITEM copy = *item;
    EXPECT_EQ(Text(ZOR_UTIL_LogItemGetFmtStr(&copy, 2)), each.english);
    EXPECT_EQ(Text(ZOR_UTIL_LogItemGetFmtStr(&copy, 1)), each.second);
  }
  EXPECT_EQ(ZOR_UTIL_LogItemFindByIdx(0), nullptr) << "the last row is no item";
  EXPECT_EQ(ZOR_UTIL_LogItemFindByIdx(0x1A000001), nullptr);
  const ZOR_LOG_ITEM unknown = {0x1A000001, 0x220, 1};
  EXPECT_EQ(ZOR_UTIL_LogItemGetFmtStr(&unknown, 0), nullptr);
  EXPECT_EQ(ZOR_UTIL_LogItemGetFmtStr(nullptr, 0), nullptr);
}

TEST(LogNames, TellWhichLevelsAreInUse) {
  const char *names[10];
  for (const char *&name : names) name = "untouched";
  EXPECT_EQ(ZOR_UTIL_LOG_GetAllLogLevel(names, 10), 0xF8u);
  EXPECT_EQ(names[2], nullptr);
  EXPECT_STREQ(names[3], "Error");
  EXPECT_STREQ(names[7], "Debug");
  EXPECT_STREQ(names[8], "untouched");
  names[3] = "untouched";
  EXPECT_EQ(ZOR_UTIL_LOG_GetAllLogLevel(names, 3), 0xF8u);
  EXPECT_EQ(Text(names[3]), "untouched");
  uint32_t mask = 7;
  for (const char *level : {"Alert", "notice", "", static_cast<const char *>(nullptr)}) {
    EXPECT_EQ(ZOR_UTIL_LOG_GetHigherLogLevels(level, &mask), 1u);
  }
  EXPECT_EQ(mask, 7u);
  EXPECT_EQ(ZOR_UTIL_LOG_GetHigherLogLevels("Notice", &mask), 0u);
  EXPECT_EQ(mask, 0x38u);
}

}  // namespace
