#include "programs/types/book.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>

#include "programs/messages/body.h"
#include "programs/messages/event.h"
#include "programs/messages/invalid.h"
#include "programs/messages/message_types.h"
#include "support/temp_root.h"

namespace zor::types {
namespace {

using Json = nlohmann::ordered_json;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::HasSubstr;

std::string FileOf(const std::string &nameSpace, const std::string &types, const std::string &modules = "") {
  return R"({"schema":1,"vendor":"v","namespace":")" + nameSpace + R"(","modules":[)" + modules + R"(],"types":[)" +
         types + "]}";
}

TypeFile Parsed(const std::string &text) {
  std::vector<Problem> problems;
  auto file = ParseTypeFile("f", text, UnknownMembers::kReport, problems);
  EXPECT_TRUE(file) << problems.front().Text();
  return file.value_or(TypeFile());
}

constexpr char kGet[] = R"({"type":"0x6101","name":"Get","kind":"request","to":"thermo"})";

TEST(TypeBook, NamesWhatIsInstalledAndSkipsWhatIsBroken) {
  const test::TempRoot root;
  const std::string installed = root.Path(kTypesFolder), own = root.Path("/own");
  ASSERT_EQ(std::system(("mkdir -p " + installed + " " + own).c_str()), 0);
  std::ofstream(installed + "/b.json") << FileOf("thermo", kGet, R"({"name":"thermo","type":"0x2DA20"})");
  std::ofstream(installed + "/broken.json") << "{";
  std::ofstream(installed + "/zor.json") << "also broken, but ours is compiled in";
  std::ofstream(installed + "/c.json.dpkg-new") << "not yet";
  std::ofstream(own + "/a.json") << FileOf("other", R"({"type":25000,"name":"Get","kind":"oneway"},
    {"type":"0x2DA20","name":"Hot","kind":"event","module":"thermo","event":"hot","encoding":"json"})");
  ::setenv(kTypesVariable, (":/missing:" + own).c_str(), 1);

  EXPECT_EQ(messages::TypeText(0x6101), "thermo.Get");
  EXPECT_EQ(messages::TypeText(0x5009), "DB_SAVE");
  EXPECT_EQ(messages::TypeText(0x2DA20), "thermo");
  EXPECT_EQ(messages::TypeText(0x6102), "0x6102");
  EXPECT_EQ(messages::ParseType("THERMO.get"), 0x6101u);
  EXPECT_EQ(messages::ParseType("other.Hot"), 0x2DA20u);
  EXPECT_EQ(messages::ParseType("thermo"), 0x2DA20u);
  EXPECT_THROW(messages::ParseType("Get"), messages::Invalid) << "there are two";
  EXPECT_EQ(messages::EventTypeOf("thermo"), 0x2DA20u);
  EXPECT_EQ(messages::FindType(0x2DA20)->name, "ZOR_EVT_JSON") << "events share a form";
  TypeBook &book = TypeBook::Installed();
  EXPECT_EQ(book.FindEvent(0x2DA20, "hot")->fullName(), "other.Hot");
  EXPECT_EQ(book.FindEvent(0x2DA20, "cold"), nullptr);
  ASSERT_EQ(book.problems().size(), 1u);
  EXPECT_THAT(book.problems()[0].Text(), HasSubstr("/broken.json: not JSON"));
}

TEST(TypeBook, LeavesANumberToWhoeverDescribedItFirst) {
  TypeBook book;
  book.Add(Parsed(
      FileOf("a", R"({"type":"0x6100-0x61FF","name":"Range","kind":"oneway"})", R"({"name":"m","type":"0x2DA20"})")));
  book.Add(Parsed(FileOf("b", kGet + R"(,{"type":"0x5009","name":"Mine","kind":"oneway"},
    {"type":"0x5000-0x5008","name":"Wide","kind":"oneway"},{"type":"0x6200","name":"Free","kind":"oneway"})"s,
                         R"({"name":"m","type":"0x2DA21"},{"name":"n","type":"0x2DA22"})")));
  EXPECT_EQ(book.Find(0x6101)->fullName(), "a.Range");
  EXPECT_EQ(book.Find(0x5009)->nameSpace, "zor");
  EXPECT_EQ(book.Find(0x6200)->fullName(), "b.Free");
  EXPECT_EQ(book.FindModule("m")->type, 0x2DA20u);
  EXPECT_EQ(book.FindModule(0x2DA22)->name, "n");
  std::vector<std::string> problems;
  for (const Problem &each : book.problems()) problems.push_back(each.Text());
  EXPECT_THAT(problems, ElementsAre(HasSubstr("module \"m\""), "f:/types/0: 0x6101 is a.Range already",
                                    "f:/types/1: 0x5009 is zor.ZOR_MSG_DB_SAVE already",
                                    HasSubstr("f:/types/2: 0x5000 is zor.")));
}

// A second version of a type appends fields. Each side decodes what the other sends, and passes it on as it was.
TEST(Versions, UnderstandEachOtherBothWays) {
  for (const std::string encoding : {"record", "json"}) {
    const auto typeOf = [&](const std::string &fields) {
      return Parsed(FileOf("n", R"({"type":1,"name":"N","kind":"oneway","encoding":")" + encoding +
                                    R"(","request":[{"name":"zone","type":"u8"})" + fields + "]}"))
          .types[0];
    };
    const Type oldType = typeOf("");
    const Type newType = typeOf(R"(,{"name":"offset","type":"i16","default":-7},{"name":"on","type":"bool"},
      {"name":"label","type":"text","default":"hall"})");
    const Shape older = oldType.requestShape(), newer = newType.requestShape();

    const std::string fromOld = messages::EncodeJson(older, {{"zone", 3}}).body;
    EXPECT_EQ(messages::Decode(newer, 0, fromOld).dump(), R"({"zone":3,"offset":-7,"label":"hall"})") << encoding;

    const Json all = {{"zone", 3}, {"offset", -300}, {"on", true}, {"label", "attic"}};
    const std::string fromNew = messages::EncodeJson(newer, all).body;
    EXPECT_EQ(messages::Decode(newer, 0, fromNew), all) << encoding;
    const Json seenByOld = messages::Decode(older, 0, fromNew);
    EXPECT_EQ(seenByOld["zone"], 3) << encoding;
    EXPECT_EQ(messages::EncodeJson(older, seenByOld).body, fromNew) << encoding;
  }
}

