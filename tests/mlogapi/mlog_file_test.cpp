#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zor/mlog.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "support/capture.h"
#include "support/temp_root.h"

namespace {

constexpr long kMax = 0x200000;

class MlogFile : public testing::Test {
 protected:
  void Open() { file_.reset(mlog_file_constructor(path_.c_str())); }
  void OpenWith(const std::string &content) {
    std::ofstream(path_, std::ios::binary) << content;
    Open();
  }
  int32_t Write(const std::string &data) {
    return mlog_file_write(file_.get(), data.data(), static_cast<uint32_t>(data.size()));
  }
  // The file's content on disk once it is closed.
  std::string Content() {
    file_.reset();
    return zor::test::ContentOf(path_);
  }

  zor::test::TempRoot root_;
  std::string path_ = root_.Path("/var/log");
  zor::test::Capture output_;
  std::unique_ptr<ZOR_MLOG_FILE, decltype(&mlog_file_destructor)> file_{nullptr, mlog_file_destructor};
};

TEST_F(MlogFile, EachWriteAppendsAndBringsTheHeaderUpToDate) {
  Open();
  EXPECT_EQ(Content(), "[overturn=000][offset=0000000063][uploadoffset=000^0000000000]\n" + std::string(1, '\0'));
  Open();
  EXPECT_EQ(Write("one\n"), 0);
  EXPECT_EQ(Content(), "[overturn=000][offset=0000000067][uploadoffset=000^0000000000]\none\n");
  Open();
  EXPECT_EQ(Write("two\n"), 0);
  EXPECT_THAT(Content(), testing::EndsWith("one\ntwo\n"));
}

TEST_F(MlogFile, FillsUpToItsLastByteThenWrapsToTheFirstDataByteAndDropsWhatNeverFits) {
  Open();
  ASSERT_EQ(Write(std::string(kMax - 63, 'a')), 0);
  EXPECT_EQ(Write(std::string(kMax - 63, 'b')), 0) << "one byte more than the largest block after a wrap";
  EXPECT_EQ(mlog_file_write(file_.get(), "x", 0xffffffff), 0) << "only its length is looked at";
  EXPECT_EQ(file_->offset, kMax);
  EXPECT_EQ(Write(std::string(100, 'c')), 0);
  const std::string content = Content();
  EXPECT_EQ(content.substr(0, 165),
            "[overturn=001][offset=0000000163][uploadoffset=001^0000000000]\n" + std::string(100, 'c') + "aa");
  EXPECT_EQ(content.size(), size_t{kMax}) << "the tail of the round before stays";
}

TEST_F(MlogFile, TakesOverFromASoundHeaderOnly) {
  const struct {
    const char *header;
    long overturn, offset, uploadOffset;
  } cases[] = {
      {"[overturn=007][offset=0000000100][uploadoffset=008^0000000090]\n", 8, 100, 90},
      {"[overturn=001][offset=0002097152][uploadoffset=001^0000000000]\n", 1, kMax, 0},
      {"[overturn=001][offset=0002097153][uploadoffset=001^0000000000]\n", 1, 63, 0},
      {"[overturn=001][offset=0000000062][uploadoffset=001^0000000000]\n", 1, 63, 0},
      {"[overturn=001][offset=-000000100][uploadoffset=001^0000000000]\n", 1, 63, 0},
      {"[overturn=007][offset=0000000100][uploadoffset=xxx^0000000090]\n", 0, 63, 0},
      {"torn", 0, 63, 0},
  };
  for (const auto &each : cases) {
    OpenWith(each.header + std::string(50, 'd'));
    EXPECT_EQ(file_->overturn, each.overturn) << each.header;
    EXPECT_EQ(file_->offset, each.offset) << each.header;
    EXPECT_EQ(file_->uploadOffset, each.uploadOffset) << each.header;
  }
  OpenWith("[overturn=999][offset=0002097152][uploadoffset=999^0000000000]\n");
  EXPECT_EQ(Write("data"), 0);
  EXPECT_EQ(Content().substr(63), "data") << "the thousandth round stays inside the header";
  Open();
  EXPECT_EQ(file_->overturn, 0) << "and starts anew at the next opening";
}

}  // namespace
