#include "programs/types/reader.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "support/temp_root.h"

namespace zor::types {
namespace {

using Json = nlohmann::json;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kThermo[] = R"({
  "schema": 1, "vendor": "acme", "namespace": "thermo",
  "modules": [{"name": "thermo", "type": "0x2DA20"}],
  "types": [
    {"type": "0x6101", "name": "GetState", "kind": "request", "to": "thermo", "since": "1.0",
     "request": [{"name": "zone", "type": "u8", "in": "data"}],
     "reply": [{"name": "actual", "type": "f64", "unit": "K", "default": -0.5},
               {"name": "offset", "type": "i16", "default": -32768},
               {"name": "label", "type": "text8", "default": "hall"}, {"name": "more", "type": "json", "default": {}}]},
    {"type": "0x2DA20", "name": "Reached", "kind": "event", "module": "thermo", "event": "reached", "encoding": "json",
     "message": [{"name": "actual", "type": "f64"}]},
    {"type": 186912, "name": "Lost", "kind": "event", "module": "thermo", "event": "lost",
     "encoding": "json"},
    {"type": "0x6200-0x62FF", "name": "Raw", "kind": "oneway", "request": [{"name": "raw", "type": "bytes"}]}]})";

std::vector<std::string> ProblemsOf(std::string_view text, UnknownMembers unknown = UnknownMembers::kReport) {
  std::vector<Problem> problems;
  const bool valid = ParseTypeFile("f", text, unknown, problems).has_value();
  EXPECT_EQ(valid, problems.empty());
  std::vector<std::string> texts;
  for (const Problem &each : problems) texts.push_back(each.Text());
  return texts;
}

TEST(TypeFiles, OursAndAVendorsAreReadCompletely) {
  std::vector<Problem> problems;
  const auto ours = ReadTypeFile(ZOR_TYPES_FOLDER "/zor.json", UnknownMembers::kReport, problems);
  ASSERT_TRUE(ours) << problems.front().Text();
  EXPECT_GT(ours->types.size(), 60u);
  const auto file = ParseTypeFile("f", kThermo, UnknownMembers::kReport, problems);
  ASSERT_TRUE(file) << problems.front().Text();
  const Type &state = file->types[0], &raw = file->types[3];
  EXPECT_EQ(state.fullName(), "thermo.GetState");
  EXPECT_EQ(state.to, "thermo");
  EXPECT_TRUE(state.request[0].inData);
  EXPECT_EQ(state.reply[0].defaultValue, "-0.5");
  EXPECT_EQ(state.reply[2].size, 8u);
  EXPECT_EQ(file->types[1].first, file->modules[0].type);
  EXPECT_EQ(file->types[2].event, "lost");
  EXPECT_EQ(raw.last - raw.first, 0xFFu);
}

