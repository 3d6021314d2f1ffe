// How body files and descriptors pass through the server.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <vector>

#include "msgsvr_fixture.h"

namespace zor::test {
namespace {

namespace fs = std::filesystem;

std::string PathIn(const Message &message) {
  return message.body.c_str();
}

struct Pipe {
  Pipe() { EXPECT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0); }
  ~Pipe() {
    for (const int end : ends) ::close(end);
  }
  // Whether this process held the last copy of the writing end.
  bool OnlyCopyLeft() {
    ::close(std::exchange(ends[1], -1));
    char byte;
    return WaitUntil([&] { return ::read(ends[0], &byte, 1) == 0; });
  }
  // Whether the descriptor is another writing end; closes it.
  bool IsWrittenBy(int descriptor) const {
    char byte;
    const bool written = ::write(descriptor, "x", 1) == 1;
    ::close(descriptor);
    return written && ::read(ends[0], &byte, 1) == 1;
  }
  int ends[2];
};

TEST_F(MsgsvrTest, RefusesFilesThatAreNoMessageFilesOfTheSender) {
  const std::string good = MakeFile();
  const std::string foreign = MakeFile("content", "msg_file_foreign");
  // Only root can give a file away; otherwise remove the file.
  if (::chown(RealPath(foreign).c_str(), 12345, 12345) != 0) fs::remove(RealPath(foreign));
  fs::create_directories(RealPath("/var/run/msg/sub"));
  fs::create_symlink(RealPath(good), RealPath("/var/run/msg/link"));
  ASSERT_EQ(::mkfifo(RealPath("/var/run/msg/fifo").c_str(), 0666), 0);
  std::ofstream(RealPath("/var/run/msg/giant")).put('g');
  fs::resize_file(RealPath("/var/run/msg/giant"), 1u << 30);  // a hole
  std::error_code ignored;
  fs::create_hard_link(RealPath(foreign), RealPath("/var/run/msg/hard"), ignored);
  for (const char *path : {"/var/run/msg/sub/file", "/var/run/elsewhere"}) std::ofstream(RealPath(path)) << "content";
  std::string endless(ZOR_MSG_FILE_PATH_SIZE, '/');
  endless.replace(0, good.size(), good);
  for (const std::string &path :
       {foreign, endless, std::string("/var/run/msg/missing"), std::string("/var/run/msg/link"),
        std::string("/var/run/msg/fifo"), std::string("/var/run/msg/giant"), std::string("/var/run/msg/hard"),
        std::string("/var/run/msg/sub"), std::string("/var/run/msg/sub/file"), std::string("/var/run/msg/../elsewhere"),
        std::string("/var/run/elsewhere"), std::string("/var/run/msg/."), good.substr(1), std::string()}) {
    for (const char *destination : {"receiver", "nobody"}) {
      EXPECT_TRUE(IsNotice(sender_.Ask(MakeFileMessage(kType, destination, path)), kType)) << path;
    }
  }
  const Message unterminated = MakeMessage(kType | ZOR_MSG_BODY_IN_FILE, "", "receiver", 0, good);
  EXPECT_TRUE(IsNotice(sender_.Ask(unterminated), kType));
  EXPECT_TRUE(receiver_.NothingArrived());
  sender_.Send(MakeFileMessage(kType, "receiver", good));
  EXPECT_EQ(PathIn(receiver_.Next()), good);
  EXPECT_TRUE(Exists("/var/run/elsewhere") && Exists("/var/run/msg/link"));
}

TEST_F(MsgsvrTest, RemovesTheFileOfAMessageThatGoesNowhere) {
  for (const uint32_t type : {kType, 0x2DA05u, uint32_t{ZOR_MSG_RESTFUL_REQUEST}}) {
    const std::string path = MakeFile();
    sender_.Send(MakeFileMessage(type, type == kType ? "nobody" : "", path));
    EXPECT_TRUE(WaitUntil([&] { return !Exists(path); })) << type;
  }
}

TEST_F(MsgsvrTest, GivesEverySubscriberAFileOfItsOwn) {
  const WireClient third = Client("third");
  const WireClient *subscribers[] = {&sender_, &receiver_, &third};
  for (const WireClient *subscriber : subscribers) Tell(*subscriber, MakeRequest(ZOR_MSG_SUBSCRIBE_EVENT, "", 0x2DA05));
  const WireClient publisher = Client("publisher");
  publisher.Send(MakeFileMessage(0x2DA05, "", MakeFile()));
  for (const WireClient *subscriber : subscribers) {
    const Message event = subscriber->Next();
    EXPECT_EQ(event.header.type, 0x2DA05 | ZOR_MSG_BODY_IN_FILE);
    EXPECT_EQ(NameOf(event.header.source), "publisher");
    EXPECT_EQ(event.body.size(), ZOR_MSG_FILE_PATH_SIZE);
    std::string content;
    std::ifstream(RealPath(PathIn(event))) >> content;
    EXPECT_EQ(content, "content") << PathIn(event);
    fs::remove(RealPath(PathIn(event)));
  }
}

TEST_F(MsgsvrTest, PassesADescriptorToTheReceiverOfTheLatestMessageWhereverTheReceiveBufferEnds) {
  const Pipe pipe;
  // Covers the likely sizes of the server's buffer, so that it once ends between the two bytes.
  for (const size_t size : {64u, 4096u, 16384u, 32768u, 65536u}) {
    for (size_t total = size - 2; total <= size; ++total) {
      const auto message = [](size_t length) {
        return MakeMessage(kType, "", "receiver", 0, std::string(length - 40, 'b'));
      };
      std::string stream;
      while (total - stream.size() > 2048) stream += message(1024).Bytes();
      stream += message(total - stream.size()).Bytes();
      if (server_) server_->Signal(SIGSTOP);  // so that it reads everything at once
      sender_.Send(stream);
      sender_.SendDescriptor(pipe.ends[1]);
      sender_.Send(MakeMessage(kType, "", "receiver", 1));
      if (server_) server_->Signal(SIGCONT);
      EXPECT_EQ(receiver_.Receive(stream.size()).size(), stream.size());
      EXPECT_TRUE(pipe.IsWrittenBy(receiver_.ReceiveDescriptor())) << total;
      EXPECT_EQ(receiver_.Next().header.data, 1u) << "what follows is read too";
    }
  }
}

TEST_F(MsgsvrTest, ClosesDescriptorsWithoutAReceiverAndEndsClientsThatSendThemOutOfPlace) {
  const std::string header = MakeMessage(kType, "", "nobody", 0, "body").Bytes();
  const struct {
    std::string bytes;
    size_t descriptors;
    bool ends;
  } cases[] = {{std::string(2, '\0'), 1, false}, {header, 1, true},
               {header.substr(0, 20), 1, true},  {"ab", 1, true},
               {std::string(3, '\0'), 1, true},  {std::string(2, '\0'), 2, true},
               {std::string(2, '\0'), 5, true}};
  for (const auto &[bytes, count, ends] : cases) {
    const WireClient client = Client("client");
    EXPECT_TRUE(IsNotice(client.Ask(MakeMessage(kType, "", "nobody")), kType));
    Pipe pipe;
    client.SendDescriptors(bytes, std::vector<int>(count, pipe.ends[1]));
    EXPECT_TRUE(pipe.OnlyCopyLeft()) << bytes.size();
    client.Send(MakeCount("client"));
    while (client.ReceiveMessage()) {
      if (!ends) break;
    }
    EXPECT_EQ(client.NothingArrived(), !ends) << bytes.size();
  }
}

}  // namespace
}  // namespace zor::test
