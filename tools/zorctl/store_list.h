// What the configuration store holds. Throws Failure with a text for the user.
#ifndef ZORCTL_STORE_LIST_H
#define ZORCTL_STORE_LIST_H

#include <cstdint>
#include <string>
#include <vector>

namespace zor::ctl {

struct StoreEntry {
  uint32_t id;                     // of the parameter or item, or the class of the object
  uint32_t instance;               // 0 for application data
  uint64_t size;                   // of the value in bytes; of an object: how many values it has
  std::vector<std::string> names;  // of an object's values
};

struct StoreContents {
  std::vector<StoreEntry> parameters;
  std::vector<StoreEntry> objects;
  std::vector<StoreEntry> appData;
};

// As it is at one moment.
StoreContents ListStore();

}  // namespace zor::ctl

#endif
