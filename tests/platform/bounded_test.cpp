#include <gtest/gtest.h>
#include <zor/platform/bounded.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace {

// A field of 8 bytes filled with 'x', so that every written byte shows.
struct Field {
  char bytes[8];
  Field() { std::memset(bytes, 'x', sizeof bytes); }
  std::string All() const { return {bytes, sizeof bytes}; }
};

TEST(BoundedMemory, CopiesWithinTheFieldAndZeroesItOtherwise) {
  const std::string zeros(8, '\0');
  const struct {
    const char *source;
    size_t count;
    int status;
    std::string left;
  } cases[] = {{"abcdefghij", 3, 0, "abcxxxxx"}, {"abcdefghij", 9, ERANGE, zeros}, {nullptr, 0, EINVAL, zeros}};
  for (const auto &c : cases) {
    Field field;
    EXPECT_EQ(memcpy_s(field.bytes, sizeof field.bytes, c.source, c.count), c.status) << c.count;
    EXPECT_EQ(field.All(), c.left) << c.count;
  }
  for (const int shift : {-1, 1, -3, 3, 0, -4}) {
    char bytes[] = "abcdefghijkl";
    char *from = bytes + 4;
    EXPECT_EQ(memcpy_s(from + shift, 4, from, 4), shift != 0 && shift != -4 ? ERANGE : 0) << shift;
  }
}

TEST(Bounded, AFieldWithoutASensibleSizeIsNotTouched) {
  for (const size_t size : {size_t{0}, size_t{ZOR_BOUNDED_MAX} + 1}) {
    Field field;
    EXPECT_EQ(memcpy_s(field.bytes, size, "a", 1), EINVAL);
    EXPECT_EQ(strncpy_s(field.bytes, size, "a", 1), EINVAL);
    EXPECT_EQ(snprintf_s(field.bytes, size, 1, "a"), -1);
    EXPECT_EQ(field.All(), "xxxxxxxx");
  }
}

TEST(BoundedText, CopiesAreCutToTheFieldAndTerminated) {
  const struct {
    const char *source;
    size_t count;
    int status;
    const char *left;
  } cases[] = {{"abcdefg", 99, 0, "abcdefg"},
               {"abcdefgh", 99, ERANGE, "abcdefg"},
               {"abcdefgh", 8, ERANGE, "abcdefg"},
               {nullptr, 3, EINVAL, ""}};
  for (const auto &c : cases) {
    Field field;
    EXPECT_EQ(strncpy_s(field.bytes, sizeof field.bytes, c.source, c.count), c.status) << c.left;
    EXPECT_STREQ(field.bytes, c.left);
  }
  Field field;
  EXPECT_EQ(snprintf_s(field.bytes, sizeof field.bytes, 4, "%d", 12345), -1);
  EXPECT_STREQ(field.bytes, "1234");
}

TEST(BoundedScan, ReadsOnlyConversionsThatBoundWhatTheyStore) {
  int number = 0;
  char word[64] = "";
  EXPECT_EQ(sscanf_s("100%]a-b", "%d%%%3[]a-]", &number, word), 2);
  EXPECT_STREQ(word, "]a-");
  for (const char *format : {"%s", "%0s", "%d %s", "%[a-z]", "%[]%d]%s", "%3s%[^%s]", "%ls", "%1$s", "%", "%12"}) {
    // Hides these formats from the compiler.
    const char *volatile hidden = format;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    EXPECT_EQ(sscanf_s("7 word", hidden, format[1] == 'd' ? static_cast<void *>(&number) : word, word), -1) << format;
#pragma GCC diagnostic pop
  }
  EXPECT_STREQ(word, "]a-") << "untouched";
}

}  // namespace
