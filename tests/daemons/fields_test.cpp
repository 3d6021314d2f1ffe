// Records of fields, and the state that consists of them.
#include "programs/fields.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <array>

#include "programs/state_file.h"

namespace zor::daemon {
namespace {

enum class Colour : uint8_t { kRed, kBlue };

struct Inner {
  std::string text;
  std::vector<uint32_t> numbers;
  friend bool operator==(const Inner &, const Inner &) = default;
};

template <typename Fields, OneOf<Inner> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.text);
  fields(2, record.numbers);
}

struct Outer {
  int64_t negative = 0;
  uint16_t small = 7;
  bool set = false;
  Colour colour = Colour::kRed;
  std::array<char, 4> name{};
  Inner inner;
  std::vector<Inner> list;
  friend bool operator==(const Outer &, const Outer &) = default;
};

template <typename Fields, OneOf<Outer> Record>
void Describe(Fields &fields, Record &record) {
  fields(1, record.negative);
  fields(2, record.small);
  fields(3, record.set);
  fields(4, record.colour);
  fields(5, record.name);
  fields(6, record.inner);
  fields(7, record.list);
}

const Outer kOuter{-5, 9, true, Colour::kBlue, {'a', 'b', 'c', 0}, {"text", {1, 2, 3}}, {{"one", {}}, {"", {4}}, {}}};

// The same as an older and a newer version may know it.
struct OtherVersion {
  uint64_t small = 0;
  std::string added = "default";
};

template <typename Fields, OneOf<OtherVersion> Record>
void Describe(Fields &fields, Record &record) {
  fields(2, record.small);
  fields(90, record.added);
}

TEST(Fields, ARecordIsReadAsItWasWrittenAlsoByAnotherVersion) {
  const auto bytes = WriteRecord(kOuter);
  EXPECT_EQ(ReadRecord<Outer>(*bytes), kOuter);
  const auto other = ReadRecord<OtherVersion>(*bytes);
  ASSERT_TRUE(other.has_value());
  EXPECT_EQ(other->small, 9u);
  EXPECT_EQ(other->added, "default");
  EXPECT_EQ(ReadRecord<Outer>({}), Outer());
  EXPECT_FALSE(ReadRecord<Outer>(*WriteRecord(OtherVersion{70000, ""}))) << "it does not fit 16 bits";
  EXPECT_FALSE(ReadRecord<OtherVersion>(std::span(*bytes).first(bytes->size() - 1)));
}

// The sanitizers notice what is read out of bounds; a record that reads as valid must be written again the same.
TEST(Fields, NoDamagedRecordIsFollowed) {
  const auto intact = *WriteRecord(kOuter);
  for (size_t bit = 0; bit < intact.size() * 8; ++bit) {
    auto damaged = intact;
    damaged[bit / 8] ^= std::byte{1} << (bit % 8);
    const auto record = ReadRecord<Outer>(damaged);
    EXPECT_TRUE(!record || ReadRecord<Outer>(*WriteRecord(*record)) == record);
    EXPECT_NE(ReadRecord<Outer>(std::span(intact).first(bit / 8)), kOuter);
  }
}

std::vector<std::byte> StateOf(std::string_view server, uint32_t version) {
  StateWriter writer(server, version);
  writer.Add(1, kOuter);
  writer.Add(2, kOuter.inner);
  const UniqueFd file = writer.Finish();
  std::vector<std::byte> bytes(static_cast<size_t>(::lseek(file.get(), 0, SEEK_END)));
  EXPECT_EQ(::pread(file.get(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
  return bytes;
}

TEST(StateFile, OnlyAWholeStateOfThisServerAndAKnownVersionIsRead) {
  const auto state = StateOf("one", 3);
  const StateReader intact(state, "one", 3);
  ASSERT_TRUE(intact.valid()) << intact.problem();
  ASSERT_EQ(intact.records().size(), 2u);
  EXPECT_EQ(ReadRecord<Outer>(intact.records()[0].bytes), kOuter);
  EXPECT_EQ(intact.records()[1].tag, 2);
  EXPECT_THAT(StateReader(StateOf("other", 3), "one", 3).problem(), testing::HasSubstr("not that of one"));
  EXPECT_THAT(StateReader(StateOf("one", 4), "one", 3).problem(), testing::HasSubstr("version 4"));
  for (size_t size = 0; size < state.size(); ++size) {
    EXPECT_FALSE(StateReader(std::span(state).first(size), "one", 3).valid()) << size;
  }
}

}  // namespace
}  // namespace zor::daemon
