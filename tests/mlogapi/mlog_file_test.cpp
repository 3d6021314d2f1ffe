#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zor/mlog.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "support/capture.h"
#include "support/temp_root.h"

namespace {

using testing::HasSubstr;
using zor::test::Capture;
using zor::test::TempRoot;

struct Destructor {
  void operator()(ZOR_MLOG_FILE *file) const { mlog_file_destructor(file); }
};
using File = std::unique_ptr<ZOR_MLOG_FILE, Destructor>;

constexpr long kMax = 0x200000;
constexpr char kNewHeader[] = "[overturn=000][offset=0000000063][uploadoffset=000^0000000000]\n";

class MlogFile : public testing::Test {
 protected:
  File Open() { return File(mlog_file_constructor(path_.c_str())); }
  File OpenWith(const std::string &content) {
    std::ofstream(path_, std::ios::binary) << content;
    return Open();
  }
  std::string Content() const {
    std::ifstream stream(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  TempRoot root_;
  std::string path_ = root_.Path("/var/log");
  Capture output_;
};

int32_t Write(const File &file, const std::string &data) {
  return mlog_file_write(file.get(), data.data(), static_cast<uint32_t>(data.size()));
}

TEST_F(MlogFile, ANewFileHoldsItsHeaderAndANul) {
  const File file = Open();
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->offset, 63);
  EXPECT_EQ(Content(), std::string(kNewHeader, 64));
  EXPECT_EQ(output_.Text(), "[mlog_file_header_read:284] overturn = 0,offset = 63\n");
}

TEST_F(MlogFile, EachWriteAppendsAndBringsTheHeaderUpToDate) {
  File file = Open();
  EXPECT_EQ(Write(file, "one\n"), 0);
  EXPECT_EQ(Write(file, "two\n"), 0);
  EXPECT_THAT(output_.Text(), HasSubstr("[func mlog_file_write:line 204]overturn = 0,offset = 71\n"));
  file.reset();
  EXPECT_EQ(Content(), "[overturn=000][offset=0000000071][uploadoffset=000^0000000000]\none\ntwo\n");
  file = Open();
  EXPECT_EQ(Write(file, "three\n"), 0);
  file.reset();
  EXPECT_THAT(Content(), testing::EndsWith("one\ntwo\nthree\n"));
}

TEST_F(MlogFile, WrapsToTheFirstDataByteWhenABlockDoesNotFit) {
  File file = Open();
  ASSERT_EQ(Write(file, std::string(kMax - 63 - 16, 'a')), 0);
  EXPECT_EQ(file->offset, kMax - 16);
  EXPECT_EQ(Write(file, std::string(100, 'b')), 0);
  EXPECT_EQ(file->offset, 163);
  EXPECT_EQ(file->overturn, 1);
  file.reset();
  const std::string content = Content();
  EXPECT_EQ(content.substr(0, 165),
            "[overturn=001][offset=0000000163][uploadoffset=001^0000000000]\n" + std::string(100, 'b') + "aa");
  EXPECT_EQ(content.size(), static_cast<size_t>(kMax - 16)) << "the tail of the round before stays";
}

TEST_F(MlogFile, FillsUpToItsLastByteAndDropsWhatNeverFits) {
  File file = Open();
  ASSERT_EQ(Write(file, std::string(kMax - 63, 'a')), 0);
  EXPECT_EQ(file->offset, kMax);
  EXPECT_EQ(Write(file, std::string(kMax - 63, 'b')), 0) << "one byte more than the largest block after a wrap";
  EXPECT_EQ(file->offset, kMax);
  EXPECT_EQ(file->overturn, 0);
  EXPECT_EQ(Write(file, std::string(kMax - 64, 'c')), 0);
  EXPECT_EQ(file->offset, kMax - 1);
  EXPECT_EQ(mlog_file_write(file.get(), "x", 0xffffffff), 0) << "only its length is looked at";
  file.reset();
  EXPECT_EQ(Content().size(), static_cast<size_t>(kMax));
}

TEST_F(MlogFile, TakesOverFromASoundHeaderOnly) {
  const struct {
    const char *header;
    long overturn;
    long offset;
    long uploadOffset;
  } cases[] = {
      {"[overturn=007][offset=0000000100][uploadoffset=007^0000000090]\n", 7, 100, 90},
      {"[overturn=007][offset=0000000100][uploadoffset=008^0000000090]\n", 8, 100, 90},
      {"[overturn=001][offset=0002097152][uploadoffset=001^0000000000]\n", 1, kMax, 0},
      {"[overturn=001][offset=0002097153][uploadoffset=001^0000000000]\n", 1, 63, 0},
      {"[overturn=001][offset=0000000062][uploadoffset=001^0000000000]\n", 1, 63, 0},
      {"[overturn=001][offset=-000000100][uploadoffset=001^0000000000]\n", 1, 63, 0},
      {"[overturn=1000][offset=0000000100][uploadoffset=1000^0000000090]\n", 0, 63, 0},
      {"[overturn=007][offset=0000000100][uploadoffset=xxx^0000000090]\n", 0, 63, 0},
      {"torn", 0, 63, 0},
  };
  for (const auto &each : cases) {
    const File file = OpenWith(each.header + std::string(50, 'd'));
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->overturn, each.overturn) << each.header;
    EXPECT_EQ(file->offset, each.offset) << each.header;
    EXPECT_EQ(file->uploadOffset, each.uploadOffset) << each.header;
  }
  EXPECT_THAT(output_.Text(), HasSubstr("mlog_file_header_read:sscanf_s failed!"));
  EXPECT_THAT(output_.Text(), HasSubstr("read log file failure"));
}

TEST_F(MlogFile, TheThousandthRoundStaysInsideTheHeader) {
  File file = OpenWith("[overturn=999][offset=0002097152][uploadoffset=999^0000000000]\n");
  EXPECT_EQ(Write(file, "data"), 0);
  EXPECT_EQ(file->overturn, 1000);
  file.reset();
  EXPECT_EQ(Content().substr(63), "data");
  EXPECT_EQ(Open()->overturn, 0);
}

TEST_F(MlogFile, ReportsAFailedSeek) {
  const File file = Open();
  ASSERT_EQ(Write(file, "kept"), 0);
  ::close(fileno(file->stream));
  EXPECT_EQ(Write(file, "lost"), -1);
  EXPECT_THAT(output_.Text(), HasSubstr("[func mlog_file_write:line 188] fseek failed\n"));
}

}  // namespace
