#include "zorctl/store_list.h"

#include <zor/platform/config_list.h>

#include "zorctl/store_value.h"

namespace zor::ctl {
namespace {

// The values of an instance come one after the other.
void AddValue(const ZOR_STORE_ENTRY &entry, std::vector<StoreEntry> &objects) {
  if (objects.empty() || objects.back().id != entry.id || objects.back().instance != entry.instance) {
    objects.push_back({entry.id, entry.instance, 0, {}});
  }
  if (entry.name == nullptr) return;
  objects.back().names.emplace_back(entry.name);
  ++objects.back().size;
}

void Add(const ZOR_STORE_ENTRY *entry, void *context) {
  auto &contents = *static_cast<StoreContents *>(context);
  switch (entry->kind) {
    case ZOR_STORE_KIND_PARAMETER:
      return contents.parameters.push_back({entry->id, entry->instance, entry->size, {}});
    case ZOR_STORE_KIND_OBJECT:
      return AddValue(*entry, contents.objects);
    case ZOR_STORE_KIND_APPDATA:
      return contents.appData.push_back({entry->id, 0, entry->size, {}});
    default:
      return;  // of a later platform
  }
}

}  // namespace

StoreContents ListStore() {
  StoreContents contents;
  CheckStoreStatus(ZOR_STORE_List(Add, &contents), "list");
  return contents;
}

}  // namespace zor::ctl
