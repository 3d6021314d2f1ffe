// The fields of a reply, for users. They may come from another machine, so nothing is certain about their types.
#ifndef ZORCTL_REPLY_FIELDS_H
#define ZORCTL_REPLY_FIELDS_H

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace zor::ctl {

// The same for JSON output: texts that hold a JSON object or array are shown as it, and a known status has its meaning
// beside it.
nlohmann::ordered_json FieldsJson(nlohmann::ordered_json fields);
// The text, or the JSON object or array that it holds.
nlohmann::ordered_json TextJson(const std::string &text);

// A line for each field, or for each item of a management message; bytes as a dump.
void PrintFields(const nlohmann::ordered_json &fields);
// All of them in one line.
std::string FieldsLine(const nlohmann::ordered_json &fields);
// Whether they report a failure.
bool IsError(const nlohmann::ordered_json &fields);

}  // namespace zor::ctl

#endif
