#include "msgsvr/names.h"

#include <algorithm>
#include <utility>

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

Namesakes::Iterator &Namesakes::Iterator::operator++() {
  client_ = client_->nextNamesake;
  return *this;
}

size_t Namesakes::count() const {
  size_t count = 0;
  for (auto each = begin(); each != end(); ++each) ++count;
  return count;
}

void NameTable::Add(const AppName &name, Client &client) {
  if (names_ >= chains_.size()) Grow();
  Client **link = &LinkOf(name);
  client.nextName = client.nextNamesake = nullptr;
  if (*link == nullptr) ++names_;
  while (*link != nullptr) link = &(*link)->nextNamesake;
  *link = &client;
  client.registration = ++lastRegistration_;
}

void NameTable::Remove(const AppName &name, const Client &client) {
  if (names_ == 0) return;
  Client *&oldest = LinkOf(name);
  if (oldest == &client) {
    Client *const heir = client.nextNamesake;
    if (heir == nullptr) --names_;
    if (heir != nullptr) heir->nextName = client.nextName;
    oldest = heir != nullptr ? heir : client.nextName;
    return;
  }
  for (Client *each = oldest; each != nullptr; each = each->nextNamesake) {
    if (each->nextNamesake == &client) each->nextNamesake = client.nextNamesake;
  }
}

Namesakes NameTable::ClientsNamed(const AppName &name) const {
  return Namesakes(Oldest(name));
}

Client *NameTable::Oldest(const AppName &name) const {
  return names_ == 0 ? nullptr : const_cast<NameTable *>(this)->LinkOf(name);
}

Client *&NameTable::LinkOf(const AppName &name) {
  Client **link = &chains_[AppNameHash()(name) & (chains_.size() - 1)];
  while (*link != nullptr && (*link)->name != name) link = &(*link)->nextName;
  return *link;
}

void NameTable::Grow() {
  constexpr size_t kFewest = 16;
  std::vector<Client *> chains(std::max(kFewest, 2 * chains_.size()));
  for (Client *client : chains_) {
    while (client != nullptr) {
      Client *&chain = chains[AppNameHash()(client->name) & (chains.size() - 1)];
      Client *const next = std::exchange(client->nextName, chain);
      chain = std::exchange(client, next);
    }
  }
  chains_ = std::move(chains);
}

}  // namespace zor::msgsvr
