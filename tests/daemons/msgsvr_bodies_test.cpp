// Who can do what with body files: that of a user's message is read and deleted by its receiver's user, and changed by
// nobody once the server has accepted it.
#include <fcntl.h>

#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>

#include "msgsvr/sent_file.h"
#include "msgsvr_fixture.h"
#include "programs/limits.h"

namespace zor::test {
namespace {

namespace fs = std::filesystem;

constexpr uid_t kHonest = 20001, kReader = 20002, kAttacker = 20003;
constexpr uint32_t kEvent = 0x2DA05;

struct stat StatusOf(const std::string &path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

// What is done as another user.
template <typename Do>
auto As(uid_t user, Do what) {
  EXPECT_EQ(::seteuid(user), 0);
  auto result = what();
  EXPECT_EQ(::seteuid(0), 0);
  return result;
}

class BodiesTest : public OwnMsgsvrTest {
 protected:
  void SetUp() override {
    OwnMsgsvrTest::SetUp();
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    fs::permissions(root_.Path(""), fs::perms{0711});
    if (!IsSkipped()) fs::permissions(folder_, fs::perms{0777});
  }
  void TearDown() override {
    OwnMsgsvrTest::TearDown();
    if (mounted_) ::umount2(folder_.c_str(), MNT_DETACH);
  }
  void StartForAll() {
    Start();
    fs::permissions(RealPath(ZOR_PATH_MSGSVR), fs::perms{0666});
  }
  WireClient ClientOf(uid_t user, const std::string &name) {
    return As(user, [&] { return Client(name); });
  }
  std::string FileOf(uid_t user, const std::string &content) {
    const std::string name = "msg_file_" + std::to_string(++files_);
    return As(user, [&] { return MakeFile(content, name); });
  }
  // The real path of the body file that the client gets next.
  std::string NextFile(const WireClient &client) { return RealPath(client.Next().body.c_str()); }

  const fs::path folder_ = root_.Path(ZOR_PATH_MSG_FILE_DIR);
  int files_ = 0;
  bool mounted_ = false;
};

void ExpectOnlyFor(uid_t user, const std::string &path) {
  const struct stat status = StatusOf(path);
  EXPECT_EQ(status.st_uid, user);
  EXPECT_EQ(status.st_mode & 077u, 0u);
}

// Whether the user can put another file in this one's place, remove or read it.
void ExpectOutOfReachOf(uid_t user, const std::string &path) {
  const std::string forged = fs::path(path).parent_path() / "forged";
  As(user, [&] {
    std::ofstream(forged) << "forged";
    EXPECT_NE(::rename(forged.c_str(), path.c_str()), 0) << user;
    EXPECT_NE(::unlink(path.c_str()), 0) << user;
    EXPECT_LT(::open(path.c_str(), O_RDONLY), 0) << user;
    EXPECT_LT(::open(path.c_str(), O_WRONLY), 0) << user;
    EXPECT_LT(::open(fs::path(path).parent_path().c_str(), O_RDONLY | O_DIRECTORY), 0) << "names stay unknown";
    return ::unlink(forged.c_str());
  });
}

TEST_F(BodiesTest, NobodyChangesAnAcceptedBodyWhateverHeHasKept) {
  StartForAll();
  const WireClient honest = ClientOf(kHonest, "honest"), reader = ClientOf(kReader, "reader");
  const std::string path = FileOf(kHonest, "content");
  const std::string kept = folder_ / "kept";
  const int writable = ::open(RealPath(path).c_str(), O_RDWR);
  void *const mapped = ::mmap(nullptr, 7, PROT_READ | PROT_WRITE, MAP_SHARED, writable, 0);
  ASSERT_NE(mapped, MAP_FAILED);
  ASSERT_EQ(As(kHonest, [&] { return ::link(RealPath(path).c_str(), kept.c_str()); }), 0);
  honest.Send(MakeFileMessage(kType, "reader", path));
  const std::string passed = NextFile(reader);
  ExpectOnlyFor(kReader, passed);
  ExpectOutOfReachOf(kAttacker, passed);
  ExpectOutOfReachOf(kHonest, passed);
  std::memcpy(mapped, "FORGED!", 7);
  EXPECT_EQ(::pwrite(writable, "FORGED!", 7, 0), 7);
  EXPECT_EQ(As(kHonest, [&] { return ::truncate(kept.c_str(), 3); }), 0);
  EXPECT_EQ(As(kReader, [&] { return ContentOf(passed); }), "content");
  EXPECT_EQ(As(kReader, [&] { return ::unlink(passed.c_str()); }), 0) << "its reader removes it";
  EXPECT_TRUE(WaitUntil([&] { return !Exists(path); }));
  ::munmap(mapped, 7);
  ::close(writable);
}

TEST_F(BodiesTest, AReceiverOfTheSendersUserGetsTheFileItselfAndNobodyElseReachesIt) {
  StartForAll();
  const WireClient honest = ClientOf(kHonest, "honest"), reader = ClientOf(kHonest, "reader");
  const std::string path = FileOf(kHonest, "content");
  const ino_t file = StatusOf(RealPath(path)).st_ino;
  honest.Send(MakeFileMessage(kType, "reader", path));
  const std::string passed = NextFile(reader);
  EXPECT_EQ(StatusOf(passed).st_ino, file);
  ExpectOnlyFor(kHonest, passed);
  ExpectOutOfReachOf(kAttacker, passed);
  // One that others may write to would not stay what it was.
  const std::string open = FileOf(kHonest, "content");
  fs::permissions(RealPath(open), fs::perms{0666});
  honest.Send(MakeFileMessage(kType, "reader", open));
  const std::string copy = NextFile(reader);
  EXPECT_NE(copy, RealPath(open));
  ExpectOnlyFor(kHonest, copy);
}

TEST_F(BodiesTest, SubscribersOfAllUsersGetFilesOfTheirOwn) {
  StartForAll();
  const std::pair<uid_t, WireClient> subscribers[] = {{kHonest, ClientOf(kHonest, "one")},
                                                      {kReader, ClientOf(kReader, "two")},
                                                      {kReader, ClientOf(kReader, "three")},
                                                      {0, Client("four")}};
  for (const auto &[user, client] : subscribers) Tell(client, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "", kEvent));
  const WireClient honest = ClientOf(kHonest, "honest");
  for (const char *content : {"first", "second"}) {
    honest.Send(MakeFileMessage(kEvent, "", FileOf(kHonest, content)));
    for (const auto &[user, client] : subscribers) {
      const std::string passed = NextFile(client);
      ExpectOnlyFor(user, passed);
      EXPECT_EQ(ContentOf(passed), content);
      EXPECT_EQ(As(user, [&] { return ::unlink(passed.c_str()); }), 0);
    }
  }
  EXPECT_TRUE(WaitUntil([&] { return fs::is_empty(folder_); })) << "what only copies were passed on of is removed";
}

TEST_F(BodiesTest, AFullFileSystemCostsTheMessageAndNothingElse) {
  if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      ::mount("tmpfs", folder_.c_str(), "tmpfs", 0, "size=256k,mode=0777") != 0) {
    GTEST_SKIP() << "file systems cannot be mounted here: " << std::strerror(errno);
  }
  mounted_ = true;
  StartForAll();
  const WireClient honest = ClientOf(kHonest, "honest"), reader = ClientOf(kReader, "reader");
  Tell(reader, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "", kEvent));
  const std::string large(160 << 10, 'l');  // fits once
  const std::string path = FileOf(kHonest, large);
  EXPECT_TRUE(IsNotice(honest.Ask(MakeFileMessage(kType, "reader", path)), kType));
  Tell(honest, MakeFileMessage(kEvent, "", FileOf(kHonest, large)));
  EXPECT_TRUE(WaitUntil([&] { return fs::is_empty(folder_); })) << "no part of them is left";
  EXPECT_TRUE(LogHolds("its body file cannot be passed on: No space left on device"));
  honest.Send(MakeFileMessage(kType, "reader", FileOf(kHonest, "small")));
  EXPECT_TRUE(ContentOf(NextFile(reader)) == "small") << "nothing else arrived, nor a part of it";
}

