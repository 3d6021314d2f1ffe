// What the rest of the log-record API needs from the item table.
#ifndef APP_LOGUTIL_LOG_ITEMS_H
#define APP_LOGUTIL_LOG_ITEMS_H

#include <cstdint>

namespace zor {

// The level bits that any item uses.
std::uint32_t LogLevelsInUse() noexcept;

}  // namespace zor

#endif
