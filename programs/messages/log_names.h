// Types and levels of log records as users write them.
#ifndef PROGRAMS_MESSAGES_LOG_NAMES_H
#define PROGRAMS_MESSAGES_LOG_NAMES_H

#include <cstdint>
#include <string>
#include <vector>

namespace zor::messages {

// The bits of the named types, all of them for no name. A name may cover several types; case does not matter, and a
// number is taken as bits. UnknownName for an unknown one.
uint32_t LogTypes(const std::vector<std::string> &names);

// The bits of the named level and of those that are more severe, all of them for no name. Invalid for an unknown one.
uint32_t LogLevels(const std::string &name);

// The names that these two know, in the order of their bits.
std::vector<std::string> LogTypeNames();
std::vector<std::string> LogLevelNames();

// The English names of a record's type and level; numbers for those without one.
std::string LogTypeText(uint32_t typeLevel);
std::string LogLevelText(uint32_t typeLevel);

}  // namespace zor::messages

#endif
