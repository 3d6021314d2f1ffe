// Counts what arrives of a fleet's events, until each of so many series has arrived with its end. Exit status 0 when
// each was complete, in order and without a double.
//
// The events carry their own count in their series ("seq"; one series for a gateway and a module), beside the number
// that the bridge gives to the record. So what bridges number is compared with what was published on the buses. Usage:
// account port PORT [series 1] [prefix zor] [patience 300] [frail NAME]
//   frail: gateways whose names begin so are killed, and may lose what is published meanwhile; not double or reorder.
#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "fleet/arguments.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Series {
  uint64_t last = 0;
  uint64_t arrived = 0;
  uint64_t missing = 0;
  bool ended = false;
};

struct Sums {
  uint64_t records = 0;
  uint64_t repeated = 0;  // records that came again, with their identity
  uint64_t holes = 0;     // numbers missing in streams
  uint64_t doubled = 0;   // events that came again as another record
  uint64_t disordered = 0;
  uint64_t malformed = 0;
  uint64_t gaps = 0;
  uint64_t bytes = 0;
};

// The number behind such a text; 0: none.
uint64_t NumberBehind(std::string_view payload, std::string_view text) {
  const std::size_t at = payload.find(text);
  return at == std::string_view::npos ? 0 : std::strtoull(payload.data() + at + text.size(), nullptr, 10);
}

class Account {
 public:
  Account(std::string prefix, std::string frail) : prefix_(std::move(prefix)), frail_(std::move(frail)) {}

  void Take(std::string_view topic, const std::string &payload, const std::string &stream, uint64_t number) {
    ++sums_.records;
    sums_.bytes += payload.size();
    topic.remove_prefix(std::min(topic.size(), prefix_.size() + 1));
    const std::string gateway(topic.substr(0, topic.find('/')));
    topic.remove_prefix(std::min(topic.size(), gateway.size() + 1));
    if (stream.empty() || number == 0) {
      ++sums_.malformed;
    } else if (!TakeNumber(gateway, gateway + ' ' + stream, number)) {
      return;
    }
    if (topic == "gap") ++sums_.gaps;
    if (topic.starts_with("event/")) TakeEvent(gateway + ' ' + std::string(topic.substr(6)), payload);
  }

  uint64_t ended() const { return ended_; }
  const Sums &sums() const { return sums_; }

  bool Report(uint64_t series) const {
    uint64_t arrived = 0, missing = 0, frail = 0;
    for (const auto &[name, each] : series_) {
      arrived += each.arrived;
      (IsFrail(name) ? frail : missing) += each.missing;
      if (each.missing > 0 || !each.ended) {
        std::printf("account: %s: %llu events arrived, %llu missing%s\n", name.c_str(), Number(each.arrived),
                    Number(each.missing), each.ended ? "" : ", and its end");
      }
    }
    std::printf("account: %llu of %llu series have ended, %zu streams\n", Number(ended_), Number(series),
                streams_.size());
    std::printf("account: %llu events arrived once, in order; %llu missing, %llu of gateways that were killed\n",
                Number(arrived), Number(missing), Number(frail));
    std::printf("account: %llu records came again, %llu events doubled, %llu out of order, %llu numbers missing\n",
                Number(sums_.repeated), Number(sums_.doubled), Number(sums_.disordered), Number(sums_.holes));
    std::printf("account: %llu gap records, %llu without a number, %llu bytes an event on average\n",
                Number(sums_.gaps), Number(sums_.malformed),
                Number(sums_.records == 0 ? 0 : sums_.bytes / sums_.records));
    return ended_ == series && missing + sums_.doubled + sums_.disordered + sums_.holes + sums_.malformed == 0;
  }

 private:
  static unsigned long long Number(uint64_t value) { return value; }
  bool IsFrail(std::string_view name) const { return !frail_.empty() && name.starts_with(frail_); }

  // False: it has been here.
  bool TakeNumber(std::string_view gateway, const std::string &stream, uint64_t number) {
    uint64_t &last = streams_[stream];
    if (number <= last) {
      ++sums_.repeated;
      return false;
    }
    if (!IsFrail(gateway)) sums_.holes += number - last - 1;
    last = number;
    return true;
  }

