// Restful patterns: which client gets a request for a path. A pattern list holds patterns separated by "|".
#ifndef MSGSVR_RESTFUL_H
#define MSGSVR_RESTFUL_H

#include <zor/msg_wire.h>

#include <array>
#include <bitset>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zor::msgsvr {

struct Client;

// A path, made ready to be matched with many patterns: "?" is any one character, "*" any run within one path element,
// "**" any run at all. The time is bounded by the length of the pattern, whatever it says.
class RestfulPath {
 public:
  static constexpr size_t kMaxSize = 2 * ZOR_MSG_RESTFUL_NAME_SIZE - 1;  // a prefix, a slash and a name

  // Takes kMaxSize characters at most.
  explicit RestfulPath(std::string_view text);

  bool Matches(std::string_view pattern) const;
  bool MatchesOneOf(std::string_view patternList) const;

 private:
  using Positions = std::bitset<kMaxSize + 1>;

  std::array<Positions, 256> of_;  // of each character
  Positions any_;                  // of all characters
  size_t end_;
};

class RestfulPatterns {
 public:
  // False, with nothing registered, if the client would exceed its share.
  bool Add(Client &client, std::string_view patternList);
  void Remove(const Client &client);
  // The lists that the client has registered.
  std::vector<std::string_view> Of(const Client &client) const;
  // The client that registered for the path first; null if none did.
  Client *Find(std::string_view prefix, std::string_view name) const;

 private:
  struct Entry {
    Client *client;
    std::string patternList;
  };
  std::vector<Entry> entries_;
};

}  // namespace zor::msgsvr

#endif
