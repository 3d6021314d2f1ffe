#include <gtest/gtest.h>
#include <zor/msg_head.h>
#include <zor/status.h>
#include <zor/trace.h>

#include <string>

#include "support/capture.h"

namespace {

TEST(TraceLevels, NamesAndNumbersTranslateBothWays) {
  for (const char *name : {"none", "fatal", "error", "warning", "info", "debug"}) {
    EXPECT_STREQ(ZOR_TRACE_GetLevelStr(ZOR_TRACE_GetLevelByString(name)), name);
  }
  EXPECT_EQ(ZOR_TRACE_GetLevelByString("warning"), 4u);
  EXPECT_EQ(ZOR_TRACE_GetLevelByString("all"), 16u);
  for (const char *unknown : {"", "Info", "infos"}) EXPECT_EQ(ZOR_TRACE_GetLevelByString(unknown), 0u) << unknown;
  EXPECT_EQ(ZOR_TRACE_GetLevelByString(nullptr), 0u);
  for (uint32_t unknown : {3u, 32u, 0xffffffffu}) EXPECT_STREQ(ZOR_TRACE_GetLevelStr(unknown), "none");
}

TEST(TraceLevels, LevelsCompareAsNumbers) {
  for (const char *module : {"msg", static_cast<const char *>(nullptr)})
    EXPECT_EQ(ZOR_TRACE_IsModuleEnabled(module, 0), 0u);
  ZOR_TRACE_SetPackageLevel("msg", 4);
  for (uint32_t passed : {0u, 3u, 4u}) EXPECT_EQ(ZOR_TRACE_IsModuleEnabled("msg", passed), 1u) << passed;
  for (uint32_t refused : {5u, 0xffffffffu}) EXPECT_EQ(ZOR_TRACE_IsModuleEnabled("msg", refused), 0u) << refused;
}

TEST(TraceLevels, AModuleWithoutSettingFollowsAllWhoseSettingForgetsEveryOther) {
  ZOR_TRACE_SetPackageLevel(nullptr, 8);
  ZOR_TRACE_SetPackageLevel("msg", 1);
  EXPECT_EQ(ZOR_TRACE_IsModuleEnabled("loop", 8), 1u);
  EXPECT_EQ(ZOR_TRACE_IsModuleEnabled("msg", 8), 0u);
  ZOR_TRACE_SetPackageLevel("msg", 0);
  EXPECT_EQ(ZOR_TRACE_IsModuleEnabled("msg", 8), 1u);
  ZOR_TRACE_SetPackageLevel("msg", 16);
  ZOR_TRACE_SetPackageLevel("all", 8);
  EXPECT_EQ(ZOR_TRACE_IsModuleEnabled("msg", 16), 0u);
  ZOR_TRACE_SetPackageLevel("msg", 16);
  ZOR_TRACE_SetPackageLevel("all", 0);
  EXPECT_EQ(ZOR_TRACE_IsModuleEnabled("msg", 1), 0u);
}

TEST(TraceLevels, ALongNameIsStoredCutAndNeverFoundAgain) {
  ZOR_TRACE_SetPackageLevel("notifyclient", 16);
  EXPECT_EQ(ZOR_TRACE_IsModuleEnabled("notifyclient", 16), 0u);
  EXPECT_EQ(ZOR_TRACE_IsModuleEnabled("notifyclien", 16), 1u);
  ZOR_TRACE_SetPackageLevel("notifyclient", 8);  // a second entry, behind the one that counts
  ZOR_TRACE_SetPackageLevel("notifyclient", 0);  // finds none to remove
  EXPECT_EQ(ZOR_TRACE_IsModuleEnabled("notifyclien", 16), 1u);
  ZOR_TRACE_SetPackageLevel("notifyclien", 0);
  EXPECT_EQ(ZOR_TRACE_IsModuleEnabled("notifyclien", 9), 0u);
  EXPECT_EQ(ZOR_TRACE_IsModuleEnabled("notifyclien", 8), 1u);
}

TEST(TraceLevels, EachOfManyModulesKeepsItsOwnLevel) {
  for (uint32_t i = 0; i < 300; ++i) ZOR_TRACE_SetPackageLevel(("m" + std::to_string(i)).c_str(), 1 + i % 16);
  for (uint32_t i = 0; i < 300; i += 3) ZOR_TRACE_SetPackageLevel(("m" + std::to_string(i)).c_str(), 0);
  for (uint32_t i = 0; i < 300; ++i) {
    const std::string name = "m" + std::to_string(i);
    EXPECT_EQ(ZOR_TRACE_IsModuleEnabled(name.c_str(), 1 + i % 16), i % 3 == 0 ? 0u : 1u) << name;
    EXPECT_EQ(ZOR_TRACE_IsModuleEnabled(name.c_str(), 2 + i % 16), 0u) << name;
  }
}

TEST(TraceLevels, DisplayListsTheSettingsInTheOrderOfTheirMaking) {
  ZOR_TRACE_SetPackageLevel("msg", 8);
  ZOR_TRACE_SetPackageLevel("loop", 3);
  m_aucAppName = "cms";
  zor::test::Capture out;
  ZOR_TRACE_Display();
  EXPECT_EQ(out.Text(),
            "App          Module               Level   \r\n"
            "cms          msg                  info    \r\n"
            "             loop                 none    \r\n"
            "\r\n trace output to stdout \r\n");
}

TEST(TraceLevels, TheDirectoryOfModulesRefusesNull) {
  EXPECT_EQ(ZOR_TRACE_RegModule(nullptr), ZOR_E_NO_MEMORY);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(ZOR_TRACE_RegModule("msg"), ZOR_OK);
}

}  // namespace
