// Generated code: a byte that chooses the message, the data word, then the body.
#include <zor/gen/message.hpp>

#include <cstring>

#include "fuzz.h"
#include "thermo.h"
#include "thermo.hpp"

namespace {

using zor::fuzz::Require;

struct Encoded {
  std::uint32_t data;
  std::string body;
};

template <class Message>
bool Pass(std::uint32_t data, std::string_view body, Encoded &made) {
  Message message;
  if (!Message::decode(body, data, message)) return false;
  made = {message.data_word(), ""};
  message.append_to(made.body);
  return true;
}

// In C by these functions; the C++ struct must agree with them about every input.
template <class Message, class Record>
void Check(std::uint32_t data, std::string_view body,
           std::uint32_t (*decode)(Record *, std::uint32_t, const void *, std::size_t),
           std::uint32_t (*word)(const Record *), std::size_t (*encode)(const Record *, void *, std::size_t)) {
  Encoded made, again;
  Record record;
  const bool valid = Pass<Message>(data, body, made);
  Require(valid == (decode(&record, data, body.data(), body.size()) == ZOR_OK), "both languages accept the same");
  if (!valid) return;
  Require(Pass<Message>(made.data, made.body, again) && again.body == made.body, "what is encoded is what is decoded");
  Require(again.data == made.data && word(&record) == made.data, "there is one data word");
  std::string copy(encode(&record, nullptr, 0), '\0');
  Require(encode(&record, copy.data(), copy.size()) == copy.size(), "it takes the room that was counted");
  Require(Pass<Message>(made.data, copy, again) && again.body == made.body, "both languages write the same");
}

#define CHECK(type, Part, part)                                                                         \
  Check<thermo::type::Part>(word, body, thermo_##type##_##part##_decode, thermo_##type##_##part##_data, \
                            thermo_##type##_##part##_encode)

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 5) return 0;
  std::uint32_t word = 0;
  std::memcpy(&word, data + 1, sizeof word);
  const std::string_view body(reinterpret_cast<const char *>(data) + 5, size - 5);
  switch (data[0] % 8) {
    case 0:
      CHECK(GetState, Reply, reply);
      break;
    case 1:
      CHECK(GetStateJson, Reply, reply);
      break;
    case 2:
      CHECK(SetTarget, Request, request);
      break;
    case 3:
      CHECK(Every, Message, message);
      break;
    case 4:
      CHECK(EveryJson, Message, message);
      break;
    case 5:
      CHECK(Any, Message, message);
      break;
    case 6:
      CHECK(Items, Message, message);
      break;
    default:
      CHECK(GetStateJson, Request, request);
      break;
  }
  return 0;
}
