#include "hostile/honest.h"

#include <poll.h>
#include <sys/socket.h>
#include <zor/config_wire.h>
#include <zor/log_wire.h>
#include <zor/mlog_wire.h>
#include <zor/msg_wire.h>
#include <zor/notify_control_wire.h>
#include <zor/paths.h>

#include <cstring>
#include <optional>

#include "hostile/dice.h"
#include "hostile/peer.h"

namespace zor::hostile {
namespace {

constexpr uint32_t kGreeting = 0x4778;

std::size_t BusFrameSize(std::string_view bytes) {
  ZOR_MSG_HEAD head;
  if (bytes.size() < sizeof head) return 0;
  std::memcpy(&head, bytes.data(), sizeof head);
  return sizeof head + head.bodyLength;
}

class BusClient {
 public:
  BusClient(const std::string &root, std::string name) : peer_(root + ZOR_PATH_MSGSVR), name_(std::move(name)) {}

  // Each returns the data word of the frame that it waits for; nothing if that does not come.
  std::optional<uint32_t> Join() {
    Send(ZOR_MSG_REGISTER_APP, "", "");
    const auto reply = Frame(ZOR_MSG_REGISTER_APP, sequence_);
    if (!reply || name_ != std::string(reply->destination, ::strnlen(reply->destination, sizeof reply->destination))) {
      return std::nullopt;
    }
    return reply->data;
  }
  std::optional<uint32_t> Ask(uint32_t type, const std::string &destination, const std::string &body,
                              uint32_t data = 0) {
    Send(type, destination, body, data);
    return Get(type, sequence_);
  }
  std::optional<uint32_t> Get(uint32_t type, uint32_t sequence) {
    const auto head = Frame(type, sequence);
    return head ? std::optional(head->data) : std::nullopt;
  }
  uint32_t Send(uint32_t type, const std::string &destination, const std::string &body, uint32_t data = 0) {
    ZOR_MSG_HEAD head = {};
    head.type = type;
    head.sequence = ++sequence_;
    name_.copy(head.source, sizeof head.source);
    destination.copy(head.destination, sizeof head.destination);
    head.data = data;
    head.bodyLength = static_cast<uint32_t>(body.size());
    peer_.Send(BytesOf(head) + body);
    return sequence_;
  }
  void Drain() { peer_.Drain(); }

 private:
  std::optional<ZOR_MSG_HEAD> Frame(uint32_t type, uint32_t sequence) {
    ZOR_MSG_HEAD head = {};
    const std::string frame = peer_.Await(BusFrameSize, [&](std::string_view bytes) {
      std::memcpy(&head, bytes.data(), sizeof head);
      return head.sequence == sequence && (head.type == type || head.type == ZOR_MSG_SEND_FAILED_NOTICE);
    });
    return frame.empty() || head.type != type ? std::nullopt : std::optional(head);
  }

  Peer peer_;
  std::string name_;
  uint32_t sequence_ = 0x60000000;
};

class HonestOnBus : public Honest {
 public:
  explicit HonestOnBus(const std::string &root) : root_(root), first_(root, "honest_a"), second_(root, "honest_b") {
    if (!first_.Join() || !second_.Join()) Fail("honest clients are not taken");
  }
  bool IsServed() override {
    const uint32_t number = ++greetings_;
    const uint32_t sequence = first_.Send(kGreeting, "honest_b", "hello", number);
    if (second_.Get(kGreeting, sequence) != number) return false;
    const uint32_t back = second_.Send(kGreeting, "honest_a", std::string(2000, 'b'), number);
    if (first_.Get(kGreeting, back) != number) return false;
    const std::string name = "newcomer" + std::to_string(number % 100);
    BusClient newcomer(root_, name);
    return newcomer.Join() && newcomer.Ask(ZOR_MSG_GET_PROCESS_NUM, "", name + '\0') == 1u;
  }
  void Sync() override { first_.Ask(ZOR_MSG_GET_PROCESS_NUM, "", std::string("honest_a") + '\0'); }
  void Drain() override {
    first_.Drain();
    second_.Drain();
  }

 protected:
  BusClient &first() { return first_; }

