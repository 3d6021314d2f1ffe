// The message server's readers of frames, registrations, requests and control requests. The input is what a client
// sends, behind one byte that says where it is torn, and whether the client has a name before. For every input:
// - what another client receives is whole frames, from the server or under the name that was granted to the sender;
// - it is the same, however the stream is torn;
// - the other client keeps its name and its connection;
// - a successor accepts the state that the server has then.
#include <fcntl.h>
#include <zor/control_wire.h>

#include <cstring>
#include <span>
#include <string_view>

#include "fuzz.h"
#include "msgsvr/input.h"
#include "msgsvr/server_state.h"
#include "programs/succession.h"
#include "support/temp_root.h"

namespace {

using zor::UniqueFd;
using zor::fuzz::Require;
using namespace zor::msgsvr;  // NOLINT(google-build-using-namespace): the code under test

constexpr uint32_t kEvent = ZOR_MSG_EVENT_FIRST + 7;
constexpr char kHonest[] = "web";

struct Surroundings {
  zor::test::TempRoot root;
  zor::daemon::ProblemLog log{"msgsvr"};
  zor::daemon::Settings file = zor::daemon::Settings::FromText("", "settings");
  BusSettings settings = ReadSettings(file);
};

std::string Message(uint32_t type, const char *source, uint32_t data = 0, std::string_view body = {}) {
  ZOR_MSG_HEAD head = {};
  head.type = type;
  std::strncpy(head.source, source, sizeof head.source - 1);
  head.data = data;
  head.bodyLength = static_cast<uint32_t>(body.size());
  return std::string(reinterpret_cast<const char *>(&head), sizeof head).append(body);
}

// A server with an honest client in it, which waits for all that can reach it, and a hostile one.
class Bench {
 public:
  explicit Bench(Surroundings &around)
      : journal_(zor::daemon::Journal::Create("msgsvr", {8, 1u << 20, kInputBuffer})),
        bus_(around.settings, *journal_, around.root.Path("/var/run/msg/"), around.log),
        honest_(Add(honestEnd_)),
        hostile_(Add(hostileEnd_)) {
    Send(honest_, honestEnd_, Message(ZOR_MSG_REGISTER_APP, kHonest));
    Send(honest_, honestEnd_, Message(ZOR_MSG_SUBSCRIBE_EVENT, kHonest, kEvent));
    Send(honest_, honestEnd_, Message(ZOR_MSG_RESTFUL_REGISTER, kHonest, 0, {"/a/*", 5}));
    Send(honest_, honestEnd_, Message(ZOR_MSG_SYNC_WAIT, kHonest, 0, {"b", 2}));
    Received(honestEnd_);
  }
  ~Bench() {
    for (Client &client : bus_.clients) bus_.End(client);
    bus_.Sweep();
  }
  Bench(const Bench &) = delete;
  Bench &operator=(const Bench &) = delete;

  void SendHostile(std::string_view bytes) { Send(hostile_, hostileEnd_, bytes); }

  // All that the honest client has received, after a check.
  std::string Check() {
    Require(!honest_.ended && honest_.name == AppName(kHonest), "others keep their names and connections");
    const std::string all = Received(honestEnd_);
    for (std::string_view rest = all; !rest.empty();) {
      ZOR_MSG_HEAD head;
      Require(rest.size() >= sizeof head, "a header is whole");
      std::memcpy(&head, rest.data(), sizeof head);
      Require(rest.size() - sizeof head >= head.bodyLength, "a body is whole");
      Require(head.source[0] == '\0' || Grants(head.source), "a sender has been granted its name");
      rest.remove_prefix(sizeof head + head.bodyLength);
    }
    CheckState();
    return all;
  }

 private:
  Client &Add(UniqueFd &farEnd) {
    auto [far, near] = zor::fuzz::SocketPair();
    farEnd = std::move(far);
    ::fcntl(near.get(), F_SETFL, O_NONBLOCK);
    Client &client = bus_.clients.emplace_back(std::move(near), Peer{::geteuid(), ::getpid(), true}, ++bus_.lastId,
                                               *journal_, bus_.settings.queueBytes, bus_.accounts);
    Require(client.slot.valid() && bus_.poll.Add(client.socket.get(), kClientEvents, &client), "a client is taken");
    return client;
  }

  void Send(Client &client, const UniqueFd &far, std::string_view bytes) {
    if (client.ended || bytes.empty()) return;
    Require(::write(far.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "a socket has room");
    const AppName before = client.name;
    for (client.readable = true; client.readable && !client.ended;) {
      input_.Read(client);
      granted_.push_back(client.name);
    }
    Require(before.empty() || client.registered() || client.name.empty(), "a name is granted or taken away");
    router_.delivery().TellUndelivered();
    router_.delivery().FlushCopies();
    bus_.WriteRecords();
    journal_->Commit();
  }

  // A client may change its name with each registration; a read routes several.
  bool Grants(const char (&source)[ZOR_MSG_NAME_SIZE]) const {
    const auto name = AppName::FromField(source);
    return name && name->IsGrantable();
  }

  static std::string Received(const UniqueFd &far) {
    std::string all;
    char buffer[65536];
    for (ssize_t count; (count = ::recv(far.get(), buffer, sizeof buffer, MSG_DONTWAIT)) > 0;) {
      all.append(buffer, static_cast<size_t>(count));
    }
    return all;
  }

  void CheckState() {
    ServerStateWriter writer({}, BusRecordOf(bus_, watch_), bus_.restartFor);
    AddClients({bus_, newcomers_, pausedSenders_, watch_}, writer);
    const UniqueFd file = writer.Finish();
    const zor::daemon::MappedState mapped(file.get());
    std::string problem;
    const auto state = ReadState(mapped.bytes(), problem);
    Require(state && state->damaged == 0 && ProblemOf(*state).empty(), "a successor accepts the state");
  }

  std::unique_ptr<zor::daemon::Journal> journal_;
  Bus bus_;
  Router router_{bus_};
  Input input_{bus_, router_};
  Newcomers newcomers_{std::chrono::seconds(10)};
  PausedSenders pausedSenders_;
  TrafficWatch watch_{bus_};
  std::vector<AppName> granted_;
  UniqueFd honestEnd_, hostileEnd_;
  Client &honest_;
  Client &hostile_;
};

// What the honest client receives when the hostile one sends that, in two parts.
std::string Run(Surroundings &around, bool hasName, std::string_view bytes, size_t cut) {
  Bench bench(around);
  if (hasName) bench.SendHostile(Message(ZOR_MSG_REGISTER_APP, "m"));
  bench.SendHostile(bytes.substr(0, cut));
  bench.SendHostile(bytes.substr(cut));
  return bench.Check();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static Surroundings around;
  if (size == 0) return 0;
  const bool hasName = (data[0] & 0x80) != 0;
  const std::string_view bytes(reinterpret_cast<const char *>(data + 1), size - 1);
  const std::string whole = Run(around, hasName, bytes, 0);
  const std::string torn = Run(around, hasName, bytes, std::min<size_t>(data[0] & 0x7f, bytes.size()));
  Require(whole == torn, "a torn stream has the same effect");
  return 0;
}
