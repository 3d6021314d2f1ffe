#include "zorctl/statistic.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zor/mlog.h>
#include <zor/paths.h>

#include <cerrno>
#include <cstring>

#include "common/socket_address.h"
#include "programs/local_address.h"
#include "programs/paths.h"
#include "zorctl/exit_code.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

constexpr char kServer[] = "the logging daemon";

Failure NoReply() {
  return {kExitTimeOver, std::string(kServer) + " has not replied in time",
          "check whether mlogserver is busy or stopped, or increase --timeout"};
}

Failure Absent() {
  return {kExitNoServer, std::string(kServer) + " is absent",
          "start mlogserver, or set ZOR_ROOT to the directory that it runs in"};
}

// A socket for the daemon's reply. It is connected, so that poll reports when the daemon's queue has room; the library
// would wait without a limit.
class StatisticSocket {
 public:
  StatisticSocket() : name_("zorctl_" + std::to_string(::getpid())) {
    if (mlog_socket_open(name_.c_str(), &fd_) == 0) {
      Connect();
      return;
    }
    const std::string directory = daemon::FixedPath(ZOR_PATH_MLOG_DIR);
    if (errno == EACCES) {
      throw Failure(kExitRefused, "no permission to create a socket in " + directory,
                    "run this as a user with that permission");
    }
    throw Absent();
  }
  StatisticSocket(const StatisticSocket &) = delete;
  StatisticSocket &operator=(const StatisticSocket &) = delete;
  ~StatisticSocket() { mlog_socket_close(fd_, name_.c_str()); }

  int fd() const { return fd_; }

  void Await(short events, const Deadline &deadline) const {
    pollfd watched = {fd_, events, 0};
    while (::poll(&watched, 1, deadline.pollTimeout()) <= 0) {
      if (deadline.over()) throw NoReply();
    }
  }

 private:
  void Connect() {
    const std::string path = daemon::FixedPath(std::string(ZOR_PATH_MLOG_DIR) + ZOR_MLOG_SERVER_NAME);
    const auto address = daemon::LocalAddress(path);
    if (address && zor::Connect(fd_, *address)) return;
    mlog_socket_close(fd_, name_.c_str());
    throw Absent();
  }

  std::string name_;
  int32_t fd_ = -1;
};

ZOR_MLOG_MSG StatisticRequest(const std::string &name) {
  if (name.size() >= ZOR_MLOG_STAT_TEXT_SIZE) {
    throw Failure(kExitUsage, "the name of a statistic is too long", "the limit is 255 bytes");
  }
  ZOR_MLOG_STAT stat = {};
  name.copy(stat.name, sizeof stat.name - 1);
  ZOR_MLOG_MSG request = {ZOR_MLOG_GET_STAT, sizeof stat, {}};
  std::memcpy(request.data, &stat, sizeof stat);
  return request;
}

}  // namespace

std::string AskStatistic(const std::string &name, const Deadline &deadline) {
  const ZOR_MLOG_MSG request = StatisticRequest(name);
  const StatisticSocket socket;
  socket.Await(POLLOUT, deadline);
  if (mlog_send_msg(socket.fd(), &request, ZOR_MLOG_SERVER_NAME) != 0) throw Absent();
  socket.Await(POLLIN, deadline);
  ZOR_MLOG_MSG reply;
  ZOR_MLOG_STAT stat;
  if (mlog_recv_msg(socket.fd(), &reply, 1, nullptr, 0) != 0 || reply.length != sizeof stat) {
    throw Failure(kExitFailure, std::string(kServer) + " sent a reply that is not a statistic",
                  "use a daemon and a tool of the same version");
  }
  std::memcpy(&stat, reply.data, sizeof stat);
  std::string value(FieldText(stat.value, sizeof stat.value));
  if (!value.empty()) return value;
  throw Failure(kExitNotFound, std::string(kServer) + " has no statistic " + Escape(name),
                "a daemon must have set it since mlogserver was started");
}

}  // namespace zor::ctl
