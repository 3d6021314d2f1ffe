// Numbers of the bus as text.
#ifndef PROGRAMS_FORMAT_NUMBER_H
#define PROGRAMS_FORMAT_NUMBER_H

#include <cstdint>
#include <string>

namespace zor::daemon {

// A duration with one decimal: "12.3 s".
std::string AgeText(uint64_t milliseconds);

// A number as message types are written: "0x4001".
std::string HexText(uint32_t number);

}  // namespace zor::daemon

#endif