  void TakeEvent(const std::string &name, const std::string &payload) {
    Series &series = series_[name];
    const uint64_t seq = NumberBehind(payload, "\"seq\":");
    if (seq == series.last) {
      ++sums_.doubled;
    } else if (seq < series.last) {
      ++sums_.disordered;
    } else {
      series.missing += seq - series.last - 1;
      series.last = seq;
      ++series.arrived;
    }
    if (!series.ended && payload.find("\"end\":true") != std::string::npos) {
      series.ended = true;
      ++ended_;
    }
  }

  std::string prefix_, frail_;
  std::unordered_map<std::string, uint64_t> streams_;
  std::map<std::string, Series> series_;
  Sums sums_;
  uint64_t ended_ = 0;
};

void OnMessage(mosquitto *, void *account, const mosquitto_message *message, const mosquitto_property *properties) {
  std::string stream;
  uint64_t number = 0;
  char *name = nullptr, *value = nullptr;
  const mosquitto_property *at =
      mosquitto_property_read_string_pair(properties, MQTT_PROP_USER_PROPERTY, &name, &value, false);
  while (at != nullptr) {
    if (std::strcmp(name, "stream") == 0) stream = value;
    if (std::strcmp(name, "number") == 0) number = std::strtoull(value, nullptr, 10);
    std::free(name);
    std::free(value);
    name = value = nullptr;
    at = mosquitto_property_read_string_pair(at, MQTT_PROP_USER_PROPERTY, &name, &value, true);
  }
  static_cast<Account *>(account)->Take(
      message->topic,
      std::string(static_cast<const char *>(message->payload), static_cast<std::size_t>(message->payloadlen)), stream,
      number);
}

// No shared subscription: Debian's broker forgets those when it is restarted.
void Subscribe(mosquitto *client, const std::string &prefix) {
  for (const char *topic : {"/+/event/#", "/+/log", "/+/gap"}) {
    mosquitto_subscribe_v5(client, nullptr, (prefix + topic).c_str(), 1, 0, nullptr);
  }
}

}  // namespace

int main(int argc, char **argv) {
  const zor::fleet::Arguments arguments(argc, argv);
  const int port = arguments.Count("port", 0);
  if (port == 0 || argc % 2 == 0) {
    std::fprintf(stderr, "usage: account port PORT [series N] [prefix PREFIX] [patience SECONDS] [frail NAME]\n");
    return 2;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const std::string prefix = arguments.Text("prefix", "zor");
  const auto series = static_cast<uint64_t>(arguments.Count("series", 1));
  Account account(prefix, arguments.Text("frail", ""));
  mosquitto_lib_init();
  // A session that outlives the broker.
  const std::unique_ptr<mosquitto, decltype(&mosquitto_destroy)> client(mosquitto_new("account", false, &account),
                                                                        mosquitto_destroy);
  mosquitto_int_option(client.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(client.get(), MOSQ_OPT_RECEIVE_MAXIMUM, 5000);
  mosquitto_message_v5_callback_set(client.get(), OnMessage);
  mosquitto_property *expiry = nullptr;
  mosquitto_property_add_int32(&expiry, MQTT_PROP_SESSION_EXPIRY_INTERVAL, 3600);
  int status = mosquitto_connect_bind_v5(client.get(), "127.0.0.1", port, 60, nullptr, expiry);
  mosquitto_property_free_all(&expiry);
  if (status != MOSQ_ERR_SUCCESS) {
    std::fprintf(stderr, "account: %s\n", mosquitto_strerror(status));
    return 1;
  }
  Subscribe(client.get(), prefix);
  const Clock::time_point end = Clock::now() + std::chrono::seconds(arguments.Count("patience", 300));
  Clock::time_point complete = Clock::time_point::max();
  // A moment longer than needed: for doubles.
  while (Clock::now() < end && Clock::now() < complete) {
    status = mosquitto_loop(client.get(), 100, 1);
    if (status != MOSQ_ERR_SUCCESS) {
      const timespec pause = {0, 100'000'000};
      ::nanosleep(&pause, nullptr);
      if (mosquitto_reconnect(client.get()) == MOSQ_ERR_SUCCESS) Subscribe(client.get(), prefix);
    }
    if (complete == Clock::time_point::max() && account.ended() >= series) {
      complete = Clock::now() + std::chrono::seconds(2);
    }
  }
  return account.Report(series) ? 0 : 1;
}