// The check is made on what is used, whatever has the file's name by then.
TEST(SentFileTest, UsesNothingThatTookTheFilesPlaceAfterTheFirstLook) {
  const TempRoot root;
  const std::string path = root.Path("/file"), other = root.Path("/other"), copy = root.Path("/copy");
  const struct {
    const char *what;
    std::function<void()> replace;
  } cases[] = {
      {"a link", [&] { fs::create_symlink(other, path); }},
      {"a fifo, which blocks whoever opens it", [&] { ASSERT_EQ(::mkfifo(path.c_str(), 0666), 0); }},
      {"a directory", [&] { fs::create_directory(path); }},
      {"a file that is too long",
       [&] {
         std::ofstream{path};
         fs::resize_file(path, limits::msgsvr::kBodyFileBytes + 1);
       }},
      {"nothing", [] {}},
      {"another user's file",
       [&] {
         std::ofstream(path) << "honest";
         if (::chown(path.c_str(), kHonest, kHonest) != 0) fs::remove(path);  // only root can
       }},
  };
  for (const auto &[what, replace] : cases) {
    SCOPED_TRACE(what);
    std::ofstream(path) << "content";
    std::ofstream(other) << "other";
    fs::permissions(path, fs::perms{0644});
    msgsvr::SentFile file;
    ASSERT_EQ(file.Look({root.Path("/"), "file"}, ::geteuid()), nullptr);
    fs::remove(path);
    std::ofstream(root.Path("/inode")) << "keeps the file's number from being used again";
    replace();
    const UniqueFd to(::open(copy.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
    EXPECT_FALSE(file.Read(16));
    EXPECT_FALSE(file.CopyTo(to.get()));
    EXPECT_FALSE(file.MakePrivate());
    EXPECT_EQ(ContentOf(copy), "");
    EXPECT_NE(file.Look({root.Path("/"), "file"}, ::geteuid()), nullptr);
    fs::remove_all(path);
  }
  std::ofstream(path) << "content";
  msgsvr::SentFile file;
  ASSERT_EQ(file.Look({root.Path("/"), "file"}, ::geteuid()), nullptr);
  ASSERT_TRUE(file.Read(3));
  fs::rename(other, path);
  const UniqueFd to(::open(copy.c_str(), O_WRONLY | O_TRUNC));
  EXPECT_TRUE(file.CopyTo(to.get()));
  EXPECT_EQ(ContentOf(copy), "content") << "what was looked at is what is passed on";
  file.Remove();
  EXPECT_EQ(ContentOf(path), "other") << "another file is left alone";
}

}  // namespace
}  // namespace zor::test
