// The fields of a reply, for users. They may come from another machine, so nothing is certain about their types.
#ifndef ZORCTL_REPLY_FIELDS_H
#define ZORCTL_REPLY_FIELDS_H

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace zor::ctl {

// A line for each field, or for each item of a management message; bytes as a dump.
void PrintFields(const nlohmann::ordered_json &fields);
// All of them in one line.
std::string FieldsLine(const nlohmann::ordered_json &fields);
// Whether they report a failure.
bool IsError(const nlohmann::ordered_json &fields);

}  // namespace zor::ctl

#endif
