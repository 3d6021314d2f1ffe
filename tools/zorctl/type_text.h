// Descriptions of message types for people: as text, as Markdown and as JSON.
#ifndef ZORCTL_TYPE_TEXT_H
#define ZORCTL_TYPE_TEXT_H

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "programs/types/type.h"

namespace zor::ctl {

// "0x6101", or "0x2DA01-0x2DA63".
std::string NumbersText(const types::Type &type);

void PrintType(const types::Type &type);
// A section of a document.
std::string TypeMarkdown(const types::Type &type);
// As a type file has it.
nlohmann::ordered_json TypeJson(const types::Type &type);

// The row of the dissector's table for a type, in Lua.
std::string DissectorRow(const types::Type &type);

}  // namespace zor::ctl

#endif
