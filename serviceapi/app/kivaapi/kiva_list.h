// The KIVA list in memory, read from its file and written back.
#ifndef APP_KIVAAPI_KIVA_LIST_H
#define APP_KIVAAPI_KIVA_LIST_H

#include <zor/kiva.h>

#include "app/kivaapi/device_records.h"

namespace zor {

// 12 upper-case digits and a NUL.
using MacText = char[13];

// The gateway's own MAC; false when none is stored.
bool ReadOwnMac(MacText &mac) noexcept;

class KivaList {
 public:
  KivaList() = default;
  KivaList(const KivaList &) = delete;
  KivaList &operator=(const KivaList &) = delete;
  ~KivaList() { ReleaseList(head_.next); }

  // Reads the file, at a second try if need be. Must be called once at most. The list is empty after a failure.
  std::uint32_t Read() noexcept;
  // 0 or ZOR_KIVA_E_FILE.
  std::uint32_t Write() noexcept;

  // The first record of a MAC (null: the gateway's own); null when there is none.
  dev_kivainfo_list *Find(const char *mac) const noexcept;
  dev_kivainfo_list *&first() noexcept { return head_.next; }

 private:
  std::uint32_t ReadOnce() noexcept;

  // In the file the list hangs on a node without a record.
  dev_kivainfo_list head_ = {};
};

// Reports on standard output that a record could not be kept.
void PrintRecordLost() noexcept;

}  // namespace zor

#endif
