// The bridge to a fleet's broker: what an event takes to a subscriber there, beside Debian's own client of the broker;
// what the bridge adds to the delivery of an event on the bus; and an outage, with an account of every record.
// Usage: fleet_bench MSGSVR ZORBRIDGE [EVENTS]
#include <fcntl.h>
#include <unistd.h>
#include <zor/control_wire.h>
#include <zor/event.h>
#include <zor/msg.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "common/malloc_ptr.h"
#include "harness.h"

namespace {

using namespace zor::bench;

constexpr uint32_t kEvent = ZOR_EVT_JSON_FIRST + 6;  // module "network"
constexpr uint32_t kSeen = 0x4001;
constexpr char kPort[] = "47720";
constexpr size_t kCalls = 300;

// A program with a pipe at its standard input or output.
class Program {
 public:
  Program(int end, std::vector<std::string> arguments)
      : pipe_(OpenPipe()), process_([&] {
          ::dup2(pipe_[static_cast<size_t>(end)], end);
          ::close(pipe_[0]);
          ::close(pipe_[1]);
          std::vector<char *> argv;
          for (std::string &each : arguments) argv.push_back(each.data());
          argv.push_back(nullptr);
          ::execvp(argv[0], argv.data());
        }) {
    ::close(pipe_[static_cast<size_t>(end)]);
    other_.reset(::fdopen(pipe_[static_cast<size_t>(1 - end)], end == 1 ? "r" : "w"));
  }
  pid_t pid() const { return process_.pid(); }
  std::string ReadLine() {
    Require(std::fgets(line_.data(), static_cast<int>(line_.size()), other_.get()) != nullptr, "a line arrives");
    return line_.data();
  }
  void WriteLine(const std::string &text) {
    Require(std::fputs((text + '\n').c_str(), other_.get()) >= 0 && std::fflush(other_.get()) == 0,
            "a line is written");
  }
  void AwaitLine(const char *text) {
    while (ReadLine().find(text) == std::string::npos) continue;
  }

 private:
  static std::array<int, 2> OpenPipe() {
    std::array<int, 2> ends = {};
    Require(::pipe2(ends.data(), O_CLOEXEC) == 0, "pipe");
    return ends;
  }
  struct Closer {
    void operator()(FILE *file) const { std::fclose(file); }
  };

  std::array<int, 2> pipe_;
  Process process_;
  std::unique_ptr<FILE, Closer> other_;
  std::array<char, 65536> line_{};
};

Process StartBroker(const std::string &root) {
  const std::string file = root + "/broker.conf";
  std::ofstream(file) << "listener " << kPort << " 127.0.0.1\nallow_anonymous true\nmax_queued_messages 0\n"
                      << "set_tcp_nodelay true\nlog_dest none\n"
                      << (::geteuid() == 0 ? "user root\n" : "");
  return Process([file] { ::execl("/usr/sbin/mosquitto", "mosquitto", "-c", file.c_str(), nullptr); });
}

std::vector<std::string> Subscriber(const char *topic) {
  return {"mosquitto_sub", "-V", "5", "-p", kPort, "-q", "1", "-t", topic, "-F", "%t %P"};
}

std::string Settings(const std::string &root) {
  const std::string file = root + "/bridge.conf";
  std::ofstream(file) << "broker = mqtt://127.0.0.1:" << kPort
                      << "\ngateway = bench\nretry_first_seconds = 1\nretry_most_seconds = 1\n"
                      << "queue_bytes = 2000000000\ndaily_bytes = 2147483648\nin_flight = 1000\n";
  return file;
}

void Publish(uint64_t number) {
  const std::string text = R"({"EventType":"E","Payload":)" + std::to_string(number) + '}';
  Require(ZOR_MSG_SendMsgData(nullptr, kEvent, text.data(), static_cast<uint32_t>(text.size())) == ZOR_OK,
          "an event is published");
}

void Print(const char *what, const std::vector<double> &without, const std::vector<double> &with,
           const std::vector<double> &ratio) {
  std::printf("%-44s %8.1f us %8.1f us   ratio %.3f\n", what, Median(without) / 1e3, Median(with) / 1e3, Median(ratio));
  std::fflush(stdout);
}

// Brings the bridge to the broker, and the subscriber to both.
struct Fleet {
  Fleet(const std::string &zorbridge, const std::string &root)
      : subscriber(1, Subscriber("zor/#")), bridge(1, {zorbridge, "--settings", Settings(root)}) {
    subscriber.AwaitLine("/status");
  }
  ~Fleet() { ::kill(bridge.pid(), SIGTERM); }

