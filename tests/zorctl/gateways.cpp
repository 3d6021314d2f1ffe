// Plays gateways at a real broker: gateways PORT NAME... With a number for a name it plays gw0001 and so on up to it.
// It publishes that they are online, prints "ready" and replies to requests, each gateway by its name:
//   mute   never
//   twin   twice
//   tardy  when the next request to any gateway comes
//   liar   under the name gw0001
//   rude   refuses, with an escape sequence in the reason
//   loud   a megabyte that is no JSON
// All others reply with the request's payload, the bridges among them with a line of the log too. Requests for the
// daemon "four" are replied to when four are there, with the largest number that ever was.
#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

struct Request {
  std::string gateway, daemon, payload, responseTopic, correlation;
};

std::vector<std::string> names;
std::vector<Request> tardy, four;
size_t mostAtATime = 0;

void Publish(mosquitto *session, const std::string &topic, const std::string &payload, const std::string &correlation,
             bool retain) {
  mosquitto_property *properties = nullptr;
  if (!correlation.empty()) {
    mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA, correlation.data(),
                                  static_cast<uint16_t>(correlation.size()));
  }
  mosquitto_publish_v5(session, nullptr, topic.c_str(), static_cast<int>(payload.size()), payload.data(), 1, retain,
                       properties);
  mosquitto_property_free_all(&properties);
}

std::string Head(const std::string &gateway) {
  return R"({"schema":1,"gateway":")" + gateway + R"(",)";
}

void Reply(mosquitto *session, const Request &request) {
  std::string reply = Head(request.gateway == "liar" ? "gw0001" : request.gateway);
  if (request.daemon == "four") {
    reply += R"("result":"done","data":)" + std::to_string(mostAtATime) + "}";
  } else if (request.daemon == "bridge") {
    reply +=
        R"("result":"done","asked":)" + request.payload + R"(,"lines":["2026-01-02 03:04:05 [System][Warning] full"]})";
  } else if (request.gateway == "rude") {
    reply += R"("result":"refused","reason":"not\u001b[31m allowed"})";
  } else {
    reply += R"("result":"done","fields":{"asked":)" + request.payload + "}}";
  }
  if (request.gateway == "loud") reply.assign(1 << 20, '\xff');
  for (int i = 0; i < (request.gateway == "twin" ? 2 : 1); ++i) {
    Publish(session, request.responseTopic, reply, request.correlation, false);
  }
}

void ReplyToAll(mosquitto *session, std::vector<Request> &requests) {
  for (const Request &request : requests) Reply(session, request);
  requests.clear();
}

void Serve(mosquitto *session, const Request &request) {
  ReplyToAll(session, tardy);
  if (request.gateway == "mute") return;
  if (request.daemon == "four") {
    four.push_back(request);
    mostAtATime = std::max(mostAtATime, four.size());
    if (four.size() == 4) ReplyToAll(session, four);
  } else if (request.gateway == "tardy") {
    tardy.push_back(request);
  } else {
    Reply(session, request);
  }
}

void OnMessage(mosquitto *session, void *, const mosquitto_message *message, const mosquitto_property *properties) {
  char **levels = nullptr;
  int count = 0;
  mosquitto_sub_topic_tokenise(message->topic, &levels, &count);
  Request request{
      levels[1], levels[3], {static_cast<char *>(message->payload), static_cast<size_t>(message->payloadlen)}, "", ""};
  mosquitto_sub_topic_tokens_free(&levels, count);
  char *topic = nullptr;
  void *correlation = nullptr;
  uint16_t length = 0;
  mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &topic, false);
  mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &correlation, &length, false);
  if (topic != nullptr) request.responseTopic = topic;
  if (correlation != nullptr) request.correlation.assign(static_cast<char *>(correlation), length);
  std::free(topic);
  std::free(correlation);
  if (std::find(names.begin(), names.end(), request.gateway) != names.end()) Serve(session, request);
}

// Also when it had to connect again.
void OnConnected(mosquitto *session, void *, int) {
  mosquitto_subscribe(session, nullptr, "zor/+/call/+/+", 1);
}

void OnSubscribed(mosquitto *session, void *, int, int, const int *) {
  for (const std::string &name : names) {
    Publish(session, "zor/" + name + "/presence",
            Head(name) + R"("online":true,"since":"2026-01-02T03:04:05.678Z","version":"1.0.0"})", "", true);
  }
  Publish(session, "played", "", "", false);
}

void OnPublished(mosquitto *, void *, int) {
  static size_t left = names.size() + 1;
  if (left > 0 && --left == 0) std::puts("ready");
}

}  // namespace

int main(int count, char **arguments) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (count < 3) return 2;
  for (int i = 2; i < count; ++i) {
    const int number = std::atoi(arguments[i]);
    if (number == 0) names.emplace_back(arguments[i]);
    for (int each = 1; each <= number; ++each) {
      char name[16];
      std::snprintf(name, sizeof name, "gw%04d", each);
      names.emplace_back(name);
    }
  }
  mosquitto_lib_init();
  mosquitto *session = mosquitto_new(nullptr, true, nullptr);
  mosquitto_int_option(session, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(session, MOSQ_OPT_TCP_NODELAY, 1);
  mosquitto_connect_callback_set(session, OnConnected);
  mosquitto_message_v5_callback_set(session, OnMessage);
  mosquitto_subscribe_callback_set(session, OnSubscribed);
  mosquitto_publish_callback_set(session, OnPublished);
  if (mosquitto_connect(session, "127.0.0.1", std::atoi(arguments[1]), 60) != MOSQ_ERR_SUCCESS) return 1;
  mosquitto_loop_forever(session, -1, 1);
  mosquitto_destroy(session);
  mosquitto_lib_cleanup();
  return 0;
}
