// What generated code takes to encode and decode a message of ten fields: five integers, two reals, a bool, two texts.
// As a record beside a copy of its bytes, as JSON beside a common library for JSON.
#include <cjson/cJSON.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "harness.h"
#include "thermo_old.h"
#include "thermo_old.hpp"

namespace {

using namespace zor::bench;

constexpr std::size_t kCalls = 200000;
constexpr std::size_t kSize = 256;

// Keeps the compiler from leaving out what computes the value.
template <class Value>
void Use(Value &value) {
  asm volatile("" : : "g"(&value) : "memory");
}

void Print(const char *what, const std::vector<double> &encode, const std::vector<double> &decode,
           const std::vector<double> &bare) {
  std::vector<double> ratio;
  for (std::size_t i = 0; i < bare.size(); ++i) ratio.push_back((encode[i] + decode[i]) / bare[i]);
  std::printf("%-20s %8.0f %8.0f %8.0f %10.2f\n", what, Median(encode), Median(decode), Median(encode) + Median(decode),
              Median(ratio));
}

template <class Encode, class Decode, class Bare>
void Compare(const char *what, const Encode &encode, const Decode &decode, const Bare &bare) {
  std::vector<double> encodes, decodes, bares;
  for (int round = 0; round < kRounds; ++round) {
    bares.push_back(TimeAll(kCalls, bare));
    encodes.push_back(TimeAll(kCalls, encode));
    decodes.push_back(TimeAll(kCalls, decode));
  }
  Print(what, encodes, decodes, bares);
}

template <class Message>
Message Filled() {
  Message message;
  message.actual = 21.53;
  message.target = 20.5;
  message.humidity = 55;
  message.battery = 3700;
  message.uptime = 1234567;
  message.serial = 123456789012;
  message.offset = -250;
  message.heating = true;
  message.room = "hall";
  message.label = "north wall";
  return message;
}

template <class Message>
void MeasureCpp(const char *what, const std::function<void()> &bare) {
  const Message message = Filled<Message>();
  std::string body;
  Message read;
  const auto encode = [&] {
    body.clear();
    message.append_to(body);
    Use(body);
  };
  encode();
  Compare(
      what, encode,
      [&] {
        Require(Message::decode(body, 0, read), "it is valid");
        Use(read);
      },
      bare);
  Require(read.serial == message.serial && read.label == message.label, "it is what was encoded");
}

template <class Message, class Encode, class Decode>
void MeasureC(const char *what, std::uint32_t (*prepare)(Message *, std::uint32_t, const void *, std::size_t),
              const std::string &made, const Encode &encode, const Decode &decode, const std::function<void()> &bare) {
  Message message, read;
  Require(prepare(&message, 0, made.data(), made.size()) == ZOR_OK, "it is valid");
  char body[kSize];
  std::size_t length = 0;
  Compare(
      what,
      [&] {
        length = encode(&message, body, sizeof body);
        Use(body);
      },
      [&] {
        Require(decode(&read, 0, body, length) == ZOR_OK, "it is valid");
        Use(read);
      },
      bare);
  Require(read.serial == message.serial, "it is what was encoded");
}

template <class Message>
std::string BodyOf() {
  std::string body;
  Filled<Message>().append_to(body);
  return body;
}

// There and back by a library for JSON; the numbers are doubles there.
void Foreign(const std::string &body) {
  cJSON *object = cJSON_ParseWithLength(body.data(), body.size());
  Require(object != nullptr && cJSON_GetObjectItemCaseSensitive(object, "label") != nullptr, "it is valid");
  char *text = cJSON_PrintUnformatted(object);
  Require(text != nullptr, "memory");
  cJSON_free(text);
  cJSON_Delete(object);
}

}  // namespace

int main() {
  PinToOneProcessor();
  using Record = thermo_old::GetStateReply;
  using Json = thermo_old::GetStateJsonReply;
  const std::string record = BodyOf<Record>(), json = BodyOf<Json>();
  char copy[kSize], back[kSize];
  const auto copyBoth = [&] {
    std::memcpy(copy, record.data(), record.size());
    Use(copy);
    std::memcpy(back, copy, record.size());
    Use(back);
  };
  const auto foreign = [&] { Foreign(json); };
  std::printf("ten fields: %zu bytes as a record, %zu as JSON; ns\n", record.size(), json.size());
  std::printf("%-20s %8s %8s %8s %10s\n", "", "encode", "decode", "both", "to bare");
  MeasureC<thermo_old_GetState_reply>("C, record", thermo_old_GetState_reply_decode, record,
                                      thermo_old_GetState_reply_encode, thermo_old_GetState_reply_decode, copyBoth);
  MeasureCpp<Record>("C++, record", copyBoth);
  MeasureC<thermo_old_GetStateJson_reply>("C, JSON", thermo_old_GetStateJson_reply_decode, json,
                                          thermo_old_GetStateJson_reply_encode, thermo_old_GetStateJson_reply_decode,
                                          foreign);
  MeasureCpp<Json>("C++, JSON", foreign);
  return 0;
}
