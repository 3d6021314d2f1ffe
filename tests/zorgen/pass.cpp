// The same in C++ as pass.c in C.
#include <cinttypes>
#include <cstdio>
#include <iostream>
#include <type_traits>

#include "thermo.hpp"
#include "thermo_old.hpp"
#include "zor.hpp"

namespace {

void PrintHex(const std::string &bytes) {
  std::printf(" -");
  for (const char each : bytes) std::printf("%02x", static_cast<unsigned>(static_cast<unsigned char>(each)));
}

template <class Message>
void PrintValues(const Message &m) {
  if constexpr (std::is_same_v<Message, thermo::EveryMessage> || std::is_same_v<Message, thermo::EveryJsonMessage>) {
    std::printf(" %u %u %" PRIu32 " %" PRIu64 " %d %d %" PRId32 " %" PRId64 " %.17g %d", m.u8, m.u16, m.u32, m.u64,
                m.i8, m.i16, m.i32, m.i64, m.class_, m.lambda);
    for (const std::string &each : {m.daemon, m.text, m.text8, m.bytes4, m.rest_of_it}) PrintHex(each);
  }
}

template <class Message>
void Pass(std::uint32_t data, std::string_view body) {
  Message message;
  if (!Message::decode(body, data, message)) {
    std::puts("invalid");
    return;
  }
  std::string made = "kept";
  message.append_to(made);
  std::printf("%" PRIu32, message.data_word());
  PrintHex(made.substr(4));
  PrintValues(message);
  std::puts(made.compare(0, 4, "kept") == 0 ? "" : " broken");
}

struct Row {
  const char *name;
  void (*pass)(std::uint32_t data, std::string_view body);
};

constexpr Row kRows[] = {
    {"thermo_GetState_request", Pass<thermo::GetState::Request>},
    {"thermo_GetState_reply", Pass<thermo::GetState::Reply>},
    {"thermo_GetStateJson_request", Pass<thermo::GetStateJson::Request>},
    {"thermo_GetStateJson_reply", Pass<thermo::GetStateJson::Reply>},
    {"thermo_SetTarget_request", Pass<thermo::SetTarget::Request>},
    {"thermo_SetTarget_reply", Pass<thermo::SetTarget::Reply>},
    {"thermo_Reached_message", Pass<thermo::Reached::Message>},
    {"thermo_Every_message", Pass<thermo::Every::Message>},
    {"thermo_EveryJson_message", Pass<thermo::EveryJson::Message>},
    {"thermo_Any_message", Pass<thermo::Any::Message>},
    {"thermo_Items_message", Pass<thermo::Items::Message>},
    {"thermo_old_GetState_reply", Pass<thermo_old::GetState::Reply>},
    {"thermo_old_GetStateJson_reply", Pass<thermo_old::GetStateJson::Reply>},
    {"thermo_old_Reached_message", Pass<thermo_old::Reached::Message>},
};

bool RefusesWhatNoBodyCarries() {
  thermo::GetStateReply message;
  message.room = "sixteen letters!";
  std::string body = "kept";
  try {
    message.append_to(body);
  } catch (const std::invalid_argument &) {
    return body == "kept";
  }
  return false;
}

}  // namespace

int main() {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (!RefusesWhatNoBodyCarries()) return 1;
  std::string name, hex;
  std::uint32_t data = 0;
  while (std::cin >> name >> data >> hex) {
    std::string body;
    zor::gen::Append(body, zor_gen_view_of(hex.data() + 1, hex.size() - 1, ZOR_GEN_HEX));
    // A block of exactly that size, so that sanitizers see a read behind it.
    const std::string_view copy(body.empty() ? nullptr : new char[body.size()], body.size());
    if (!body.empty()) body.copy(const_cast<char *>(copy.data()), body.size());
    for (const Row &row : kRows) {
      if (name == row.name) row.pass(data, copy);
    }
    delete[] copy.data();
  }
  return 0;
}
