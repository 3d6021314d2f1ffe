#include "hostile/assault.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zor/mlog_wire.h>
#include <zor/paths.h>

#include <array>
#include <cerrno>
#include <functional>
#include <vector>

#include "hostile/bus_frames.h"
#include "hostile/notify_frames.h"
#include "hostile/peer.h"

namespace zor::hostile {
namespace {

template <typename Frames>
class StreamAssault : public Assault {
 public:
  StreamAssault(Dice &dice, std::string path, bool asMember, Frames frames)
      : dice_(dice), path_(std::move(path)), asMember_(asMember), frames_(std::move(frames)) {
    descriptors_[0] = UniqueFd(::memfd_create("hostile", MFD_CLOEXEC));
    descriptors_[1] = UniqueFd(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) Fail("no sockets");
    descriptors_[2] = UniqueFd(ends[0]);
    descriptors_[3] = UniqueFd(ends[1]);
  }

  uint32_t Strike() override {
    Connection &connection = connections_[dice_.Below(connections_.size())];
    uint32_t count = 0;
    if (!connection.peer.open()) count += Open(connection);
    std::string bytes = std::exchange(connection.rest, {});
    for (uint32_t frames = asMember_ ? 1 + dice_.Below(8) : 1; frames > 0; --frames, ++count) bytes += frames_.Next();
    if (dice_.OneIn(10)) {  // the rest comes later, or never
      const std::size_t cut = dice_.Below(bytes.size() + 1);
      connection.rest = bytes.substr(cut);
      bytes.resize(cut);
    }
    connection.peer.Send(bytes);
    if (dice_.OneIn(50)) SendDescriptors(connection.peer);
    if (dice_.OneIn(asMember_ ? 300 : 20)) connection.peer.Close();
    if (dice_.OneIn(connection.reads)) connection.peer.Drain();
    return count;
  }

  void Withdraw() override {
    for (Connection &connection : connections_) connection = {};
  }

 private:
  struct Connection {
    Peer peer;
    std::string rest;
    uint32_t reads = 4;  // after how many strikes on average
  };

  uint32_t Open(Connection &connection) {
    connection.peer = Peer(path_);
    connection.rest.clear();
    connection.reads = dice_.OneIn(4) ? 1000 : 4;
    if (!connection.peer.open()) Fail("the server does not listen");
    const bool registers = asMember_ || dice_.OneIn(4);
    if (!registers) return 0;
    connection.peer.Send(frames_.Registration(asMember_ && !dice_.OneIn(20)));
    return 1;
  }

  // In their place, which is beside two zero bytes, and out of it.
  void SendDescriptors(Peer &peer) {
    std::vector<int> numbers;
    for (uint32_t count = dice_.OneIn(3) ? 1 + dice_.Below(4) : 1; count > 0; --count) {
      numbers.push_back(dice_.Pick(descriptors_).get());
    }
    const std::string bytes = dice_.OneIn(4) ? frames_.Next() : std::string(1 + dice_.Below(3), '\0');
    peer.Send(bytes, numbers);
  }

  Dice &dice_;
  std::string path_;
  bool asMember_;
  Frames frames_;
  std::array<Connection, 8> connections_;
  std::array<UniqueFd, 4> descriptors_;
};

// A member has its socket where clients of the logging daemon have theirs; a stranger has none, or elsewhere.
class DatagramAssault : public Assault {
 public:
  DatagramAssault(Dice &dice, std::string root, bool asMember)
      : dice_(dice), root_(std::move(root)), asMember_(asMember) {}

  uint32_t Strike() override {
    UniqueFd &socket = sockets_[dice_.Below(sockets_.size())];
    if (!socket.valid() || dice_.OneIn(200)) {
      socket = DatagramSocket(OwnPath(), root_ + ZOR_PATH_MLOG_DIR ZOR_MLOG_SERVER_NAME);
      if (!socket.valid()) Fail("the server does not listen");
      const timeval patience = {kPatienceMs / 1000, 0};
      ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    }
    const std::string datagram = LogDatagram(dice_);
    if (::send(socket.get(), datagram.data(), datagram.size(), MSG_NOSIGNAL) < 0) Fail("the server takes no datagram");
    char discarded[2048];
    while (dice_.OneIn(2) && ::recv(socket.get(), discarded, sizeof discarded, MSG_DONTWAIT) > 0) {
    }
    return 1;
  }

  void Withdraw() override { sockets_ = {}; }

 private:
  std::string OwnPath() {
    const std::string name = "hostile" + std::to_string(dice_.Below(16));
    if (asMember_) return root_ + ZOR_PATH_MLOG_DIR + name;
    switch (dice_.Below(3)) {
      case 0:
        return "";
      case 1:
        return "@" + root_ + std::to_string(++abstract_);
      default:
        return root_ + "/" + name;
    }
  }

  Dice &dice_;
  std::string root_;
  bool asMember_;
  std::array<UniqueFd, 4> sockets_;
  uint32_t abstract_ = 0;  // names that were used
};

}  // namespace

std::unique_ptr<Assault> MakeAssault(Service service, bool asMember, Dice &dice, const std::string &root) {
  if (service == Service::kLog) return std::make_unique<DatagramAssault>(dice, root, asMember);
  if (service == Service::kNotify) {
    return std::make_unique<StreamAssault<NotifyFrames>>(dice, root + ZOR_PATH_NOTIFY_SERVER, asMember,
                                                         NotifyFrames(dice));
  }
  const auto to = service == Service::kCms      ? BusFrames::To::kCms
                  : service == Service::kSyslog ? BusFrames::To::kSyslog
                                                : BusFrames::To::kServer;
  return std::make_unique<StreamAssault<BusFrames>>(dice, root + ZOR_PATH_MSGSVR, asMember, BusFrames(dice, root, to));
}

}  // namespace zor::hostile
