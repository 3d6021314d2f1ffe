// Application names, and which client answers to one.
#ifndef MSGSVR_NAMES_H
#define MSGSVR_NAMES_H

#include <zor/msg_wire.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zor::msgsvr {

struct Client;

// At most 11 characters in a zero-padded field, so that two names are equal when their fields are.
class AppName {
 public:
  using Field = std::array<char, ZOR_MSG_NAME_SIZE>;

  AppName() = default;
  // The text cut to a name.
  explicit AppName(std::string_view text);
  // The name in a field of the wire; nothing when the field holds no terminator.
  static std::optional<AppName> FromField(const char (&field)[ZOR_MSG_NAME_SIZE]);

  bool empty() const { return field_[0] == '\0'; }
  const Field &field() const { return field_; }
  std::string_view text() const { return {field_.data(), ::strnlen(field_.data(), field_.size())}; }
  // Whether a daemon may bear it: not empty, and nothing but visible ASCII characters.
  bool IsGrantable() const;

  friend bool operator==(const AppName &, const AppName &) = default;

 private:
  Field field_{};
};

struct AppNameHash {
  size_t operator()(const AppName &name) const noexcept;
};

// Registered clients by name, in the order of their registration.
class NameTable {
 public:
  void Add(const AppName &name, Client &client);
  void Remove(const AppName &name, const Client &client);
  // Everybody of that name, the oldest first.
  std::span<Client *const> Bearers(const AppName &name) const;
  // The client that a name means: the oldest of its bearers; null when nobody bears it.
  Client *Oldest(const AppName &name) const;

 private:
  std::unordered_map<AppName, std::vector<Client *>, AppNameHash> bearers_;
};

}  // namespace zor::msgsvr

#endif
