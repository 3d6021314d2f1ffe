// A socket of the log: the daemon that a client under test talks to, or a client of the daemon under test.
#ifndef TESTS_MLOGAPI_LOG_SOCKET_H
#define TESTS_MLOGAPI_LOG_SOCKET_H

#include <gtest/gtest.h>
#include <zor/mlog.h>

#include <functional>
#include <string>
#include <thread>

namespace zor::test {

class LogSocket {
 public:
  explicit LogSocket(const char *name = ZOR_MLOG_SERVER_NAME) : name_(name) {
    EXPECT_EQ(mlog_socket_open(name, &fd_), 0);
  }
  LogSocket(const LogSocket &) = delete;
  LogSocket &operator=(const LogSocket &) = delete;
  ~LogSocket() {
    if (replying_.joinable()) replying_.join();
    mlog_socket_close(fd_, name_);
  }

  int32_t fd() const { return fd_; }
  // Sends bytes to the daemon.
  int32_t Send(const void *data, size_t length) const {
    return mlog_socket_send(fd_, data, static_cast<uint32_t>(length), ZOR_MLOG_SERVER_NAME);
  }
  // The next datagram; type 0 when none arrives.
  ZOR_MLOG_MSG Next() {
    ZOR_MLOG_MSG msg;
    return mlog_recv_msg(fd_, &msg, 5, sender_, sizeof sender_) == 0 ? msg : ZOR_MLOG_MSG{};
  }
  std::string NextLine() { return Next().data; }
  std::string sender() const { return sender_; }
  // Receives one request on its own thread and sends the function's reply to its sender.
  void ReplyOnce(const std::function<ZOR_MLOG_MSG(const ZOR_MLOG_MSG &)> &reply) {
    if (replying_.joinable()) replying_.join();
    replying_ = std::thread([this, reply] {
      const ZOR_MLOG_MSG msg = reply(Next());
      EXPECT_EQ(mlog_send_msg(fd_, &msg, sender_), 0) << sender_;
    });
  }

 private:
  const char *name_;
  int32_t fd_ = -1;
  char sender_[128] = {};
  std::thread replying_;
};

}  // namespace zor::test

#endif