 private:
  std::string root_;
  BusClient first_, second_;
  uint32_t greetings_ = 0;
};

class HonestWithCms : public HonestOnBus {
 public:
  using HonestOnBus::HonestOnBus;
  bool IsServed() override {
    // What was sent before may still replace the file.
    return HonestOnBus::IsServed() && first().Ask(ZOR_MSG_DB_SAVE_SYNC, "cms", "") == 0u &&
           first().Ask(ZOR_MSG_CHECK_CFG_FILE, "cms", std::string("/var/cfg/config_0.db") + '\0');
  }
  void Sync() override { first().Ask(ZOR_MSG_CHECK_CFG_FILE, "cms", ""); }
};

class HonestWithSyslog : public HonestOnBus {
 public:
  using HonestOnBus::HonestOnBus;
  bool IsServed() override {
    if (!HonestOnBus::IsServed()) return false;
    // What was sent before may still clear the log, or set the filter.
    first().Send(ZOR_LOG_MSG_SET_SERVER, "syslog", BytesOf(ZOR_LOG_SERVERS{}));
    first().Send(ZOR_LOG_MSG_SET_FILTER, "syslog", "", UINT32_MAX);
    ZOR_LOG_RECORD record = {};
    record.index = 0x1E080001;
    first().Send(ZOR_LOG_MSG_RECORD, "syslog", BytesOf(record));
    ZOR_LOG_QUERY query = {};
    query.typeLevel = UINT32_MAX;
    query.count = 1;
    std::string("/var/syslog/honest").copy(query.text, sizeof query.text);
    return first().Ask(ZOR_LOG_MSG_FLUSH, "syslog", "") == 0u &&
           first().Ask(ZOR_LOG_MSG_QUERY, "syslog", BytesOf(query)).value_or(UINT32_MAX) <= query.count;
  }
  void Sync() override { first().Ask(ZOR_LOG_MSG_QUERY, "syslog", ""); }
};

constexpr uint32_t kFirst = 97, kSecond = 98, kNewcomer = 99;

std::size_t NotifyFrameSize(std::string_view bytes) {
  ZOR_NOTIFY_MSG head;
  if (bytes.size() < sizeof head) return 0;
  std::memcpy(&head, bytes.data(), sizeof head);
  return sizeof head + head.data_len;
}

class Module {
 public:
  Module(const std::string &root, uint32_t id) : peer_(root + ZOR_PATH_NOTIFY_SERVER) {
    Send(Head(ZOR_NOTIFY_TYPE_REGISTER, 0, ZOR_NOTIFY_MID_SERVER), BytesOf(id));
    // A registration has no reply.
    Send(Head(ZOR_NOTIFY_CONTROL_LAST, 1, ZOR_NOTIFY_MID_SERVER, 1), "");
    if (!Gets(ZOR_NOTIFY_CONTROL_LAST, 1, ZOR_NOTIFY_MID_SERVER)) Fail("an honest module is not taken");
  }
  static ZOR_NOTIFY_MSG Head(uint32_t type, uint32_t sequence, uint32_t destination, uint32_t sync = 0,
                             uint32_t ack = ZOR_NOTIFY_ACK_REQUEST) {
    ZOR_NOTIFY_MSG head = {};
    head.msg_type = type;
    head.seq = sequence;
    head.des_id = destination;
    head.sync_tag = sync;
    head.ack_tag = ack;
    return head;
  }
  void Send(ZOR_NOTIFY_MSG head, const std::string &data) {
    head.data_len = static_cast<uint32_t>(data.size());
    peer_.Send(BytesOf(head) + data);
  }
  bool Gets(uint32_t type, uint32_t sequence, uint32_t source) {
    return !peer_
                .Await(NotifyFrameSize,
                       [&](std::string_view bytes) {
                         ZOR_NOTIFY_MSG head;
                         std::memcpy(&head, bytes.data(), sizeof head);
                         return head.msg_type == type && head.seq == sequence && head.source_id == source;
                       })
                .empty();
  }
  void Drain() { peer_.Drain(); }

 private:
  Peer peer_;
};

class HonestModules : public Honest {
 public:
  explicit HonestModules(const std::string &root) : root_(root), first_(root, kFirst), second_(root, kSecond) {}
  bool IsServed() override {
    const uint32_t number = ++greetings_;
    first_.Send(Module::Head(kGreeting, number, kSecond, 1), "request");
    if (!second_.Gets(kGreeting, number, kFirst)) return false;
    second_.Send(Module::Head(kGreeting, number, kFirst, 1, ZOR_NOTIFY_ACK_ANSWER), std::string(5000, 'r'));
    if (!first_.Gets(kGreeting, number, kSecond)) return false;
    Module newcomer(root_, kNewcomer);
    newcomer.Send(Module::Head(kGreeting, number, kFirst), "");
    return first_.Gets(kGreeting, number, kNewcomer);
  }
  void Sync() override { IsServed(); }
  void Drain() override {
    first_.Drain();
    second_.Drain();
  }

 private:
  std::string root_;
  Module first_, second_;
  uint32_t greetings_ = 0x60000000;
};

class HonestLogger : public Honest {
 public:
  explicit HonestLogger(const std::string &root)
      : socket_(DatagramSocket(root + ZOR_PATH_MLOG_DIR "honest", root + ZOR_PATH_MLOG_DIR ZOR_MLOG_SERVER_NAME)) {
    if (!socket_.valid()) Fail("an honest client is not taken");
  }
  bool IsServed() override {
    ZOR_MLOG_STAT stat = {};
    std::string("honest").copy(stat.name, sizeof stat.name);
    const std::string value = std::to_string(++values_);
    value.copy(stat.value, sizeof stat.value);
    Send(ZOR_MLOG_SET_STAT, stat);
    std::memset(stat.value, 0, sizeof stat.value);
    Send(ZOR_MLOG_GET_STAT, stat);
    pollfd ready = {socket_.get(), POLLIN, 0};
    ZOR_MLOG_MSG reply = {};
    if (::poll(&ready, 1, kPatienceMs) != 1 || ::recv(socket_.get(), &reply, sizeof reply, 0) <= 0) return false;
    std::memcpy(&stat, reply.data, sizeof stat);
    return value == std::string(stat.value, ::strnlen(stat.value, sizeof stat.value));
  }

 private:
  void Send(uint32_t type, const ZOR_MLOG_STAT &stat) {
    ZOR_MLOG_MSG msg = {};
    msg.type = type;
    msg.length = sizeof stat;
    std::memcpy(msg.data, &stat, sizeof stat);
    if (::send(socket_.get(), &msg, ZOR_MLOG_HEAD_SIZE + msg.length, 0) < 0) Fail("the server takes no datagram");
  }

  UniqueFd socket_;
  uint32_t values_ = 0;
};

}  // namespace

std::unique_ptr<Honest> MakeHonest(Service service, const std::string &root) {
  switch (service) {
    case Service::kBus:
      return std::make_unique<HonestOnBus>(root);
    case Service::kCms:
      return std::make_unique<HonestWithCms>(root);
    case Service::kSyslog:
      return std::make_unique<HonestWithSyslog>(root);
    case Service::kNotify:
      return std::make_unique<HonestModules>(root);
    case Service::kLog:
      break;
  }
  return std::make_unique<HonestLogger>(root);
}

}  // namespace zor::hostile
