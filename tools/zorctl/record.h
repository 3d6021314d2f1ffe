// Wire records as bytes.
#ifndef ZORCTL_RECORD_H
#define ZORCTL_RECORD_H

#include <string_view>
#include <type_traits>

namespace zor::ctl {

// The bytes of a record, which must outlive them.
template <class Record>
std::string_view RecordBytes(const Record &record) {
  static_assert(std::is_trivially_copyable_v<Record> && !std::is_pointer_v<Record>);
  return {reinterpret_cast<const char *>(&record), sizeof record};
}

}  // namespace zor::ctl

#endif
