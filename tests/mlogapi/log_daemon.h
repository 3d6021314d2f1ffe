// The other end of the logger client, as far as a test needs it.
#ifndef TESTS_MLOGAPI_LOG_DAEMON_H
#define TESTS_MLOGAPI_LOG_DAEMON_H

#include <gtest/gtest.h>
#include <zor/mlog.h>

#include <functional>
#include <string>
#include <thread>

namespace zor::test {

class LogDaemon {
 public:
  LogDaemon() { EXPECT_EQ(mlog_socket_open(ZOR_MLOG_SERVER_NAME, &fd_), 0); }
  LogDaemon(const LogDaemon &) = delete;
  LogDaemon &operator=(const LogDaemon &) = delete;
  ~LogDaemon() {
    if (answering_.joinable()) answering_.join();
    mlog_socket_close(fd_, ZOR_MLOG_SERVER_NAME);
  }

  int32_t fd() const { return fd_; }
  // The next datagram; type 0 when none comes.
  ZOR_MLOG_MSG Next() {
    ZOR_MLOG_MSG msg;
    return mlog_recv_msg(fd_, &msg, 5, sender_, sizeof sender_) == 0 ? msg : ZOR_MLOG_MSG{};
  }
  std::string NextLine() { return Next().data; }
  std::string sender() const { return sender_; }
  // Takes one request on a thread of its own and sends what the function makes of it to where it came from.
  void AnswerOnce(const std::function<ZOR_MLOG_MSG(const ZOR_MLOG_MSG &)> &answer) {
    answering_ = std::thread([this, answer] {
      const ZOR_MLOG_MSG msg = answer(Next());
      EXPECT_EQ(mlog_send_msg(fd_, &msg, sender_), 0) << sender_;
    });
  }

 private:
  int32_t fd_ = -1;
  char sender_[128] = {};
  std::thread answering_;
};

}  // namespace zor::test

#endif