// Each row changes the value at a pointer of the file above.
TEST(TypeFiles, EveryMistakeIsReportedAtItsPlace) {
  const struct {
    const char *pointer;
    const char *value;
    const char *problem;  // behind "f:", or its beginning
  } kRows[] = {
      {"/schema", "2", "/schema: not 1"},
      {"/vendor", "\"\"", "/vendor: empty"},
      {"/namespace", "\"a-b\"", "/namespace: not 1 to 32 letters"},
      {"/tipes", "[]", "/tipes: unknown member"},
      {"/types", "{}", "/types: not an array"},
      {"/modules/0/type", "\"0x6101\"", "/modules/0/type: the type of an event lies between"},
      {"/modules/1", R"({"name": "thermo", "type": "0x2DA21"})", "/modules/1: another module"},
      {"/types/0", "7", "/types/0: not an object"},
      {"/types/0/type", "1048576", "/types/0/type: not a type from 0 to 0xFFFFF"},
      {"/types/0/type", "-1", "/types/0/type: not a type"},
      {"/types/3/type", "\"0x62FF-0x6200\"", "/types/3/type: not a type"},
      {"/types/3/type", "\"0x6000-0x62FF\"", "/types/3: has a number of \"GetState\", 0x6101"},
      {"/types/2/event", "\"reached\"", "/types/2: has a number of \"Reached\", 0x2DA20"},
      {"/types/1/type", "\"0x2DA21\"", "/types/1: not the type of its module"},
      {"/types/1/encoding", "\"record\"", "/types/1: events of a type from 0x2DA01"},
      {"/types/3/name", "\"GetState\"", "/types/3: a second type \"GetState\""},
      {"/types/0/name", "\"Get State\"", "/types/0/name: not 1 to 64 letters"},
      {"/types/0/kind", "\"call\"", "/types/0/kind: not one of request, oneway, event, notice"},
      {"/types/0/to", "\"abcdefghijkl\"", "/types/0/to: longer than 11"},
      {"/types/0/since", "1.0", "/types/0/since: not a text"},
      {"/types/0/meaning", "\"a\\u001b[2Jb\"", "/types/0/meaning: contains a control character"},
      {"/types/0/to", "\"\\u009b2J\"", "/types/0/to: contains a control character"},
      {"/types/0/message", "[]", "/types/0/message: a request has"},
      {"/types/3/reply", "[]", "/types/3/reply: only a request"},
      {"/types/0/event", "\"e\"", "/types/0: \"module\" and \"event\" are for events"},
      {"/types/0/reply/0/name", "\"rest\"", "/types/0/reply/0/name: reserved"},
      {"/types/0/reply/1/name", "\"actual\"", "/types/0/reply/1: a second field"},
      {"/types/0/reply/0/type", "\"f32\"", "/types/0/reply/0/type: unknown type \"f32\""},
      {"/types/0/reply/2/type", "\"text08\"", "/types/0/reply/2/type: unknown type"},
      {"/types/0/reply/0/type", "\"bytes\"", "/types/0/reply/0/default: does not fit"},
      {"/types/0/reply/1/default", "-32769", "/types/0/reply/1/default: does not fit the type i16"},
      {"/types/0/reply/2/default", "\"eight888\"", "/types/0/reply/2/default: does not fit"},
      {"/types/0/reply/4", R"({"name": "late", "type": "u8"})", "/types/0/reply/4: nothing can follow \"more\""},
      {"/types/0/request/0/type", "\"u64\"", "/types/0/request/0: the data word holds"},
      {"/types/0/request/1", R"({"name": "b", "type": "u8", "in": "data"})", "/types/0/request/1: a second field in"},
      {"/types/1/message/0/type", "\"items\"", "/types/1/message/0: items are not JSON"},
  };
  for (const auto &row : kRows) {
    Json file = Json::parse(kThermo);
    file[Json::json_pointer(row.pointer)] = Json::parse(row.value);
    const std::vector<std::string> problems = ProblemsOf(file.dump());
    ASSERT_FALSE(problems.empty()) << row.pointer << " " << row.value;
    EXPECT_THAT(problems, testing::Contains(testing::StartsWith(std::string("f:") + row.problem))) << problems.front();
  }
}

TEST(TypeFiles, MembersOfNewerVersionsAreReportedOnlyByTheLint) {
  Json file = Json::parse(kThermo);
  file["types"][0]["priority"] = 3;
  file["$comment"] = "notes";
  EXPECT_THAT(ProblemsOf(file.dump()), ElementsAre("f:/types/0/priority: unknown member"));
  EXPECT_THAT(ProblemsOf(file.dump(), UnknownMembers::kSkip), IsEmpty());
}

TEST(TypeFiles, HostileTextsAreRefused) {
  std::string deep(100'000, '[');
  const std::string many = R"({"schema":1,"vendor":"a","namespace":"a","types":[)" + std::string(10'000, '7') + "]}";
  EXPECT_THAT(ProblemsOf(deep), ElementsAre(HasSubstr("not JSON")));
  EXPECT_THAT(ProblemsOf(std::string(50, '[') + std::string(50, ']')), ElementsAre(HasSubstr("32 levels deep")));
  EXPECT_THAT(ProblemsOf("{\n  \"a\": nul\n}"), ElementsAre("f: not JSON in UTF-8: line 2, column 11"));
  EXPECT_THAT(ProblemsOf("\"\xff\""), ElementsAre(HasSubstr("not JSON")));
  EXPECT_THAT(ProblemsOf(""), ElementsAre(HasSubstr("line 1, column 1")));
  EXPECT_THAT(ProblemsOf(many), ElementsAre(HasSubstr("a number that is too large")));
  EXPECT_THAT(ProblemsOf(std::string(kMaxFileBytes + 1, ' ')), ElementsAre(HasSubstr("larger than")));
  EXPECT_THAT(ProblemsOf(R"({"schema":1,"schema":1,"vendor":"a","namespace":"a"})"),
              ElementsAre(EndsWith("a member given twice: \"schema\"")));
  EXPECT_THAT(ProblemsOf(R"({"\u001b[2J":1,"\u001b[2J":1})"), ElementsAre(EndsWith("a member given twice: \"?\"")));
}

// A tool that reads what is installed must not wait for a pipe, and not fill its memory from a device.
TEST(TypeFiles, OnlyRegularFilesAreOpened) {
  const test::TempRoot root;
  const std::string pipe = root.Path("/pipe.json");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string &path : {pipe, root.Path(""), std::string("/dev/zero"), root.Path("/missing.json")}) {
    std::vector<Problem> problems;
    EXPECT_FALSE(ReadTypeFile(path, UnknownMembers::kSkip, problems)) << path;
    EXPECT_EQ(problems.size(), 1u) << path;
  }
}

}  // namespace
}  // namespace zor::types
