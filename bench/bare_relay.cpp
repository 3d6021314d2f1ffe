#include "bare_relay.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace zor::bench {
namespace {

constexpr std::size_t kHead = 40;
constexpr std::size_t kLengthAt = 36;
constexpr std::size_t kPathSize = 260;
constexpr std::size_t kFrameMax = 1 << 20;

std::uint32_t LengthOf(const char *head) {
  std::uint32_t length;
  std::memcpy(&length, head + kLengthAt, sizeof length);
  return length;
}

void SetLength(char *head, std::size_t length) {
  const auto word = static_cast<std::uint32_t>(length);
  std::memcpy(head + kLengthAt, &word, sizeof word);
}

bool ReadExactly(int fd, char *to, std::size_t length) {
  while (length > 0) {
    const ssize_t count = ::read(fd, to, length);
    if (count <= 0) return false;
    to += count;
    length -= static_cast<std::size_t>(count);
  }
  return true;
}

bool WriteExactly(int fd, const char *from, std::size_t length) {
  while (length > 0) {
    const ssize_t count = ::write(fd, from, length);
    if (count <= 0) return false;
    from += count;
    length -= static_cast<std::size_t>(count);
  }
  return true;
}

bool ReadFrame(int fd, char *frame) {
  return ReadExactly(fd, frame, kHead) && ReadExactly(fd, frame + kHead, LengthOf(frame));
}

bool WriteFrame(int fd, const char *frame) {
  return WriteExactly(fd, frame, kHead + LengthOf(frame));
}

// Puts a body into a new file and its path into the frame.
void BodyToFile(std::vector<char> &frame, const std::string &directory, const char *body, std::size_t length) {
  static unsigned number = 0;
  const std::string path = directory + "/bare_" + std::to_string(::getpid()) + "_" + std::to_string(++number);
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  Require(fd >= 0 && WriteExactly(fd, body, length), "write a body file");
  ::close(fd);
  std::snprintf(frame.data() + kHead, kPathSize, "%s", path.c_str());
  SetLength(frame.data(), kPathSize);
}

void BodyFromFile(const char *frame, std::vector<char> &body) {
  const int fd = ::open(frame + kHead, O_RDONLY | O_CLOEXEC);
  struct stat status = {};
  Require(fd >= 0 && ::fstat(fd, &status) == 0, "open a body file");
  body.resize(static_cast<std::size_t>(status.st_size));
  Require(ReadExactly(fd, body.data(), body.size()), "read a body file");
  ::close(fd);
  ::unlink(frame + kHead);
}

struct Pair {
  int ends[2];
  Pair() { Require(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0, "socketpair"); }
};

void Relay(int from, int to, bool bothWays) {
  std::vector<char> frame(kFrameMax);
  while (ReadFrame(from, frame.data()) && WriteFrame(to, frame.data())) {
    if (bothWays && (!ReadFrame(to, frame.data()) || !WriteFrame(from, frame.data()))) return;
  }
}

}  // namespace

BareRelay::BareRelay(std::size_t bodyLength, std::size_t inlineMax, const std::string &directory)
    : frame_(kFrameMax), bodyLength_(bodyLength), inlineMax_(inlineMax), directory_(directory) {
  const Pair front;
  const Pair back;
  client_ = front.ends[0];
  const bool byFile = bodyLength > inlineMax;
  relay_ = std::make_unique<Process>([&] { Relay(front.ends[1], back.ends[0], true); });
  server_ = std::make_unique<Process>([&] {
    std::vector<char> frame(kFrameMax);
    std::vector<char> body;
    while (ReadFrame(back.ends[1], frame.data())) {
      if (byFile) {
        BodyFromFile(frame.data(), body);
        BodyToFile(frame, directory, body.data(), body.size());
      }
      if (!WriteFrame(back.ends[1], frame.data())) return;
    }
  });
}

void BareRelay::Call() {
  static std::vector<char> body;
  SetLength(frame_.data(), bodyLength_);
  if (bodyLength_ > inlineMax_) {
    body.resize(bodyLength_);
    BodyToFile(frame_, directory_, body.data(), bodyLength_);
  }
  Require(WriteFrame(client_, frame_.data()) && ReadFrame(client_, frame_.data()), "a call through the bare relay");
  if (bodyLength_ > inlineMax_) BodyFromFile(frame_.data(), body);
}

BareStream::BareStream(std::size_t bodyLength) : frame_(kFrameMax) {
  const Pair front;
  const Pair back;
  const Pair done;
  client_ = front.ends[0];
  done_ = done.ends[0];
  SetLength(frame_.data(), bodyLength);
  relay_ = std::make_unique<Process>([&] { Relay(front.ends[1], back.ends[0], false); });
  server_ = std::make_unique<Process>([&] {
    std::vector<char> frame(kFrameMax);
    while (ReadFrame(back.ends[1], frame.data())) {
      if (frame[0] != 0 && ::write(done.ends[1], "", 1) != 1) return;
    }
  });
}

void BareStream::Send(std::size_t count) {
  for (std::size_t i = 1; i <= count; ++i) {
    frame_[0] = i == count ? 1 : 0;
    Require(WriteFrame(client_, frame_.data()), "send through the bare relay");
  }
  char byte;
  Require(::read(done_, &byte, 1) == 1, "the bare server says that all came");
}

}  // namespace zor::bench