  Program subscriber;
  Program bridge;
};

void CompareWithPlainClient(const std::string &zorbridge, const std::string &root) {
  const Process broker = StartBroker(root);
  ::usleep(300000);
  Fleet fleet(zorbridge, root);
  Program subscriber(1, Subscriber("plain"));
  Program publisher(0, {"mosquitto_pub", "-V", "5", "-p", kPort, "-q", "1", "-t", "plain", "-l"});
  ::usleep(500000);
  const std::string line(230, 'x');  // as long as a record
  std::vector<double> plain, event, ratio, ratio99;
  uint64_t number = 0;
  for (int round = 0; round < kRounds; ++round) {
    const Cost without = TimeEach(kCalls, [&] {
      publisher.WriteLine(line);
      subscriber.ReadLine();
    });
    const Cost with = TimeEach(kCalls, [&] {
      Publish(++number);
      fleet.subscriber.AwaitLine("/event/");
    });
    plain.push_back(without.p50);
    event.push_back(with.p50);
    ratio.push_back(with.p50 / without.p50);
    ratio99.push_back(with.p99 / without.p99);
  }
  Print("event to subscriber, beside mosquitto_pub", plain, event, ratio);
  std::printf("%-44s ratio %.3f\n", "  p99", Median(ratio99));
}

// A daemon that says of each event, which holds the time when it was published, how long it took.
void Watch() {
  ZOR_MSG_Destroy();  // the connection of the process that was forked
  Require(ZOR_MSG_Init("watcher") == ZOR_OK, "the watcher joins");
  ZOR_MSG_RegisterMsgProc(ZOR_MSG_DefaultMsgProc);
  const auto onEvent = [](ZOR_MSG_HEAD *event) {
    const std::string text(reinterpret_cast<const char *>(event + 1), event->bodyLength);
    const double taken = Now() - std::strtod(&text[text.rfind(':') + 1], nullptr);
    ZOR_MSG_SendSimpleMsg("bench", kSeen, static_cast<uint32_t>(taken));
  };
  ZOR_MSG_RegMsgProc(kEvent, onEvent, 0, nullptr);
  ZOR_MSG_SendSimpleMsg(nullptr, ZOR_MSG_SUBSCRIBE_EVENT, kEvent);
  ZOR_MSG_GetAndDispatch();
}

// The time from an event's publication to its subscriber, while the system is at rest.
Cost Deliver() {
  std::vector<double> taken;
  for (size_t count = 0; count < 2 * kCalls; ++count, ::usleep(3000)) {
    Publish(static_cast<uint64_t>(Now()));
    ZOR_MSG_HEAD *received = nullptr;
    Require(ZOR_MSG_RecvWithType(kSeen, &received, 5000) == ZOR_OK, "the watcher gets the event");
    const zor::MallocPtr<ZOR_MSG_HEAD> seen(received);
    taken.push_back(seen->data);
  }
  return CostOf(taken);
}

void CompareDelivery(const std::string &zorbridge, const std::string &root) {
  const Process broker = StartBroker(root);
  const Process watcher(Watch);
  ::usleep(500000);
  std::vector<double> alone, bridged, ratio;
  for (int round = 0; round < kRounds; ++round) {
    const Cost without = Deliver();
    Cost with;
    {
      const Fleet fleet(zorbridge, root);
      with = Deliver();
    }
    ::usleep(300000);
    alone.push_back(without.p50);
    bridged.push_back(with.p50);
    ratio.push_back(with.p50 / without.p50);
  }
  Print("event to a subscriber on the bus, with the bridge", alone, bridged, ratio);
}

// Waits until the bridge has read what the message server has for it: an event that it cannot take in time is refused.
void LetBridgeRead() {
  for (;; ::usleep(1000)) {
    ZOR_MSG_HEAD request;
    ZOR_MSG_HEAD *received = nullptr;
    ZOR_MSG_SimpleBuilder(&request, nullptr, ZOR_MSG_CONTROL_LIST, 0);
    Require(ZOR_MSG_SendAndRecv(&request, &received, 10000) == ZOR_OK, "the server's list");
    const zor::MallocPtr<ZOR_MSG_HEAD> reply(received);
    const std::string list(reinterpret_cast<const char *>(reply.get() + 1), reply->bodyLength);
    const size_t bridge = list.find(R"("name":"bridge")");
    const size_t waiting = list.find(R"("waiting":{"bytes":)", bridge);
    if (bridge == list.npos || waiting == list.npos) continue;
    if (std::atol(&list[waiting + std::strlen(R"("waiting":{"bytes":)")]) < 65536) return;
  }
}

void Outage(const std::string &zorbridge, const std::string &root, uint64_t count) {
  Program bridge(1, {zorbridge, "--settings", Settings(root)});
  bridge.AwaitLine("on the bus");
  ::usleep(300000);
  const double begun = Now();
  for (uint64_t number = 1; number <= count; ++number) {
    Publish(number);
    if (number % 400 == 0) LetBridgeRead();
  }
  LetBridgeRead();
  std::printf("%lu events published without a broker: %.1f s\n", count, (Now() - begun) / 1e9);
  std::fflush(stdout);
  // What the bridge published before the subscriber was there would count as lost.
  ::kill(bridge.pid(), SIGSTOP);
  const Process late = StartBroker(root);
  ::usleep(300000);
  std::vector<std::string> command = Subscriber("zor/bench/event/#");
  command.insert(command.end(), {"-t", "$SYS/broker/version"});  // retained: it arrives when all is subscribed
  Program subscriber(1, command);
  subscriber.AwaitLine("$SYS");
  ::kill(bridge.pid(), SIGCONT);
  const double back = Now();
  uint64_t records = 0, doubled = 0, outOfOrder = 0, last = 0;
  while (last < count) {
    const std::string line = subscriber.ReadLine();
    const uint64_t number = std::strtoull(&line[line.find("number:") + 7], nullptr, 10);
    ++records;
    doubled += number == last;
    outOfOrder += number < last;
    last = number;
  }
  std::printf("records %lu, lost %ld, doubled %lu, out of order %lu: %.1f s after the broker was back\n", records,
              static_cast<long>(count - (records - doubled - outOfOrder)), doubled, outOfOrder, (Now() - back) / 1e9);
  ::kill(bridge.pid(), SIGTERM);
}

}  // namespace

int main(int count, char **arguments) {
  Require(count == 3 || count == 4, "usage: fleet_bench MSGSVR ZORBRIDGE [EVENTS]");
  ::signal(SIGPIPE, SIG_IGN);
  const uint64_t events = count == 4 ? std::strtoull(arguments[3], nullptr, 10) : 100000;
  for (const auto measure : {CompareWithPlainClient, CompareDelivery}) {
    const System system(arguments[1]);
    Require(ZOR_MSG_Init("bench") == ZOR_OK, "the benchmark joins");
    measure(arguments[2], system.root());
    ZOR_MSG_Destroy();
  }
  const System system(arguments[1]);
  Require(ZOR_MSG_Init("bench") == ZOR_OK, "the benchmark joins");
  Outage(arguments[2], system.root(), events);
  ZOR_MSG_Destroy();
  return 0;
}
