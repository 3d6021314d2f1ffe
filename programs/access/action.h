// What a peer asks for, and what a rule is about.
#ifndef PROGRAMS_ACCESS_ACTION_H
#define PROGRAMS_ACCESS_ACTION_H

#include <array>
#include <cstdint>
#include <string_view>

namespace zor::access {

struct Identity;

enum class Verb : std::uint8_t {
  kOwn,        // register a name
  kServe,      // register a pattern of restful paths
  kSend,       // a message of a type to a name
  kPublish,    // an event
  kSubscribe,  // to an event, or end that; for itself or for another name
  kPost,       // open the barrier of a name
  kControl,    // a control request of a server
  kModule,     // register a module ID at the notification server
  kAll,        // in rules: any of these
};

struct Action {
  Verb verb;
  std::uint32_t number = 0;          // type, event or module; 0 for verbs without one
  std::string_view name;             // the receiver, name or pattern; empty for verbs without one
  const Identity *holder = nullptr;  // with kOwn: who has the name now
};

// How the words of each verb look.
struct VerbWords {
  Verb verb;
  std::string_view word;
  bool hasNumbers;
  std::string_view link;  // the word before the names; empty: nothing is between
  enum class Names { kNone, kOptional, kRequired } names;
  std::uint32_t leastNumber;
  std::uint32_t mostNumber;
};

// One for each verb, in their order.
extern const std::array<VerbWords, 9> kVerbWords;

inline const VerbWords &WordsOf(Verb verb) {
  return kVerbWords[static_cast<std::size_t>(verb)];
}

}  // namespace zor::access

#endif
