// Device-management messages as bytes.
#ifndef TESTS_SUPPORT_DM_BYTES_H
#define TESTS_SUPPORT_DM_BYTES_H

#include <zor/dmmsg.h>

#include <cstdint>
#include <initializer_list>
#include <string>

namespace zor::test {

inline std::string Words(std::initializer_list<uint32_t> words) {
  return {reinterpret_cast<const char *>(words.begin()), words.size() * sizeof(uint32_t)};
}

inline std::string DmHead(size_t capacity, uint32_t free, uint32_t code = 0) {
  return Words({ZOR_DMMSG_MAGIC, static_cast<uint32_t>(capacity), free, code, 0, 7});
}

inline std::string DmItem(const std::string &name, const std::string &value) {
  return Words({0, static_cast<uint32_t>(name.size()), static_cast<uint32_t>(value.size())}) + name + value;
}

}  // namespace zor::test

#endif
