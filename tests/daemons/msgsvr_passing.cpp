// Body files and descriptors on their way through the server.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "msgsvr_fixture.h"

namespace zor::test {
namespace {

namespace fs = std::filesystem;

std::string PathIn(const Message &message) {
  return message.body.c_str();
}

struct Pipe {
  Pipe() { EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0); }
  ~Pipe() {
    for (const int end : ends) ::close(end);
  }
  // Whether no other copy of the writing end is open any more once this process has closed its own.
  bool OnlyCopyLeft() {
    ::close(std::exchange(ends[1], -1));
    return WaitUntil([this] {
      char byte;
      ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
      return ::read(ends[0], &byte, 1) == 0;
    });
  }
  int ends[2];
};

TEST_F(MsgsvrTest, RefusesFilesThatAreNoMessageFilesOfTheSender) {
  Start();
  const WireClient sender = Client("sender");
  const WireClient receiver = Client("receiver");
  const std::string good = MakeMessageFile("msg_file_good", "content");
  const std::string foreign = MakeMessageFile("msg_file_foreign", "content");
  // Only root can give a file away; without it the file is none at all.
  if (::chown(RealPath(foreign).c_str(), 12345, 12345) != 0) fs::remove(RealPath(foreign));
  const std::string linked = "/var/run/msg/msg_file_link";
  fs::create_symlink(RealPath(good), RealPath(linked));
  fs::create_directories(RealPath("/var/run/msg/sub"));
  std::ofstream(RealPath("/var/run/msg/sub/file")) << "content";
  std::ofstream(RealPath("/var/run/elsewhere")) << "content";
  std::string endless(ZOR_MSG_FILE_PATH_SIZE, '/');
  endless.replace(0, good.size(), good);
  for (const std::string &path :
       {std::string("/var/run/msg/missing"), foreign, linked, std::string("/var/run/msg/sub"),
        std::string("/var/run/msg/sub/file"), std::string("/var/run/msg/../elsewhere"),
        std::string("/var/run/elsewhere"), std::string("/var/run/msg/"), std::string("/var/run/msg/."),
        std::string("var/run/msg/msg_file_good"), std::string(), endless}) {
    EXPECT_TRUE(IsNotice(sender.Ask(MakeFileMessage(kType, "receiver", path)), kType)) << path;
    EXPECT_TRUE(IsNotice(sender.Ask(MakeFileMessage(kType, "nobody", path)), kType)) << path;
  }
  Message unterminated = MakeMessage(kType | ZOR_MSG_BODY_IN_FILE, "", "receiver", 0, good);
  EXPECT_TRUE(IsNotice(sender.Ask(unterminated), kType));
  EXPECT_TRUE(receiver.NothingArrived());
  sender.Send(MakeFileMessage(kType, "receiver", good));
  EXPECT_EQ(PathIn(receiver.Next()), good);
  EXPECT_TRUE(fs::exists(RealPath("/var/run/elsewhere")));
  EXPECT_TRUE(fs::is_symlink(RealPath(linked)));
}

TEST_F(MsgsvrTest, RemovesTheFileOfAMessageThatGoesNowhere) {
  Start();
  const WireClient sender = Client("sender");
  for (const uint32_t type : {kType, 0x2DA05u, uint32_t{ZOR_MSG_RESTFUL_REQUEST}}) {
    const std::string path = MakeMessageFile("msg_file_1", "content");
    sender.Send(MakeFileMessage(type, type == kType ? "nobody" : "", path));
    EXPECT_TRUE(WaitUntil([&] { return !fs::exists(RealPath(path)); })) << type;
  }
}

TEST_F(MsgsvrTest, GivesEverySubscriberAFileOfItsOwn) {
  Start();
  const WireClient publisher = Client("publisher");
  const WireClient subscribers[] = {Client("one"), Client("two"), Client("three")};
  for (const WireClient &subscriber : subscribers) {
    subscriber.Send(MakeMessage(ZOR_MSG_SUBSCRIBE_EVENT, "", "", 0x2DA05));
    Settle(subscriber);
  }
  publisher.Send(MakeFileMessage(0x2DA05, "", MakeMessageFile("msg_file_1", "content")));
  for (const WireClient &subscriber : subscribers) {
    const Message event = subscriber.Next();
    EXPECT_EQ(event.header.type, 0x2DA05 | ZOR_MSG_BODY_IN_FILE);
    EXPECT_EQ(NameOf(event.header.source), "publisher");
    EXPECT_EQ(event.body.size(), ZOR_MSG_FILE_PATH_SIZE);
    std::string content;
    std::ifstream(RealPath(PathIn(event))) >> content;
    EXPECT_EQ(content, "content") << PathIn(event);
    fs::remove(RealPath(PathIn(event)));
  }
  EXPECT_TRUE(fs::is_empty(RealPath("/var/run/msg")));
}

TEST_F(MsgsvrTest, ReadsPatternListsAndRestfulPathsFromFiles) {
  Start();
  const WireClient client = Client("client");
  const WireClient provider = Client("provider");
  std::string list;
  for (int i = 0; i < 100; ++i) list += "/some/long/prefix/number/" + std::to_string(i) + "|";
  provider.Send(MakeFileMessage(ZOR_MSG_RESTFUL_REGISTER, "", MakeMessageFile("msg_file_1", list + "/last/one")));
  Settle(provider);
  EXPECT_FALSE(fs::exists(RealPath("/var/run/msg/msg_file_1")));
  std::string body(5000, '\0');
  body.replace(8, 5, "/last");
  body.replace(72, 3, "one");
  client.Send(MakeFileMessage(ZOR_MSG_RESTFUL_REQUEST, "", MakeMessageFile("msg_file_2", body)));
  EXPECT_EQ(PathIn(provider.Next()), "/var/run/msg/msg_file_2");
}

TEST_F(MsgsvrTest, PassesADescriptorToTheReceiverOfTheLatestMessage) {
  Start();
  const WireClient sender = Client("sender");
  const WireClient receiver = Client("receiver");
  const Pipe pipe;
  sender.Send(MakeMessage(kType, "", "receiver"));  // the kernel may glue the frame behind this
  sender.SendDescriptor(pipe.ends[1]);
  EXPECT_EQ(receiver.Next().header.type, kType);
  const int descriptor = receiver.ReceiveDescriptor();
  ASSERT_GE(descriptor, 0);
  EXPECT_EQ(::write(descriptor, "x", 1), 1);
  ::close(descriptor);
  char byte = 0;
  EXPECT_EQ(::read(pipe.ends[0], &byte, 1), 1);
  EXPECT_EQ(byte, 'x');
  sender.Send(MakeMessage(kType, "", "receiver", 2));
  EXPECT_EQ(receiver.Next().header.data, 2u);
}

TEST_F(MsgsvrTest, FindsADescriptorFrameWhereverTheReceiveBufferEnds) {
  Start();
  const WireClient sender = Client("sender");
  const WireClient receiver = Client("receiver");
  const Pipe pipe;
  // Around the sizes that a server's buffer is likely to have, so that it ends inside the two bytes once.
  for (const size_t size : {4096u, 16384u, 32768u, 65536u}) {
    for (size_t total = size - 2; total <= size; ++total) {
      std::string stream;
      while (total - stream.size() > 2048)
        stream += MakeMessage(kType, "", "receiver", 0, std::string(984, 'b')).Bytes();
      stream += MakeMessage(kType, "", "receiver", 0, std::string(total - stream.size() - 40, 'b')).Bytes();
      if (server_) server_->Signal(SIGSTOP);  // so that it finds all of it at once
      sender.Send(stream);
      sender.SendDescriptor(pipe.ends[1]);
      sender.Send(MakeMessage(kType, "", "receiver", 1));
      if (server_) server_->Signal(SIGCONT);
      EXPECT_EQ(receiver.Receive(stream.size()).size(), stream.size());
      const int descriptor = receiver.ReceiveDescriptor();
      EXPECT_GE(descriptor, 0) << total;
      ::close(descriptor);
      EXPECT_EQ(receiver.Next().header.data, 1u) << "what follows is read too";
    }
  }
}

TEST_F(MsgsvrTest, ClosesADescriptorThatNobodyTakes) {
  Start();
  const WireClient sender = Client("sender");
  Pipe pipe;
  sender.Send(MakeMessage(kType, "", "nobody"));
  EXPECT_TRUE(IsNotice(sender.Next(), kType));
  sender.SendDescriptor(pipe.ends[1]);
  EXPECT_TRUE(pipe.OnlyCopyLeft());
  Settle(sender);
}

TEST_F(MsgsvrTest, EndsAClientThatSendsDescriptorsOutOfPlace) {
  Start();
  const std::string header = MakeMessage(kType, "", "bad", 0, "body").Bytes();
  const struct {
    std::string bytes;
    size_t descriptors;
  } cases[] = {{header, 1},
               {header.substr(0, 20), 1},
               {"ab", 1},
               {std::string(3, '\0'), 1},
               {std::string(2, '\0'), 2},
               {std::string(2, '\0'), 5}};
  for (const auto &[bytes, count] : cases) {
    const WireClient client = Client("bad");
    Pipe pipe;
    const std::vector<int> descriptors(count, pipe.ends[1]);
    client.SendDescriptors(bytes, descriptors.data(), count);
    EXPECT_TRUE(WaitUntil([&] { return client.ClosedByOther() || client.ReceiveMessage(); })) << bytes.size();
    EXPECT_TRUE(pipe.OnlyCopyLeft()) << bytes.size();
  }
}

}  // namespace
}  // namespace zor::test
