// The notification server's readers of frames, registrations and control requests. The input is what a client sends,
// behind one byte that says where it is torn, and whether the client has a module before. For every input:
// - what another client receives is whole frames, from the server or from the module of the sender;
// - it is the same, however the stream is torn;
// - the other client keeps its module and its connection;
// - each client's record can be written down, and read again.
#include <fcntl.h>
#include <zor/notify_control_wire.h>

#include <cstring>
#include <string_view>

#include "fuzz.h"
#include "notifyserver/intake.h"
#include "notifyserver/server.h"
#include "programs/peer.h"
#include "programs/succession.h"

namespace {

using zor::UniqueFd;
using zor::fuzz::Require;
using namespace zor::notifyserver;  // NOLINT(google-build-using-namespace): the code under test

constexpr uint32_t kHonest = 8, kHostile = 26;

const Limits kLimits = {8, 8, 4096, 65536, 1u << 18, 1u << 19, std::chrono::seconds(10), {}};

std::string Frame(uint32_t type, uint32_t destination, uint32_t sync, std::string_view data) {
  ZOR_NOTIFY_MSG head = {};
  head.msg_type = type;
  head.des_id = destination;
  head.sync_tag = sync;
  head.ack_tag = ZOR_NOTIFY_ACK_REQUEST;
  head.data_len = static_cast<uint32_t>(data.size());
  return std::string(reinterpret_cast<const char *>(&head), sizeof head).append(data);
}

std::string Registration(uint32_t module) {
  return Frame(ZOR_NOTIFY_TYPE_REGISTER, ZOR_NOTIFY_MID_SERVER, 0,
               {reinterpret_cast<const char *>(&module), sizeof module});
}

// A server with an honest client in it, which waits for a reply of the hostile one.
class Bench {
 public:
  explicit Bench(zor::daemon::ProblemLog &log, bool hasModule)
      : journal_(NewJournal(kLimits, log)),
        router_(kLimits, guard_, log, false),
        intake_(shared_, router_, log),
        honest_(Connect(honestEnd_)),
        hostile_(Connect(hostileEnd_)) {
    Send(*honest_, honestEnd_, Registration(kHonest));
    if (!hasModule) return;
    Send(*hostile_, hostileEnd_, Registration(kHostile));
    Send(*honest_, honestEnd_, Frame(0x55, kHostile, 1, "?"));
  }
  ~Bench() {
    router_.Remove(*hostile_);
    router_.Remove(*honest_);
    FlushAll(shared_);
  }
  Bench(const Bench &) = delete;
  Bench &operator=(const Bench &) = delete;

  void SendHostile(std::string_view bytes) { Send(*hostile_, hostileEnd_, bytes); }

  // All that the honest client has received, after a check.
  std::string Check() {
    Require(!honest_->ended() && honest_->mid() == kHonest, "others keep their modules and connections");
    std::string all;
    char buffer[65536];
    for (ssize_t count; (count = ::recv(honestEnd_.get(), buffer, sizeof buffer, MSG_DONTWAIT)) > 0;) {
      all.append(buffer, static_cast<size_t>(count));
    }
    for (std::string_view rest = all; !rest.empty();) {
      std::vector<std::byte> copy(rest.size());
      std::memcpy(copy.data(), rest.data(), rest.size());
      const Parsed parsed = ParseFrame(copy, kLimits.maxDataBytes);
      Require(parsed.state == Parsed::State::kWhole, "a frame is whole");
      const uint32_t source = parsed.frame.head.source_id;
      Require(source == ZOR_NOTIFY_MID_SERVER || source == hostile_->mid(), "a sender has its module");
      rest.remove_prefix(parsed.frame.bytes.size());
    }
    CheckState();
    return all;
  }

 private:
  std::unique_ptr<Client> Connect(UniqueFd &farEnd) {
    auto [far, near] = zor::fuzz::SocketPair();
    farEnd = std::move(far);
    ::fcntl(near.get(), F_SETFL, O_NONBLOCK);
    const ucred peer = zor::daemon::PeerOf(near.get());
    auto client = std::make_unique<Client>(std::move(near), peer, ++lastId_, shared_);
    Require(client->Watch(), "a client is taken");
    return client;
  }

  void Send(Client &client, const UniqueFd &far, std::string_view bytes) {
    if (client.ended() || bytes.empty()) return;
    Require(::write(far.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "a socket has room");
    intake_.Read(client);
    FlushAll(shared_);
    journal_->Commit();
  }

  void CheckState() {
    zor::daemon::StateWriter writer = NewState();
    zor::notifyserver::Add(writer, ServerRecord{});
    for (const Client *client : {honest_.get(), hostile_.get()}) zor::notifyserver::Add(writer, client->Record());
    const UniqueFd file = writer.Finish();
    const zor::daemon::MappedState mapped(file.get());
    std::string problem;
    const auto state = ReadState(mapped.bytes(), problem);
    Require(state && state->damaged == 0 && state->clients.size() == 2, "a successor reads the state");
    for (const ClientRecord &record : state->clients) {
      Require(zor::notifyserver::ProblemOf(record) == nullptr, "a successor accepts the state");
    }
  }

  std::unique_ptr<zor::daemon::Journal> journal_;
  zor::daemon::EventPoll poll_;
  zor::daemon::Accounts accounts_{{kLimits.maxClients, kLimits.userClients, kLimits.userBytes, kLimits.memoryBytes}};
  zor::access::Guard guard_;
  Surroundings shared_{poll_, *journal_, accounts_, guard_, kLimits, {}, {}, {}};
  Router router_;
  Intake intake_;
  uint64_t lastId_ = 0;
  UniqueFd honestEnd_, hostileEnd_;
  std::unique_ptr<Client> honest_, hostile_;
};

// What the honest client receives when the hostile one sends that, in two parts.
std::string Run(bool hasModule, std::string_view bytes, size_t cut) {
  static zor::daemon::ProblemLog log("notifyserver");
  Bench bench(log, hasModule);
  bench.SendHostile(bytes.substr(0, cut));
  bench.SendHostile(bytes.substr(cut));
  return bench.Check();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  const bool hasModule = (data[0] & 0x80) != 0;
  const std::string_view bytes(reinterpret_cast<const char *>(data + 1), size - 1);
  const std::string whole = Run(hasModule, bytes, 0);
  const std::string torn = Run(hasModule, bytes, std::min<size_t>(data[0] & 0x7f, bytes.size()));
  Require(whole == torn, "a torn stream has the same effect");
  return 0;
}
