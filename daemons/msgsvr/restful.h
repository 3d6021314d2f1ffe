// Restful patterns: which client gets a request for a path. A pattern list holds patterns separated by "|".
#ifndef MSGSVR_RESTFUL_H
#define MSGSVR_RESTFUL_H

#include <zor/msg_wire.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zor::msgsvr {

struct Client;

class RestfulPatterns {
 public:
  // False, with nothing registered, if the client would exceed its share.
  bool Add(Client &client, std::string_view patternList);
  void Remove(const Client &client);
  // The lists that the client has registered.
  std::vector<std::string_view> Of(const Client &client) const;
  struct Registered {
    uint64_t order;  // among the lists of all clients
    std::string_view list;
  };
  std::vector<Registered> RegisteredBy(const Client &client) const;
  // The client that registered for the path first; null if none did.
  Client *Find(std::string_view prefix, std::string_view name) const;

 private:
  struct Entry {
    Client *client;
    std::string patternList;
    uint64_t order;
  };
  std::vector<Entry> entries_;
  uint64_t lastOrder_ = 0;
};

}  // namespace zor::msgsvr

#endif
