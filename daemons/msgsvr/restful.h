// Restful patterns: which client takes a request for a path. A pattern list holds glob patterns separated by "|".
#ifndef MSGSVR_RESTFUL_H
#define MSGSVR_RESTFUL_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zor::msgsvr {

struct Client;

// "?" is any one character, "*" any run within one path element, "**" any run at all. The time is bounded by the
// product of the two lengths, whatever the pattern.
bool MatchGlob(std::string_view pattern, std::string_view path);
bool MatchPatternList(std::string_view patternList, std::string_view path);

class RestfulPatterns {
 public:
  // What one client may make the server hold.
  static constexpr size_t kMaxBytesPerClient = 16384;

  // False, with nothing registered, when the client would hold too much.
  bool Add(Client &client, std::string_view patternList);
  void Remove(const Client &client);
  // The client that registered for the path first; null when none did.
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
