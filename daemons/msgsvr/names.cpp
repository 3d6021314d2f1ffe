#include "msgsvr/names.h"

#include <algorithm>

#include "msgsvr/client.h"

namespace zor::msgsvr {

AppName::AppName(std::string_view text) {
  text = text.substr(0, std::min(text.find('\0'), field_.size() - 1));
  std::copy(text.begin(), text.end(), field_.begin());
}

std::optional<AppName> AppName::FromField(const Field &field) {
  char copy[ZOR_MSG_NAME_SIZE];
  std::copy(field.begin(), field.end(), copy);
  return FromField(copy);
}

std::optional<AppName> AppName::FromField(const char (&field)[ZOR_MSG_NAME_SIZE]) {
  const size_t length = ::strnlen(field, sizeof field);
  if (length == sizeof field) return std::nullopt;
  AppName name;
  std::memcpy(name.field_.data(), field, length);
  return name;
}

bool AppName::IsGrantable() const {
  const std::string_view characters = text();
  return !characters.empty() &&
         std::all_of(characters.begin(), characters.end(), [](char c) { return c > ' ' && c < 0x7f; });
}

size_t AppNameHash::operator()(const AppName &name) const noexcept {
  uint64_t head;
  uint32_t tail;
  static_assert(sizeof head + sizeof tail == sizeof(AppName::Field));
  std::memcpy(&head, name.field().data(), sizeof head);
  std::memcpy(&tail, name.field().data() + sizeof head, sizeof tail);
  const uint64_t mixed = (head ^ (uint64_t{tail} << 29)) * UINT64_C(0x9e3779b97f4a7c15);
  return static_cast<size_t>(mixed ^ (mixed >> 32));
}

void NameTable::Add(const AppName &name, Client &client) {
  std::vector<Client *> &clients = byName_[name];
  try {
    clients.push_back(&client);
  } catch (...) {
    if (clients.empty()) byName_.erase(name);
    throw;
  }
  client.registration = ++lastRegistration_;
}

void NameTable::Remove(const AppName &name, const Client &client) {
  const auto entry = byName_.find(name);
  if (entry == byName_.end()) return;
  std::erase(entry->second, &client);
  if (entry->second.empty()) byName_.erase(entry);
}

std::span<Client *const> NameTable::ClientsNamed(const AppName &name) const {
  const auto entry = byName_.find(name);
  if (entry == byName_.end()) return {};
  return entry->second;
}

Client *NameTable::Oldest(const AppName &name) const {
  const std::span<Client *const> clients = ClientsNamed(name);
  return clients.empty() ? nullptr : clients.front();
}

}  // namespace zor::msgsvr
