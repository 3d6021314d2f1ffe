// The configuration store's file, read to see what is there: the platform's functions (zor/platform/config.h) give what
// one knows the number of, and list nothing.
#ifndef ZORCTL_STORE_FILE_H
#define ZORCTL_STORE_FILE_H

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

// As it stands at one moment. Throws Failure when the file is no store, or may not be read.
StoreContents ReadStoreFile(const std::string &path);

}  // namespace zor::ctl

#endif
