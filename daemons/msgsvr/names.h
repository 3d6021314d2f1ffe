// Application names, and the clients that have them.
#ifndef MSGSVR_NAMES_H
#define MSGSVR_NAMES_H

#include <zor/msg_wire.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

namespace zor::msgsvr {

struct Client;

// At most 11 characters in a zero-padded field, so two names are equal if their fields are.
class AppName {
 public:
  using Field = std::array<char, ZOR_MSG_NAME_SIZE>;

  AppName() = default;
  // Truncates the text to a name.
  explicit AppName(std::string_view text);
  // The name in a field of a message; nothing if the field is not terminated.
  static std::optional<AppName> FromField(const char (&field)[ZOR_MSG_NAME_SIZE]);

  static std::optional<AppName> FromField(const Field &field);

  bool empty() const { return field_[0] == '\0'; }
  const Field &field() const { return field_; }
  std::string_view text() const { return {field_.data(), ::strnlen(field_.data(), field_.size())}; }
  // False only for one that was read from memory as it is.
  bool IsTerminated() const { return field_.back() == '\0'; }
  // Whether a daemon may have this name: not empty, and only visible ASCII characters.
  bool IsGrantable() const;

  friend bool operator==(const AppName &, const AppName &) = default;

 private:
  Field field_{};
};

struct AppNameHash {
  size_t operator()(const AppName &name) const noexcept;
};

// Clients of one name, longest registered first. Valid while none of the name is added or removed.
class Namesakes {
 public:
  class Iterator {
   public:
    explicit Iterator(Client *client) : client_(client) {}
    Client *operator*() const { return client_; }
    Iterator &operator++();
    friend bool operator==(const Iterator &, const Iterator &) = default;

   private:
    Client *client_;
  };

  explicit Namesakes(Client *oldest) : oldest_(oldest) {}
  Iterator begin() const { return Iterator(oldest_); }
  Iterator end() const { return Iterator(nullptr); }
  bool empty() const { return oldest_ == nullptr; }
  size_t count() const;

 private:
  Client *oldest_;
};

// Registered clients by name, in the order of their registration. The links are in the clients: their oldest ones are
// in the chains of a hash table, each at the head of its namesakes.
class NameTable {
 public:
  // Also numbers the client's registration.
  void Add(const AppName &name, Client &client);
  void Remove(const AppName &name, const Client &client);
  // All clients with that name, longest registered first.
  Namesakes ClientsNamed(const AppName &name) const;
  // The client that gets messages to that name: the longest-registered one; null if there is none.
  Client *Oldest(const AppName &name) const;

 private:
  // The link in the chain that refers to the oldest client of that name, or would.
  Client *&LinkOf(const AppName &name);
  void Grow();

  std::vector<Client *> chains_;  // a power of two of them
  size_t names_ = 0;
  uint64_t lastRegistration_ = 0;
};

}  // namespace zor::msgsvr

#endif
