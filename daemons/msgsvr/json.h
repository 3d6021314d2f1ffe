// JSON values with an owner, and texts of others made fit for JSON.
#ifndef MSGSVR_JSON_H
#define MSGSVR_JSON_H

#include <cjson/cJSON.h>

#include <memory>
#include <string>
#include <string_view>

namespace zor::msgsvr {

struct JsonDeleter {
  void operator()(cJSON *value) const { cJSON_Delete(value); }
};
using Json = std::unique_ptr<cJSON, JsonDeleter>;

// The value as compact text; empty when memory is short.
std::string JsonText(const cJSON *value);

// Valid UTF-8 without control characters: each byte that does not belong there becomes '?'.
std::string CleanText(std::string_view text);

}  // namespace zor::msgsvr

#endif