TEST(Fields, OfEveryKindAreEncodedAndTakenApartAgain) {
  const Type type = Parsed(FileOf("n", R"({"type":1,"name":"N","kind":"oneway","request":[
    {"name":"word","type":"i8","in":"data"},{"name":"a","type":"u8"},{"name":"b","type":"i64"},
    {"name":"c","type":"f64"},{"name":"d","type":"bool"},{"name":"e","type":"name"},{"name":"f","type":"u64"},
    {"name":"g","type":"bytes2"},{"name":"h","type":"json"}]})"))
                        .types[0];
  const Json values = {{"word", -1},         {"a", 255},        {"b", INT64_MIN}, {"c", -0.5},           {"d", true},
                       {"e", "elevenchars"}, {"f", UINT64_MAX}, {"g", "00ff"},    {"h", {{"x", {1, 2}}}}};
  const messages::Content content = messages::EncodeJson(type.requestShape(), values);
  EXPECT_EQ(content.data, UINT32_MAX);
  EXPECT_EQ(content.body.size(), 1 + 8 + 8 + 1 + 12 + 8 + 2 + R"({"x":[1,2]})"s.size());
  EXPECT_EQ(messages::Decode(type.requestShape(), content.data, content.body), values);
  EXPECT_EQ(messages::Encode(type.requestShape(), {{"b", "-9223372036854775808"}, {"f", "0xFFFFFFFFFFFFFFFF"}}).body,
            messages::EncodeJson(type.requestShape(), {{"b", INT64_MIN}, {"f", UINT64_MAX}}).body);
  const std::vector<std::pair<const char *, Json>> bad = {{"word", -129},
                                                          {"a", 256},
                                                          {"a", 1.5},
                                                          {"b", 9223372036854775808u},
                                                          {"c", "much"},
                                                          {"d", 1},
                                                          {"e", "twelve chars"},
                                                          {"e", "a\0b"s},
                                                          {"g", "000000"},
                                                          {"nothing", 1}};
  for (const auto &[name, value] : bad) {
    EXPECT_THROW(messages::EncodeJson(type.requestShape(), {{name, value}}), messages::Invalid) << name << value;
  }
  const types::Shape object{type.request, Encoding::kJson};
  EXPECT_THROW(messages::EncodeJson(object, {{"c", "inf"}}), messages::Invalid) << "JSON has no such number";
}

}  // namespace
}  // namespace zor::types
